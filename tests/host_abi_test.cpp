// The driver as a host sees it: loaded with dlopen, reached only through exported names and the
// public header. The driver object's layout is read at its published offsets, as a host may.
#include <gtest/gtest.h>

#include <QtCore/QFile>
#include <QtCore/QMap>

#include <vector>

#include "korvan_qa_qb_series_port.h"
#include "loaded_library.h"
#include "plc_model.h"

namespace {

constexpr std::size_t kPointer = sizeof(void*);

// Offsets of driver object members that a host may read.
constexpr std::size_t kComInfoOffset = 0;
constexpr std::size_t kRequestQueueOffset = 5 * kPointer;
constexpr std::size_t kResultCallbackOffset = 7 * kPointer;
constexpr std::size_t kStationMapOffset = 12 * kPointer;
constexpr std::size_t kCurrentSourceOffset = 13 * kPointer + sizeof(RW_VAR);

const char* const kExtern_C_Names[] = {
    "SetComInfo",      "RegistCallBackFuncIntf", "FlashLocalRegister",    "QueryFinishFlag",
    "EnCommStation",   "EnableEthernet",         "PLCAddressChangeIntef", "AddListReadVar",
    "AddListWriteVar", "AddListOnceReadVar",
};

const char* const kCxxNames[] = {
    "_Z16Ethernetcontainsi",                   // Ethernetcontains(int)
    "_Z6CalCRCPht",                            // CalCRC(unsigned char*, unsigned short)
    "_Z6CalSUMPht",                            // CalSUM
    "_Z6CalLRCPht",                            // CalLRC
    "_Z6CalXORPht",                            // CalXOR
    "_Z14DigitalToASCIIi",                     // DigitalToASCII(int)
    "_Z14ASCIIToDigitali",                     // ASCIIToDigital(int)
    "_Z12CheckGetDataPK10QByteArray",          // CheckGetData(const QByteArray*)
    "_Z18StringAddressToInti7QString",         // StringAddressToInt(int, QString)
    "_Z12WhetherGroupiiP6RW_VARP5QListIS_E",   // WhetherGroup(int, int, RW_VAR*, QList<RW_VAR>*)
    "_Z11Bubble_SortP5QListI6RW_VARE",         // Bubble_Sort(QList<RW_VAR>*)
    "_Z13BitVarReCreatP5QListI6RW_VAREi",      // BitVarReCreat(QList<RW_VAR>*, int)
    "_Z13read_registerRK6RW_VAR",              // read_register(const RW_VAR&)
    "_Z14write_registerRK6RW_VAR",             // write_register(const RW_VAR&)
    "_Z12write_analogRK6RW_VAR",               // write_analog(const RW_VAR&)
    "_Z16write_analog_bitRK6RW_VAR",           // write_analog_bit(const RW_VAR&)
    "_Z14Remote_ReadVarRK6RW_VAR",             // Remote_ReadVar(const RW_VAR&)
    "_Z15Remote_WriteVarRK6RW_VAR",            // Remote_WriteVar(const RW_VAR&)
    "_Z19SaveToLocalDataEreaP10QByteArray",    // SaveToLocalDataErea(QByteArray*)
    "_Z19SpecialRegisterSavePK10QByteArray",   // SpecialRegisterSave(const QByteArray*)
    "_Z19write_data_to_localRK6RW_VAR",        // write_data_to_local(const RW_VAR&)
    "_Z19DealDataOfLocalAreaP10QByteArrayi",   // DealDataOfLocalArea(QByteArray*, int)
    "_Z20DealDataOfRemoteAreaP10QByteArrayi",  // DealDataOfRemoteArea(QByteArray*, int)
    "_Z20GetDriverReturnValuei",               // GetDriverReturnValue(int)
    "_Z17SwitchErrorReturni",                  // SwitchErrorReturn(int)
    "_Z12passRetValueRK6RW_VARRS_",            // passRetValue(const RW_VAR&, RW_VAR&)
    "_Z20customMessageHandler9QtMsgTypePKc",   // customMessageHandler(QtMsgType, const char*)
    "_ZN22Communication_Protocol11get_plc_regEi",  // Communication_Protocol::get_plc_reg(int)
    "_ZN22Communication_Protocol13update_rw_varEP6RW_VAR",
    "_ZN22Communication_Protocol19register_identifierEh",
};

const char* const kGlobals[] = {"PLC_driver", "LB", "LW", "RWI"};

QByteArray bytes(std::vector<unsigned char> b) {
    return QByteArray(reinterpret_cast<const char*>(b.data()), static_cast<int>(b.size()));
}

RW_VAR readVar(int station, int area, int address, int count) {
    RW_VAR v;
    v.station = station;
    v.area = area;
    v.address = address;
    v.count = count;
    return v;
}

class HostAbi : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(lib.loaded()) << LoadedLibrary::error();
        driver = static_cast<char*>(lib.symbol("PLC_driver"));
        ASSERT_NE(driver, nullptr);
    }

    template <typename T>
    T& member(std::size_t offset) {
        return *reinterpret_cast<T*>(driver + offset);
    }
    QList<Protocol>& requestQueue() { return member<QList<Protocol>>(kRequestQueueOffset); }

    LoadedLibrary lib;
    char* driver = nullptr;
};

}  // namespace

