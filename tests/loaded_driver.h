// The driver as the tests reach it: the built library loaded once with dlopen, as a host loads
// it, and every exported function resolved by its symbol into a fixture member of the same name.
// A test body therefore reads like host code while every call goes into the loaded library; the
// exported driver object is inspected through the layout its header pins.
#ifndef KORVAN_TESTS_LOADED_DRIVER_H
#define KORVAN_TESTS_LOADED_DRIVER_H

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/Communication_Protocol.h"
#include "base/driver_functions.h"
#include "codec/frames.h"
#include "driver/polling.h"
#include "plc_model.h"

// The exported functions the tests call, by name; their symbols come from the one list of exports.
#define KORVAN_EXPORTED_FUNCTIONS(X)                                                               \
    X(SetComInfo)                                                                                  \
    X(RegistCallBackFuncIntf) X(FlashLocalRegister) X(QueryFinishFlag) X(EnCommStation)            \
        X(EnableEthernet) X(PLCAddressChangeIntef) X(ComCommunication) X(DataCom)                  \
            X(AddListReadVar) X(AddListWriteVar) X(AddListOnceReadVar) X(ReCreatReadVarList)       \
                X(GetRegisterData) X(SetRegisterData) X(Ethernetcontains) X(CalCRC) X(CalSUM)      \
                    X(CalLRC) X(CalXOR) X(DigitalToASCII) X(ASCIIToDigital) X(CheckGetData)        \
                        X(StringAddressToInt) X(WhetherGroup) X(Bubble_Sort) X(BitVarReCreat)      \
                            X(read_register) X(write_register) X(write_analog) X(write_analog_bit) \
                                X(Remote_ReadVar) X(Remote_WriteVar) X(SaveToLocalDataErea)        \
                                    X(SpecialRegisterSave) X(write_data_to_local)                  \
                                        X(DealDataOfLocalArea) X(DealDataOfRemoteArea)             \
                                            X(GetDriverReturnValue) X(SwitchErrorReturn)           \
                                                X(passRetValue) X(customMessageHandler)

// Every symbol of the list of exports (driver/exported_symbols.txt: blank lines and # comments
// skipped), and the symbol of each function by its name: the demangled symbol up to its argument
// list, or the symbol itself for the extern "C" entry points and the globals.
inline std::vector<std::string> exportedSymbols() {
    std::vector<std::string> symbols;
    std::ifstream list(KORVAN_EXPORTED_SYMBOLS);
    for (std::string line; std::getline(list, line);) {
        if (!line.empty() && line[0] != '#') {
            symbols.push_back(line);
        }
    }
    return symbols;
}
inline const std::string& symbolOf(const std::string& name) {
    static const std::map<std::string, std::string> byName = [] {
        std::map<std::string, std::string> names;
        for (const std::string& symbol : exportedSymbols()) {
            int status = 0;
            char* demangled = abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status);
            const std::string text = status == 0 ? demangled : symbol;
            std::free(demangled);
            names[text.substr(0, text.find('('))] = symbol;
        }
        return names;
    }();
    static const std::string unknown;
    const auto it = byName.find(name);
    return it != byName.end() ? it->second : unknown;
}

inline void* loadedLibrary() {
    static void* const handle = [] {
        void* h = dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        if (h == nullptr) {
            std::fprintf(stderr, "cannot load the driver: %s\n", dlerror());
            std::abort();
        }
        return h;
    }();
    return handle;
}

// The exported symbol as a typed pointer; a missing one fails the test.
template <typename T>
T exported(const char* symbol) {
    void* p = dlsym(loadedLibrary(), symbol);
    EXPECT_NE(p, nullptr) << "missing export " << symbol;
    return reinterpret_cast<T>(p);
}

// Byte strings written the way frames are written down: two hex digits a byte, spaced.
inline QByteArray bytesOf(const char* hexText) {
    return QByteArray::fromHex(hexText);
}
inline std::string hex(const QByteArray& bytes) {
    const QByteArray digits = bytes.toHex().toUpper();
    std::string spaced;
    for (int i = 0; i < digits.size(); i += 2) {
        spaced += (i > 0 ? " " : "") + std::string(digits.constData() + i, 2);
    }
    return spaced;
}
inline QByteArray toQt(const plcsim::Bytes& b) {
    return QByteArray(reinterpret_cast<const char*>(b.data()), static_cast<int>(b.size()));
}
// The bytes, then their CRC low byte first, computed by the PLC model's own code.
inline QByteArray withCrc(QByteArray frame) {
    const std::uint16_t crc = plcsim::crc16(reinterpret_cast<const std::uint8_t*>(frame.data()),
                                            static_cast<std::size_t>(frame.size()));
    return frame.append(static_cast<char>(crc & 0xFF)).append(static_cast<char>(crc >> 8));
}

// A list record of the local port, and a write record carrying `data` (hex).
inline RW_VAR var(int area, int address, int count, int station = 1) {
    RW_VAR v;
    v.area = area;
    v.address = address;
    v.count = count;
    v.station = station;
    v.port = 1;
    return v;
}
inline RW_VAR writeVar(int area, int address, int count, const char* data, int station = 1) {
    RW_VAR v = var(area, address, count, station);
    v.direction = 1;
    v.data = bytesOf(data);
    return v;
}
// A record as a host registers it, with an address text.
inline RW_VAR hostVar(int area, const char* address, int count, int station = 1) {
    RW_VAR v = var(area, 0, count, station);
    v.addressText = QString::fromLatin1(address);
    return v;
}
// An entry of the host's cyclic list.
inline HOSTVAR cyclicVar(int area, const QString& address, int count, int station = 1,
                         const char* name = "") {
    HOSTVAR h;
    h.area = static_cast<quint8>(area);
    h.station = static_cast<quint8>(station);
    h.addressText = address;
    h.nameText = QString::fromLatin1(name);
    h.count = count;
    return h;
}

