// The built library loaded once with dlopen, as a host loads it, each exported function resolved
// into a fixture member of its name: test bodies read like host code calling the loaded library.
#ifndef KORVAN_TESTS_LOADED_DRIVER_H
#define KORVAN_TESTS_LOADED_DRIVER_H

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/Communication_Protocol.h"
#include "codec/Func_Check.h"
#include "codec/Func_Read.h"
#include "codec/Func_Remote.h"
#include "codec/Func_Write.h"
#include "driver/Communication_Protocol.h"
#include "driver/reply_outcome.h"
#include "driver/result_codes.h"
#include "image/Func_DealData.h"
#include "image/Func_GetOrSetData.h"
#include "lists/Func_Initi.h"
#include "plc_model.h"

// The exported functions the tests call, by name; their symbols come from the one list of exports.
// clang-format off
#define KORVAN_EXPORTED_FUNCTIONS(X)                                                               \
    X(SetComInfo) X(RegistCallBackFuncIntf) X(FlashLocalRegister) X(QueryFinishFlag)               \
    X(EnCommStation) X(EnableEthernet) X(PLCAddressChangeIntef) X(ComCommunication) X(DataCom)     \
    X(AddListReadVar) X(AddListWriteVar) X(AddListOnceReadVar) X(ReCreatReadVarList)               \
    X(GetRegisterData) X(SetRegisterData) X(Ethernetcontains) X(CalCRC) X(CalSUM) X(CalLRC)        \
    X(CalXOR) X(DigitalToASCII) X(ASCIIToDigital) X(CheckGetData) X(StringAddressToInt)            \
    X(WhetherGroup) X(Bubble_Sort) X(BitVarReCreat) X(read_register) X(write_register)             \
    X(write_analog) X(write_analog_bit) X(Remote_ReadVar) X(Remote_WriteVar)                       \
    X(SaveToLocalDataErea) X(SpecialRegisterSave) X(write_data_to_local) X(DealDataOfLocalArea)    \
    X(DealDataOfRemoteArea) X(GetDriverReturnValue) X(SwitchErrorReturn) X(passRetValue)           \
    X(customMessageHandler)
// clang-format on

// The symbol in driver/exported_symbols.txt whose demangled name (up to its arguments) is `name`.
inline const std::string& symbolOf(const std::string& name) {
    static const std::map<std::string, std::string> byName = [] {
        std::map<std::string, std::string> names;
        std::ifstream list(KORVAN_EXPORTED_SYMBOLS);
        for (std::string symbol; std::getline(list, symbol);) {
            int status = -1;  // blank lines and # comments do not demangle either
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

// An exported symbol as a typed pointer; a missing one fails the test.
template <typename T>
T exported(const char* symbol) {
    static void* const library = dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    void* p = library != nullptr ? dlsym(library, symbol) : nullptr;
    EXPECT_NE(p, nullptr) << "missing export " << symbol << ": " << dlerror();
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

// Records of the local port: a read, a write of `data` (hex), one with an address text as a host
// registers it; and an entry of the host's cyclic list.
inline RW_VAR var(int area, int address, int count, int station = 1) {
    RW_VAR v;
    v.port = 1;
    v.area = area;
    v.address = address;
    v.station = station;
    v.count = count;
    return v;
}
inline RW_VAR writeVar(int area, int address, int count, const char* data, int station = 1) {
    RW_VAR v = var(area, address, count, station);
    v.direction = korvan::kDirectionWrite;
    v.data = bytesOf(data);
    return v;
}
inline RW_VAR hostVar(int area, const char* address, int count, int station = 1) {
    RW_VAR v = var(area, 0, count, station);
    v.addressText = QString::fromLatin1(address);
    return v;
}
// The record `v` of host variable `owner`/`item` on `port`.
inline RW_VAR owned(RW_VAR v, int owner, int item, int port = 1) {
    v.ownerId = owner;
    v.itemId = item;
    v.port = port;
    return v;
}
inline HOSTVAR cyclicVar(int area, const QString& address, int count, int station = 1,
                         const char* name = "") {
    HOSTVAR h;
    h.area = quint8(area);
    h.station = quint8(station);
    h.addressText = address;
    h.nameText = QString::fromLatin1(name);
    h.count = count;
    return h;
}

inline ComInfo portRecord() {
    ComInfo info;
    info.maxUnits = 100;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.portId = 1;
    info.hostTag = 77;
    return info;
}

// Callbacks as the host received them: {hostTag, ownerId, itemId, status} and
// {list size, ownerId, flag}.
typedef std::vector<std::array<int, 4>> ResultCalls;
typedef std::vector<std::array<int, 3>> ErrorCalls;
// The register image: words keyed by station (bits 56..63), area (48..55) and address.
typedef std::map<quint64, quint16> Image;

// The loaded driver in its just-loaded state for each test, with a port record of block length
// 100, station 1, two retries, port 1, host tag 77, recording callbacks, and a PLC model of
// stations 1..3.
#define KORVAN_RESOLVE(name) \
    decltype(&::name) name = exported<decltype(&::name)>(symbolOf(#name).c_str());
class DriverTest : public ::testing::Test {
protected:
    KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
    Communication_Protocol& driver = *exported<Communication_Protocol*>("PLC_driver");

    void SetUp() override {
        resetDriver();
        SetComInfo(&info);
        RegistCallBackFuncIntf(recordResult, recordError);
    }
    void TearDown() override { resetDriver(); }

    void resetDriver() {
        Communication_Protocol& d = driver;
        d.comInfo = nullptr;
        d.readList = d.writeList = d.onceReadList = QList<RW_VAR>();
        d.requestQueue.clear();
        d.resultCallback = nullptr;
        d.errorCallback = nullptr;
        d.stationMap.clear();
        d.retVar = RW_VAR();
        d.currentSource = kSourceNone;
        d.writeBurst = d.onceBurst = d.scanCount = d.commFailed = 0;
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

    Image image() const {
        const QHash<quint64, quint16>& cache = driver.registerCache;
        Image out;
        for (auto it = cache.constBegin(); it != cache.constEnd(); ++it) {
            out[it.key()] = it.value();
        }
        return out;
    }
    static quint64 key(int area, qint64 address, int station = 1) {
        return quint64(station) << 56 | quint64(area) << 48 | quint64(address);
    }
    quint16 word(int area, qint64 address, int station = 1) const {
        return driver.registerCache.value(key(area, address, station));
    }
    void setWord(int area, qint64 address, quint16 value, int station = 1) {
        driver.registerCache.insert(key(area, address, station), value);
    }

    const Protocol& request(int i) const { return driver.requestQueue.at(i); }

    // The PLC model's answer to the queued head frame (empty when it stays silent).
    QByteArray plcReply() {
        const QByteArray& f = driver.requestQueue.first().frame;
        return toQt(plc.handle(plcsim::Bytes(f.begin(), f.end())).bytes);
    }

    // One polling round against the PLC model: the result code, or -1 when nothing was due.
    int poll() {
        const Protocol* p = ComCommunication();
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

    // A host read into a buffer that held something before; its result goes to readResult.
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
    int rebuild(QList<HOSTVAR> list) { return ReCreatReadVarList(&list); }

    inline static ResultCalls results;
    inline static ErrorCalls errors;
    ComInfo info = portRecord();
    plcsim::PlcModel plc{{1, 2, 3}};
    std::vector<QByteArray> sent;
    int readResult = -1;
};
#undef KORVAN_RESOLVE

#endif