// Runs first in this process, so the object is as the library's loading left it.
TEST_F(HostAbi, DriverObjectIsConstructedAtLoad) {
    EXPECT_EQ(member<ComInfo*>(kComInfoOffset), nullptr);
    EXPECT_TRUE(requestQueue().isEmpty());
    EXPECT_TRUE((member<QMap<int, int>>(kStationMapOffset).isEmpty()));
    EXPECT_EQ(member<int>(kCurrentSourceOffset), 100);
}

TEST_F(HostAbi, ExportsEveryInterfaceName) {
    for (const char* name : kExtern_C_Names) {
        EXPECT_NE(lib.symbol(name), nullptr) << name;
    }
    for (const char* name : kCxxNames) {
        EXPECT_NE(lib.symbol(name), nullptr) << name;
    }
    for (const char* name : kGlobals) {
        EXPECT_NE(lib.symbol(name), nullptr) << name;
    }
    // Internal helpers stay hidden.
    EXPECT_EQ(lib.symbol("switchStation"), nullptr);
    EXPECT_EQ(lib.symbol("_Z10parseIntRK7QStringi"), nullptr);
}

TEST_F(HostAbi, PortRecordCallbacksAndLocalAreas) {
    auto setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
    auto registerCallbacks =
        lib.get<void (*)(ResultCallback, ErrorCallback)>("RegistCallBackFuncIntf");
    auto flash = lib.get<void (*)(void*, void*, void*)>("FlashLocalRegister");
    auto finished = lib.get<int (*)()>("QueryFinishFlag");

    EXPECT_EQ(finished(), 1);
    for (int given : {250, 101, 100, 7, 0, -5}) {  // capped from above only
        ComInfo info;
        info.maxUnits = given;
        info.clearedWord10 = 5;
        info.clearedWord13 = 5;
        setComInfo(&info);
        EXPECT_EQ(info.maxUnits, given > 100 ? 100 : given);
        EXPECT_EQ(info.clearedWord10 + info.clearedWord13, 0);
        EXPECT_EQ(member<ComInfo*>(kComInfoOffset), &info);
    }
    setComInfo(nullptr);

    auto onResult = [](int, int, int, int) { return 0; };
    auto onError = [](QList<RW_VAR>*, int, int) { return 0; };
    registerCallbacks(onResult, onError);
    EXPECT_EQ(member<ResultCallback>(kResultCallbackOffset), +onResult);
    EXPECT_EQ(member<ErrorCallback>(kResultCallbackOffset + kPointer), +onError);
    registerCallbacks(nullptr, nullptr);

    int bits = 0, words = 0, third = 0;
    flash(&bits, &words, &third);
    EXPECT_EQ(*lib.get<void**>("LB"), &bits);
    EXPECT_EQ(*lib.get<void**>("LW"), &words);
    EXPECT_EQ(*lib.get<void**>("RWI"), &third);
    EXPECT_EQ(finished(), 1);
}

