// The host interface of the loaded library: its names, the configuration entry points, station
// switches, address texts and their normalisation, checksums and digits, the debug log.
#include <QtCore/QFile>
#include <fstream>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "loaded_driver.h"

namespace {

class HostInterface : public DriverTest {};

}  // namespace

// Runs first in this process, so the object is as loading the library left it.
TEST(LoadedLibrary, ExportsItsInterfaceOnlyAndConstructsTheDriverAtLoad) {
    const auto* d = exported<const Communication_Protocol*>("PLC_driver");
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->comInfo, nullptr);
    EXPECT_TRUE(d->requestQueue.isEmpty());
    EXPECT_TRUE(d->stationMap.isEmpty());
    EXPECT_EQ(d->currentSource, 100);
    const std::vector<std::string> symbols = exportedSymbols();
    EXPECT_GT(symbols.size(), 40u);
    for (const std::string& symbol : symbols) {
        EXPECT_NE(dlsym(loadedLibrary(), symbol.c_str()), nullptr) << symbol;
    }
    for (const char* hidden :
         {"_Z17debugLogTimeStampRK9QDateTime", "_Z13beginExchangei", "_ZN9QHashData8willGrowEv"}) {
        EXPECT_EQ(dlsym(loadedLibrary(), hidden), nullptr) << hidden;
    }
}

TEST_F(HostInterface, ConfigurationEntryPoints) {
    EXPECT_EQ(QueryFinishFlag(), 1);
    for (int given : {250, 101, 100, 7, 0, -5}) {  // capped from above only
        ComInfo port;
        port.maxUnits = given;
        port.clearedWord10 = port.clearedWord13 = 5;
        SetComInfo(&port);
        EXPECT_EQ(port.maxUnits, given > 100 ? 100 : given);
        EXPECT_EQ(port.clearedWord10 + port.clearedWord13, 0);
    }
    SetComInfo(nullptr);

    int bits = 0, words = 0, third = 0;
    FlashLocalRegister(&bits, &words, &third);
    EXPECT_EQ(*exported<void**>("LB"), &bits);
    EXPECT_EQ(*exported<void**>("LW"), &words);
    EXPECT_EQ(*exported<void**>("RWI"), &third);
    FlashLocalRegister(nullptr, nullptr, nullptr);
    EXPECT_EQ(QueryFinishFlag(), 1);
}

TEST_F(HostInterface, StationSwitchesShareOneExactMap) {
    EnCommStation(3, 0);
    EnCommStation(3, 0);
    EXPECT_EQ(driver.stationMap.size(), 1);
    EXPECT_EQ(Ethernetcontains(3), 1);
    EXPECT_EQ(Ethernetcontains(2) + Ethernetcontains(4), 0);
    EnableEthernet(3, 1);
    EXPECT_EQ(Ethernetcontains(3), 0);

    EnCommStation(5, 0);
    EnCommStation(5, 7);  // enable values other than 0 and 1 change nothing
    EnableEthernet(5, -1);
    EXPECT_EQ(Ethernetcontains(5), 1);
    EnCommStation(-1, 1);  // a negative station serves every station again
    EXPECT_EQ(Ethernetcontains(5), 0);
    EnCommStation(4, 0);
    EnableEthernet(-7, 0);
    EXPECT_EQ(Ethernetcontains(4), 0);
}

// Parsing follows QString::toInt: white space around the number and one sign are accepted.
TEST_F(HostInterface, AddressTextsByArea) {
    const struct {
        int area;
        const char* text;
        int expected;
    } cases[] = {{0, "17", 15},
                 {1, "17", 15},
                 {0, "18", -1},
                 {0, " -17 ", -15},
                 {1, "20000000000", -1},
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
                 {14, "2147483648", -1},
                 {14, "-2147483648", -2147483647 - 1},
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
                 {29, "2147483647.15", -1}};  // the word wraps in 32 bits instead of overflowing
    for (const auto& c : cases) {
        const QString text = QString::fromLatin1(c.text);
        EXPECT_EQ(PLCAddressChangeIntef(c.area, text), c.expected) << c.area << " '" << c.text;
        EXPECT_EQ(StringAddressToInt(c.area, text), c.expected) << c.area << " '" << c.text;
    }
}

TEST_F(HostInterface, BitAddressesNormaliseToCoveringWords) {
    const auto update = exported<void (*)(Communication_Protocol*, RW_VAR*)>(
        symbolOf("Communication_Protocol::update_rw_var").c_str());
    const auto cacheArea = exported<int (*)(Communication_Protocol*, int)>(
        symbolOf("Communication_Protocol::get_plc_reg").c_str());
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
        RW_VAR v = var(c.area, c.address, c.count);
        update(&driver, &v);
        EXPECT_EQ(std::vector<int>({v.area, v.address, v.count}),
                  std::vector<int>({c.toArea, c.toAddress, c.toCount}))
            << c.area << " " << c.address;
    }
    update(&driver, nullptr);
    for (int area : {14, 29}) {
        EXPECT_EQ(cacheArea(&driver, area), 14);
    }
    for (int area : {0, 28, -3}) {
        EXPECT_EQ(cacheArea(&driver, area), area);
    }
}