// The frame and lengths of a queued request; the whole frame is sent and the reserved words are 0.
inline void expectRequest(const Protocol& request, const char* frame, int replyLength,
                          int dataOffset, int dataLength) {
    EXPECT_EQ(hex(request.frame), frame);
    EXPECT_EQ(request.sendLength, request.frame.size());
    EXPECT_EQ(request.replyLength, replyLength);
    EXPECT_EQ(request.dataOffset, dataOffset);
    EXPECT_EQ(request.dataLength, dataLength);
    EXPECT_EQ(request.reserved[0] | request.reserved[1] | request.reserved[2], 0);
}

// Callbacks as the host received them: {hostTag, ownerId, itemId, status} and
// {list size, ownerId, flag}.
typedef std::vector<std::array<int, 4>> ResultCalls;
typedef std::vector<std::array<int, 3>> ErrorCalls;
// The register image: words keyed by station (bits 56..63), cache area (48..55) and address.
typedef std::map<quint64, quint16> Image;

// The loaded driver put back into its just-loaded state for each test, with a port record of
// block length 100, station 1, two retries, local port 1, and recording callbacks; and a PLC
// model of stations 1..3 to answer its frames.
class DriverTest : public ::testing::Test {
protected:
#define KORVAN_RESOLVE(name) \
    decltype(&::name) name = exported<decltype(&::name)>(symbolOf(#name).c_str());
    KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
#undef KORVAN_RESOLVE
    Communication_Protocol& driver = *exported<Communication_Protocol*>("PLC_driver");

    void SetUp() override {
        resetDriver();
        info.maxUnits = 100;
        info.defaultStation = 1;
        info.retryLimit = 2;
        info.portId = 1;
        info.hostTag = 77;
        SetComInfo(&info);
        RegistCallBackFuncIntf(recordResult, recordError);
    }
    void TearDown() override {
        resetDriver();
    }

    void resetDriver() {
        Communication_Protocol& d = driver;
        d.comInfo = nullptr;
        d.readList.clear();
        d.writeList.clear();
        d.onceReadList.clear();
        d.requestQueue.clear();
        d.resultCallback = nullptr;
        d.errorCallback = nullptr;
        d.stationMap.clear();
        d.retVar = RW_VAR();
        d.currentSource = kSourceNone;
        d.writeBurst = d.onceBurst = d.scanCount = 0;
        d.commFailed = 0;
        d.registerCache.clear();
        results.clear();
        errors.clear();
    }

    static int recordResult(int hostTag, int ownerId, int itemId, int status) {
        results.push_back({hostTag, ownerId, itemId, status});
        return 0;
    }
    static int recordError(QList<RW_VAR>* list, int ownerId, int flag) {
        errors.push_back({list != nullptr ? list->size() : -1, ownerId, flag});
        return 0;
    }

    // The register image, ordered by key.
    Image image() const {
        Image out;
        for (auto it = driver.registerCache.constBegin(); it != driver.registerCache.constEnd();
             ++it) {
            out[it.key()] = it.value();
        }
        return out;
    }
    // A word of the image, keyed by station, area and address.
    static quint64 key(int area, qint64 address, int station = 1) {
        return quint64(station) << 56 | quint64(area) << 48 | quint64(address);
    }
    quint16 word(int area, qint64 address, int station = 1) const {
        return driver.registerCache.value(key(area, address, station));
    }
    void setWord(int area, qint64 address, quint16 value, int station = 1) {
        driver.registerCache.insert(key(area, address, station), value);
    }

    const Protocol& request(int i) const {
        return driver.requestQueue.at(i);
    }

    // The PLC model's answer to the queued head frame (empty when it stays silent).
    QByteArray plcReply() {
        const QByteArray& f = driver.requestQueue.first().frame;
        return toQt(plc.handle(plcsim::Bytes(f.begin(), f.end())).bytes);
    }

    // One polling round against the PLC model: the result code, or -1 when nothing was due.
    int poll() {
        Protocol* p = ComCommunication();
        if (p == nullptr) {
            return -1;
        }
        sent.push_back(p->frame.left(p->sendLength));
        QByteArray reply = plcReply();
        return DataCom(&reply, reply.size())->result;
    }
    std::vector<int> run(int rounds) {
        std::vector<int> codes;
        while (rounds-- > 0) {
            codes.push_back(poll());
        }
        return codes;
    }

    // A host read of the register image into a buffer that held something before; its result
    // goes to readResult.
    QByteArray read(int area, const char* address, int count, int station = 1) {
        QByteArray buffer("previous");
        readResult =
            GetRegisterData(QString(), area, QString::fromLatin1(address), station, &buffer, count);
        return buffer;
    }
    // A host write of `values` (hex) named "tag".
    int write(int area, const char* address, const char* values, int count, int owner = 7,
              int item = 8, int station = 1) {
        QByteArray bytes = bytesOf(values);
        return SetRegisterData(QString::fromLatin1("tag"), area, QString::fromLatin1(address),
                               station, &bytes, count, owner, item);
    }

    // Replaces the cyclic read list by the blocks planned from `list`; their number.
    int rebuild(QList<HOSTVAR> list) {
        return ReCreatReadVarList(&list);
    }

    inline static ResultCalls results;
    inline static ErrorCalls errors;
    ComInfo info;
    plcsim::PlcModel plc{{1, 2, 3}};
    std::vector<QByteArray> sent;
    int readResult = -1;
};

#endif