TEST_F(HostAbi, StationSwitchesShareOneExactMap) {
    auto enComm = lib.get<void (*)(int, int)>("EnCommStation");
    auto enableEthernet = lib.get<void (*)(int, int)>("EnableEthernet");
    auto contains = lib.get<int (*)(int)>("_Z16Ethernetcontainsi");

    enComm(3, 0);
    enComm(3, 0);
    EXPECT_EQ((member<QMap<int, int>>(kStationMapOffset).size()), 1);
    EXPECT_EQ(contains(3), 1);
    EXPECT_EQ(contains(2), 0);
    EXPECT_EQ(contains(4), 0);
    enableEthernet(3, 1);
    EXPECT_EQ(contains(3), 0);

    enComm(5, 0);
    enComm(5, 7);  // enable values other than 0 and 1 change nothing
    enableEthernet(5, -1);
    EXPECT_EQ(contains(5), 1);
    enComm(-1, 1);  // a negative station serves every station again
    EXPECT_EQ(contains(5), 0);
    enComm(4, 0);
    enableEthernet(-7, 0);
    EXPECT_EQ(contains(4), 0);
}

// Parsing follows QString::toInt: white space around the number and one sign are accepted.
TEST_F(HostAbi, AddressTextsByArea) {
    auto change = lib.get<int (*)(int, QString)>("PLCAddressChangeIntef");
    auto toInt = lib.get<int (*)(int, QString)>("_Z18StringAddressToInti7QString");
    const struct {
        int area;
        const char* text;
        int expected;
    } cases[] = {
        {0, "17", 15},
        {1, "17", 15},
        {0, "18", -1},
        {1, "9", -1},
        {5, "17", 17},
        {-1, "250", 250},
        {30, "12", 12},
        {14, " +12 ", 12},
        {14, "-12", -12},
        {14, "", -1},
        {14, "1 2", -1},
        {14, "0x10", -1},
        {14, "12a", -1},
        {14, "99999999999", -1},
        {28, "2147483647", 2147483647},
        {29, "10.3", 163},
        {29, "0.0", 0},
        {29, "3.20", 68},
        {29, "4.4", 68},
        {29, "10.", -1},
        {29, ".3", -1},
        {29, "10", -1},
        {29, "1.2.3", -1},
        {29, "a.3", -1},
        {29, "", -1},
        {29, " 10 . 3 ", 163},
        {29, "2147483647.15", -1},  // the word wraps in 32 bits instead of overflowing
    };
    for (const auto& c : cases) {
        EXPECT_EQ(change(c.area, QString::fromLatin1(c.text)), c.expected)
            << c.area << " '" << c.text << "'";
        EXPECT_EQ(toInt(c.area, QString::fromLatin1(c.text)), c.expected);
    }
}

TEST_F(HostAbi, BitAddressesNormaliseToCoveringWords) {
    auto update =
        lib.get<void (*)(void*, RW_VAR*)>("_ZN22Communication_Protocol13update_rw_varEP6RW_VAR");
    auto cacheArea = lib.get<int (*)(void*, int)>("_ZN22Communication_Protocol11get_plc_regEi");
    const struct {
        int area, address, count;
        int toArea, toAddress, toCount;
    } cases[] = {
        {2, 35, 20, 2, 2, 2},  // bits 35..54 lie in words 2 and 3
        {0, 16, 16, 0, 1, 1},
        {0, 15, 2, 0, 0, 2},  // bits 15 and 16 straddle two words
        {0, 32, 0, 0, 2, 0},
        {13, 33, 0, 13, 2, 1},
        {29, 165, 1, 14, 10, 1},  // 10.5 is a bit of word 10 of area 14
        {3, -17, 1, 3, -2, 1},    // arithmetic shift keeps the sign
        {3, 15, 2147483647, 3, 0, static_cast<int>(0x80000000u + 29u) >> 4},  // wraps
        {14, 1234, 17, 14, 1234, 17},
        {20, 1, 1, 20, 1, 1},
        {30, 99, 3, 30, 99, 3},
        {-1, 99, 3, -1, 99, 3},
    };
    for (const auto& c : cases) {
        RW_VAR v;
        v.area = c.area;
        v.address = c.address;
        v.count = c.count;
        update(driver, &v);
        EXPECT_EQ(v.area, c.toArea) << c.area << " " << c.address;
        EXPECT_EQ(v.address, c.toAddress) << c.area << " " << c.address;
        EXPECT_EQ(v.count, c.toCount) << c.area << " " << c.address;
    }
    update(driver, nullptr);
    for (int area : {14, 29}) {
        EXPECT_EQ(cacheArea(driver, area), 14);
    }
    for (int area : {0, 28, -3}) {
        EXPECT_EQ(cacheArea(driver, area), area);
    }
}