TEST_F(HostInterface, ChecksumsAndDigits) {
    unsigned char frame[] = {0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02};
    unsigned char digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    unsigned char zero[] = {0x00};
    EXPECT_EQ(CalCRC(frame, 8), 0xDB7F);  // sent low byte first: 7F DB
    EXPECT_EQ(CalCRC(digits, 9), 0x4B37);
    EXPECT_EQ(CalCRC(zero, 1), 0x40BF);
    EXPECT_EQ(CalCRC(zero, 0), 0xFFFF);
    EXPECT_EQ(CalCRC(nullptr, 5), 0xFFFF);  // a null buffer counts as empty
    std::vector<unsigned char> ff(300, 0xFF);
    EXPECT_EQ(CalSUM(ff.data(), 300), 0x2AD4);
    EXPECT_EQ(CalSUM(nullptr, 3), 0);
    unsigned char one[] = {0x01};
    unsigned char halves[] = {0x80, 0x80};
    EXPECT_EQ(CalLRC(one, 1), 0xFF);
    EXPECT_EQ(CalLRC(halves, 2), 256);
    EXPECT_EQ(CalLRC(one, 0), 256);
    unsigned char three[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(CalXOR(three, 3), 0x70);
    EXPECT_EQ(CalXOR(three, 1), 0x12);
    EXPECT_EQ(CalXOR(three, 0), 0x12);  // the first byte is taken whatever the length
    EXPECT_EQ(CalXOR(nullptr, 2), 0);

    const int toAscii[][2] = {
        {0, '0'},  {9, '9'},   {10, 0x41},
        {15, 'F'}, {-1, 0x2F}, {2147483647, static_cast<int>(0x80000036u)}};  // wraps, no trap
    for (const auto& c : toAscii) {
        EXPECT_EQ(DigitalToASCII(c[0]), c[1]) << c[0];
    }
    const int toDigit[][2] = {{'7', 7},  {0x3F, 15}, {0x46, 15}, {0x40, 0},
                              {0x20, 0}, {0x61, 42}, {-5, 0}};
    for (const auto& c : toDigit) {
        EXPECT_EQ(ASCIIToDigital(c[0]), c[1]) << c[0];
    }
}

TEST_F(HostInterface, PassRetValueCopiesEverythingButThePayload) {
    const auto fields = [](const RW_VAR& v) {
        return std::make_tuple(v.ownerId, v.itemId, v.direction, v.remoteMode, v.port, v.result,
                               v.nameText, v.addressText, v.area, v.address, v.station, v.count,
                               v.mark, v.extra);
    };
    RW_VAR from = hostVar(29, "10.3", 1, 9);
    std::tie(from.ownerId, from.itemId, from.direction, from.remoteMode, from.port, from.result,
             from.address, from.mark, from.extra) = std::make_tuple(1, 2, 3, 4, 5, 6, 163, -1, 7);
    from.nameText = QString::fromLatin1("name");
    from.data = QByteArray("payload");
    RW_VAR to;
    to.data = QByteArray("old");
    passRetValue(from, to);
    EXPECT_EQ(fields(to), fields(from));
    EXPECT_TRUE(to.data.isEmpty());
}

// A host that installs the driver's handler gets its qDebug() lines in the log file, one
// stamped line per message appended to what the file held.
TEST_F(HostInterface, MessageHandlerAppendsStampedLines) {
    const QString path = QString::fromLatin1("/tmp/debug.log");
    QFile::remove(path);
    QFile seed(path);
    ASSERT_TRUE(seed.open(QIODevice::WriteOnly));
    seed.write("earlier\n");
    seed.close();

    const QtMsgHandler previous = qInstallMsgHandler(customMessageHandler);
    qDebug("panel %d started", 7);
    qInstallMsgHandler(previous);
    customMessageHandler(QtFatalMsg, "line one");  // fatal is logged and the handler returns
    customMessageHandler(QtDebugMsg, "");
    customMessageHandler(QtWarningMsg, nullptr);

    QFile log(path);
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().split('\n');
    ASSERT_EQ(lines.size(), 6);  // the earlier line, four new ones, then the final newline
    EXPECT_EQ(lines[0], QByteArray("earlier"));
    const std::regex stamp(R"(^\d{4}\.\d{2}\.\d{2}\.\d{2}:\d{2}:\d{2}\.\d{1,3}:)");
    for (int i = 1; i <= 4; ++i) {
        EXPECT_TRUE(std::regex_search(lines[i].constData(), stamp)) << lines[i].data();
    }
    EXPECT_TRUE(lines[1].endsWith(":panel 7 started"));
    EXPECT_TRUE(lines[2].endsWith(":line one"));
    EXPECT_TRUE(lines[3].endsWith(':') && lines[4].endsWith(':'));
    EXPECT_TRUE(lines[5].isEmpty());
}
