// The host interface of the loaded library: the driver object at load, the configuration entry
// points, station switches, bit addresses in words, checksums and digits, the debug log.
#include <QtCore/QFile>
#include <regex>
#include <tuple>

#include "loaded_driver.h"

namespace {

class HostInterface : public DriverTest {};

}  // namespace

// Runs first in this process, so the object is as loading the library left it.
TEST(LoadedLibrary, ConstructsTheDriverAtLoad) {
    const auto* d = exported<const Communication_Protocol*>("PLC_driver");
    ASSERT_NE(d, nullptr);
    EXPECT_TRUE(d->comInfo == nullptr && d->requestQueue.isEmpty() && d->stationMap.isEmpty());
    EXPECT_EQ(d->currentSource, 100);
}

// SetComInfo caps the block length from above only and clears two words; the address texts of
// the loaded library are those of StringAddressToInt, which has its own tests.
TEST_F(HostInterface, ConfigurationEntryPoints) {
    for (int given : {250, 101, 100, 7, 0, -5}) {
        ComInfo port;
        port.maxUnits = given;
        port.clearedWord10 = port.clearedWord13 = 5;
        SetComInfo(&port);
        EXPECT_EQ(std::vector<int>({port.maxUnits, port.clearedWord10, port.clearedWord13}),
                  std::vector<int>({given > 100 ? 100 : given, 0, 0}));
    }
    SetComInfo(nullptr);
    int bits = 0, words = 0, third = 0;
    FlashLocalRegister(&bits, &words, &third);
    EXPECT_EQ(std::vector<void*>(
                  {*exported<void**>("LB"), *exported<void**>("LW"), *exported<void**>("RWI")}),
              std::vector<void*>({&bits, &words, &third}));
    FlashLocalRegister(nullptr, nullptr, nullptr);
    EXPECT_EQ(QueryFinishFlag(), 1);
    EXPECT_EQ(PLCAddressChangeIntef(1, QString::fromLatin1("17")) +
                  PLCAddressChangeIntef(29, QString::fromLatin1("3.20")),
              15 + 68);
}

// One map of switched-off stations behind both entry points; a negative station clears it, and
// enable values other than 0 and 1 change nothing.
TEST_F(HostInterface, StationSwitchesShareOneExactMap) {
    EnCommStation(3, 0);
    EnCommStation(3, 0);
    EnCommStation(5, 0);
    EnCommStation(5, 7);
    EnableEthernet(5, -1);
    EXPECT_EQ(driver.stationMap.size(), 2);
    EXPECT_EQ(std::vector<int>({Ethernetcontains(2), Ethernetcontains(3), Ethernetcontains(4),
                                Ethernetcontains(5)}),
              std::vector<int>({0, 1, 0, 1}));
    EnableEthernet(3, 1);
    EXPECT_EQ(Ethernetcontains(3), 0);
    EnCommStation(-1, 1);
    EXPECT_EQ(Ethernetcontains(5), 0);
    EnCommStation(4, 0);
    EnableEthernet(-7, 0);
    EXPECT_EQ(Ethernetcontains(4), 0);
}

TEST_F(HostInterface, BitAddressesNormaliseToCoveringWords) {
    const auto update = exported<void (*)(Communication_Protocol*, RW_VAR*)>(
        symbolOf("Communication_Protocol::update_rw_var").c_str());
    const auto cacheArea = exported<int (*)(Communication_Protocol*, int)>(
        symbolOf("Communication_Protocol::get_plc_reg").c_str());
    const std::array<int, 6> cases[] = {
        // area, address, count -> area, address, count
        {2, 35, 20, 2, 2, 2},  // bits 35..54 lie in words 2 and 3
        {0, 16, 16, 0, 1, 1},
        {0, 15, 2, 0, 0, 2},  // bits 15 and 16 straddle two words
        {0, 32, 0, 0, 2, 0},
        {13, 33, 0, 13, 2, 1},
        {29, 165, 1, 14, 10, 1},  // 10.5 is a bit of word 10 of area 14
        {3, -17, 1, 3, -2, 1},    // arithmetic shift keeps the sign
        {3, 15, 2147483647, 3, 0, static_cast<int>(0x80000000u + 29u) >> 4},  // wraps
        {14, 1234, 17, 14, 1234, 17},
        {30, 99, 3, 30, 99, 3},
        {-1, 99, 3, -1, 99, 3},
    };
    for (const auto& c : cases) {
        RW_VAR v = var(c[0], c[1], c[2]);
        update(&driver, &v);
        EXPECT_EQ(std::vector<int>({v.area, v.address, v.count}),
                  std::vector<int>({c[3], c[4], c[5]}))
            << c[0] << " " << c[1];
    }
    update(&driver, nullptr);
    EXPECT_EQ(std::vector<int>({cacheArea(&driver, 14), cacheArea(&driver, 29),
                                cacheArea(&driver, 28), cacheArea(&driver, -3)}),
              std::vector<int>({14, 14, 28, -3}));
}