TEST_F(HostAbi, ChecksumsAndDigits) {
    using Check = unsigned short (*)(unsigned char*, unsigned short);
    auto crc = lib.get<Check>("_Z6CalCRCPht");
    auto sum = lib.get<Check>("_Z6CalSUMPht");
    auto lrc = lib.get<Check>("_Z6CalLRCPht");
    auto xorOf = lib.get<Check>("_Z6CalXORPht");
    auto toAscii = lib.get<int (*)(int)>("_Z14DigitalToASCIIi");
    auto toDigit = lib.get<int (*)(int)>("_Z14ASCIIToDigitali");

    unsigned char frame[] = {0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02};
    unsigned char digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    unsigned char zero[] = {0x00};
    EXPECT_EQ(crc(frame, 8), 0xDB7F);  // sent low byte first: 7F DB
    EXPECT_EQ(crc(digits, 9), 0x4B37);
    EXPECT_EQ(crc(zero, 1), 0x40BF);
    EXPECT_EQ(crc(zero, 0), 0xFFFF);
    EXPECT_EQ(crc(nullptr, 5), 0xFFFF);  // a null buffer counts as empty
    std::vector<unsigned char> ff(300, 0xFF);
    EXPECT_EQ(sum(ff.data(), 300), 0x2AD4);
    EXPECT_EQ(sum(nullptr, 3), 0);
    unsigned char one[] = {0x01};
    unsigned char halves[] = {0x80, 0x80};
    EXPECT_EQ(lrc(one, 1), 0xFF);
    EXPECT_EQ(lrc(halves, 2), 256);
    EXPECT_EQ(lrc(one, 0), 256);
    unsigned char three[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(xorOf(three, 3), 0x70);
    EXPECT_EQ(xorOf(three, 1), 0x12);
    EXPECT_EQ(xorOf(three, 0), 0x12);  // the first byte is taken whatever the length
    EXPECT_EQ(xorOf(nullptr, 2), 0);

    const int toAsciiCases[][2] = {{0, '0'}, {9, '9'}, {10, 0x41}, {15, 'F'}, {-1, 0x2F}};
    for (const auto& c : toAsciiCases) {
        EXPECT_EQ(toAscii(c[0]), c[1]) << c[0];
    }
    EXPECT_EQ(toAscii(2147483647), static_cast<int>(0x80000036u));  // wraps, no trap
    const int toDigitCases[][2] = {{'7', 7},  {0x3F, 15}, {0x46, 15}, {0x40, 0},
                                   {0x20, 0}, {0x61, 42}, {-5, 0}};
    for (const auto& c : toDigitCases) {
        EXPECT_EQ(toDigit(c[0]), c[1]) << c[0];
    }
}

TEST_F(HostAbi, ReadFramesAndReplyValidation) {
    auto setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
    auto readRegister = lib.get<void (*)(const RW_VAR&)>("_Z13read_registerRK6RW_VAR");
    auto check = lib.get<int (*)(const QByteArray*)>("_Z12CheckGetDataPK10QByteArray");
    auto areaCode = lib.get<unsigned char (*)(void*, unsigned char)>(
        "_ZN22Communication_Protocol19register_identifierEh");

    ComInfo info;
    setComInfo(&info);
    readRegister(readVar(1, 14, 100, 2));
    ASSERT_EQ(requestQueue().size(), 1);
    const Protocol& p = requestQueue().first();
    EXPECT_EQ(p.frame, bytes({0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x7F, 0xDB}));
    EXPECT_EQ(p.sendLength, 10);
    EXPECT_EQ(p.replyLength, 9);
    EXPECT_EQ(p.dataOffset, 3);
    EXPECT_EQ(p.dataLength, 4);
    EXPECT_EQ(info.framesInExchange, 1);

    const QByteArray reply = bytes({0x01, 0x20, 0x04, 0x12, 0x34, 0x56, 0x78, 0x86, 0x54});
    EXPECT_EQ(check(&reply), 1);
    QByteArray corrupt = reply;
    corrupt[4] = 0x35;
    EXPECT_EQ(check(&corrupt), 0);
    requestQueue().clear();

    readRegister(readVar(1, 0, 2, 1));
    EXPECT_EQ(requestQueue().first().frame,
              bytes({0x01, 0x1E, 0x01, 0x00, 0x00, 0x20, 0x00, 0x10, 0x7E, 0x11}));
    EXPECT_EQ(requestQueue().first().replyLength, 7);
    requestQueue().clear();

    EXPECT_EQ(areaCode(driver, 7), 0x0D);
    EXPECT_EQ(areaCode(driver, 13), 0x12);
    EXPECT_EQ(areaCode(driver, 28), 0x8B);
    EXPECT_EQ(areaCode(driver, 29), 0);
    setComInfo(nullptr);
}

TEST_F(HostAbi, RegistrationCaps) {
    auto setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
    auto addWrite = lib.get<int (*)(RW_VAR*)>("AddListWriteVar");
    auto addOnce = lib.get<int (*)(RW_VAR*, int)>("AddListOnceReadVar");
    auto addRead = lib.get<int (*)(RW_VAR*)>("AddListReadVar");

    ComInfo info;
    info.maxUnits = 100;
    info.defaultStation = 1;
    setComInfo(&info);
    RW_VAR v;
    v.area = 20;
    v.addressText = QStringLiteral("0");
    v.count = 250;
    const int first = addOnce(&v, 0);
    EXPECT_EQ(first, 3);
    RW_VAR same;
    same.area = 20;
    same.addressText = QStringLiteral("0");
    same.count = 250;
    EXPECT_EQ(addOnce(&same, 0), first);
    EXPECT_EQ(addRead(&v), 1);

    int size = 0;
    for (int i = 0; i < 2050; ++i) {
        size = addWrite(&v);
    }
    EXPECT_EQ(size, 2048);
    setComInfo(nullptr);
}

// A host that installs the driver's handler gets its qDebug() lines in the log file.
TEST_F(HostAbi, InstalledMessageHandlerWritesTheLog) {
    auto handler = lib.get<QtMsgHandler>("_Z20customMessageHandler9QtMsgTypePKc");
    QFile::remove(QStringLiteral("/tmp/debug.log"));
    const QtMsgHandler previous = qInstallMsgHandler(handler);
    qDebug("panel %d started", 7);
    qWarning("line noise");
    qInstallMsgHandler(previous);

    QFile log(QStringLiteral("/tmp/debug.log"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().split('\n');
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].endsWith(":panel 7 started")) << lines[0].constData();
    EXPECT_TRUE(lines[1].endsWith(":line noise"));
}

// The typical cyclic read, end to end: plan, poll, answer from the PLC, read the value back.
TEST_F(HostAbi, WholeExchangeThroughTheLoadedLibrary) {
    auto setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
    auto rebuild = lib.get<int (*)(QList<HOSTVAR>*)>("ReCreatReadVarList");
    auto next = lib.get<Protocol* (*)()>("ComCommunication");
    auto dataCom = lib.get<RW_VAR* (*)(QByteArray*, int)>("DataCom");
    auto getData =
        lib.get<int (*)(QString, int, QString, int, QByteArray*, int)>("GetRegisterData");

    plcsim::PlcModel plc({1});
    plc.setWord(1, 0x80, 100, 0x1234);
    plc.setWord(1, 0x80, 101, 0xABCD);
    ComInfo info;
    info.maxUnits = 100;
    info.defaultStation = 1;
    info.portId = 1;
    setComInfo(&info);
    HOSTVAR var;
    var.area = 14;
    var.addressText = QStringLiteral("100");
    var.count = 2;
    QList<HOSTVAR> vars{var};
    EXPECT_EQ(rebuild(&vars), 1);

    Protocol* p = next();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->frame, bytes({0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x7F, 0xDB}));
    const plcsim::Reply r = plc.handle(plcsim::Bytes(p->frame.begin(), p->frame.end()));
    QByteArray reply(reinterpret_cast<const char*>(r.bytes.data()),
                     static_cast<int>(r.bytes.size()));
    ASSERT_EQ(reply.size(), p->replyLength);
    EXPECT_EQ(dataCom(&reply, reply.size())->result, 1);

    QByteArray out;
    EXPECT_EQ(getData(QString(), 14, QStringLiteral("100"), 1, &out, 2), 1);
    EXPECT_EQ(out, bytes({0x34, 0x12, 0xCD, 0xAB}));
    setComInfo(nullptr);
}