// The check values no frame uses (the CRC has its own tests), and the digit helpers, which have
// no range test: a value is offset by one of two constants, lower case is not folded.
TEST_F(HostInterface, ChecksumsAndDigits) {
    std::vector<unsigned char> ff(300, 0xFF);
    unsigned char one[] = {0x01}, halves[] = {0x80, 0x80}, three[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(std::vector<int>({CalSUM(ff.data(), 300), CalSUM(nullptr, 3), CalLRC(one, 1),
                                CalLRC(halves, 2), CalLRC(one, 0), CalXOR(three, 3),
                                CalXOR(three, 1), CalXOR(three, 0), CalXOR(nullptr, 2)}),
              std::vector<int>({0x2AD4, 0, 0xFF, 256, 256, 0x70, 0x12, 0x12, 0}));
    EXPECT_EQ(
        std::vector<int>({DigitalToASCII(0), DigitalToASCII(9), DigitalToASCII(10),
                          DigitalToASCII(15), DigitalToASCII(-1), DigitalToASCII(2147483647)}),
        std::vector<int>({'0', '9', 'A', 'F', 0x2F, static_cast<int>(0x80000036u)}));
    EXPECT_EQ(std::vector<int>({ASCIIToDigital('7'), ASCIIToDigital(0x3F), ASCIIToDigital('F'),
                                ASCIIToDigital(0x40), ASCIIToDigital(' '), ASCIIToDigital('a'),
                                ASCIIToDigital(-5)}),
              std::vector<int>({7, 15, 15, 0, 0, 42, 0}));
}

TEST_F(HostInterface, PassRetValueCopiesEverythingButThePayload) {
    const auto fields = [](const RW_VAR& v) {
        return std::make_tuple(v.ownerId, v.itemId, v.direction, v.remoteMode, v.port, v.result,
                               v.nameText, v.addressText, v.area, v.address, v.station, v.count,
                               v.mark, v.extra);
    };
    const RW_VAR from{
        1,  2,   3, 4, 5,  6, QString::fromLatin1("name"), QString::fromLatin1("10.3"),
        29, 163, 9, 1, -1, 7, QByteArray("payload")};
    RW_VAR to;
    to.data = QByteArray("old");
    passRetValue(from, to);
    EXPECT_EQ(fields(to), fields(from));
    EXPECT_TRUE(to.data.isEmpty());
}

// A host that installs the driver's handler gets its qDebug() lines in the log file, one
// stamped line per message appended to what the file held; fatal messages are logged too.
TEST_F(HostInterface, MessageHandlerAppendsStampedLines) {
    QFile log(QString::fromLatin1("/tmp/debug.log"));
    ASSERT_TRUE(log.open(QIODevice::WriteOnly | QIODevice::Truncate));
    log.write("earlier\n");
    log.close();
    const QtMsgHandler previous = qInstallMsgHandler(customMessageHandler);
    qDebug("panel %d started", 7);
    qInstallMsgHandler(previous);
    customMessageHandler(QtFatalMsg, "line one");
    customMessageHandler(QtDebugMsg, "");
    customMessageHandler(QtWarningMsg, nullptr);
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().split('\n');
    ASSERT_EQ(lines.size(), 6);  // the earlier line, four new ones, then the final newline
    const std::regex stamp(R"(^\d{4}\.\d{2}\.\d{2}\.\d{2}:\d{2}:\d{2}\.\d{1,3}:)");
    for (int i = 1; i <= 4; ++i) {
        EXPECT_TRUE(std::regex_search(lines[i].constData(), stamp)) << lines[i].data();
    }
    EXPECT_TRUE(lines[0] == "earlier" && lines[1].endsWith(":panel 7 started") &&
                lines[2].endsWith(":line one") && lines[3].endsWith(':') &&
                lines[4].endsWith(':') && lines[5].isEmpty());
}
