// The host interface of the loaded library beyond its exchanges: the header's numbers, the driver
// object at load, configuration, helpers, the record DataCom hands back, the message handler.
#include <QtCore/QFile>

#include <fstream>
#include <regex>

#include "loaded_driver.h"

class HostInterface : public DriverTest {};

namespace k = korvan;

// Runs first in this process, so the object is as loading the library left it.
TEST(LoadedLibrary, ConstructsTheDriverAtLoad) {
    const auto* d = exported<const Communication_Protocol*>("PLC_driver");
    ASSERT_NE(d, nullptr);
    EXPECT_TRUE(d->comInfo == nullptr && d->requestQueue.isEmpty() && d->stationMap.isEmpty() &&
                d->currentSource == kSourceNone);
}

// The header's numbers are binary interface as much as its records: a host compiled against an
// older header must keep meaning the same thing by each name.
static_assert(k::kResultRetry == 0 && k::kResultGood == 1 && k::kResultRemoteGood == 100 &&
                  k::kResultJudgingFailed == 71 && k::kFailLocalInvalid == 10 &&
                  k::kFailLocalSilent == 40 && k::kFailLocalLength == 70 &&
                  k::kFailRemoteInvalid == 110 && k::kFailRemoteSilent == 140 &&
                  k::kFailRemoteLength == 170 && k::kFailOwners == 12,
              "result codes and failure bases");
static_assert(k::kStatusDone == 1 && k::kStatusFailed == 2 && k::kErrorFlag == 1 &&
                  k::kDirectionRead == 0 && k::kDirectionWrite == 1 &&
                  k::kMarkBitOfWordRead == -1 && k::kReplyAnyLength == -1 && k::kReplyNone == 0 &&
                  k::kCyclicOwnerId == 0 && k::kCyclicItemId == -1,
              "callback arguments and record fields");
static_assert(k::kWriteImageOnly == 0 && k::kWriteToPlc == 2 && k::kScanDone == 1 &&
                  k::kMaxUnitsCap == 100 && k::kStationOff == 0 && k::kStationOn == 1 &&
                  k::kAllStations == -1 && k::kOnceReadPlanned == 0 && k::kOnceReadVerbatim == 1 &&
                  k::kListCapacity == 2048,
              "port record, entry point arguments and lists");
static_assert(k::kAreaFirstBit == 0 && k::kAreaLastOctal == 1 && k::kAreaLastBit == 13 &&
                  k::kAreaFirstWord == 14 && k::kAreaLastWord == 28 && k::kAreaBitOfWord == 29 &&
                  k::kAddressInvalid == -1 && k::kAddressNotParsed == 0 && k::kReadDone == 1 &&
                  k::kFinished == 1,
              "areas and entry point results");

// failureCode and failureBase, as a host compiled against the header has them: every owner
// outside 0..11 shares base + 1, and a code outside a base's twelve is no failure.
TEST(HostHeader, FailureCodesAndTheirBases) {
    for (int base : {k::kFailLocalInvalid, k::kFailLocalSilent, k::kFailLocalLength,
                     k::kFailRemoteInvalid, k::kFailRemoteSilent, k::kFailRemoteLength}) {
        std::vector<int> codes, bases;
        for (int owner : {-1, 0, 11, 12}) {
            codes.push_back(k::failureCode(base, owner));
            bases.push_back(k::failureBase(codes.back()));
        }
        EXPECT_EQ(codes, std::vector<int>({base + 1, base + 1, base + 12, base + 1})) << base;
        EXPECT_EQ(bases, std::vector<int>(4, base)) << base;
        EXPECT_EQ(k::failureBase(base) | k::failureBase(base + k::kFailOwners + 1), 0) << base;
    }
    EXPECT_EQ(std::vector<int>(
                  {k::failureBase(0), k::failureBase(1), k::failureBase(100), k::failureBase(200)}),
              std::vector<int>(4, 0));
    EXPECT_EQ(k::kResultJudgingFailed, k::failureCode(k::kFailLocalLength, 0));
}

// SetComInfo caps the block length from above only and clears two words.
TEST_F(HostInterface, ConfigurationEntryPoints) {
    for (int given : {250, k::kMaxUnitsCap + 1, k::kMaxUnitsCap, 7, 0, -5}) {
        ComInfo port;
        port.maxUnits = given;
        port.clearedWord10 = port.clearedWord13 = 5;
        SetComInfo(&port);
        EXPECT_EQ(std::vector<int>({port.maxUnits, port.clearedWord10, port.clearedWord13}),
                  std::vector<int>({given > k::kMaxUnitsCap ? k::kMaxUnitsCap : given, 0, 0}));
    }
    SetComInfo(nullptr);
    int bits = 0, words = 0, third = 0;
    FlashLocalRegister(&bits, &words, &third);
    EXPECT_TRUE(*exported<void**>("LB") == &bits && *exported<void**>("LW") == &words &&
                *exported<void**>("RWI") == &third && QueryFinishFlag() == k::kFinished);
    EXPECT_EQ(PLCAddressChangeIntef(1, QString::fromLatin1("17")), 15);
}

// The check values at their edges (every frame checks the CRC and the sum too), and the digit
// helpers, which have no range test: a value is offset by one of two constants.
TEST_F(HostInterface, ChecksumsAndDigits) {
    std::vector<unsigned char> ff(300, 0xFF);
    unsigned char one[] = {0x01}, halves[] = {0x80, 0x80}, three[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(std::vector<int>({CalCRC(nullptr, 5), CalSUM(ff.data(), 300), CalSUM(nullptr, 3),
                                CalLRC(one, 1), CalLRC(halves, 2), CalLRC(one, 0), CalXOR(three, 3),
                                CalXOR(three, 1), CalXOR(three, 0), CalXOR(nullptr, 2)}),
              std::vector<int>({0xFFFF, 0x2AD4, 0, 0xFF, 256, 256, 0x70, 0x12, 0x12, 0}));
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
    RW_VAR from = owned(writeVar(k::kAreaBitOfWord, 163, 1, "AB", 9), 1, 2, 5);
    from.remoteMode = 4;
    from.result = 6;
    from.nameText = QString::fromLatin1("name");
    from.addressText = QString::fromLatin1("10.3");
    from.mark = k::kMarkBitOfWordRead;
    from.extra = 7;
    RW_VAR to = var(0, 0, 0);
    to.data = "01";
    passRetValue(from, to);
    EXPECT_EQ(fields(to), fields(from));
    EXPECT_TRUE(to.data.isEmpty());
}

// The three member operations: bit areas become the 16-bit words that cover their bits (area 29
// becomes 14), with 32-bit arithmetic; the image keeps area 29 under 14.
TEST_F(HostInterface, MemberOperationsNormaliseBitAddresses) {
    const auto update = exported<void (*)(Communication_Protocol*, RW_VAR*)>(
        symbolOf("Communication_Protocol::update_rw_var").c_str());
    const auto cacheArea = exported<int (*)(Communication_Protocol*, int)>(
        symbolOf("Communication_Protocol::get_plc_reg").c_str());
    // area, address, count, then as normalised
    const std::array<int, 6> cases[] = {
        {2, 35, 20, 2, 2, 2},
        {0, 15, 2, 0, 0, 2},
        {0, 32, 0, 0, 2, 0},
        {13, 33, 0, 13, 2, 1},
        {k::kAreaBitOfWord, 165, 1, 14, 10, 1},
        {3, -17, 1, 3, -2, 1},
        {14, 1234, 17, 14, 1234, 17},
        {-1, 99, 3, -1, 99, 3},
        {3, 15, 2147483647, 3, 0, static_cast<int>(0x80000000u + 29u) >> 4}};
    for (const auto& c : cases) {
        RW_VAR v = var(c[0], c[1], c[2]);
        update(&driver, &v);
        EXPECT_EQ((std::array<int, 3>{v.area, v.address, v.count}),
                  (std::array<int, 3>{c[3], c[4], c[5]}))
            << c[0] << " " << c[1];
    }
    update(&driver, nullptr);
    EXPECT_EQ(std::vector<int>({cacheArea(&driver, 14), cacheArea(&driver, k::kAreaBitOfWord),
                                cacheArea(&driver, 0), cacheArea(&driver, -3)}),
              std::vector<int>({14, 14, 0, -3}));
}

// A host that installs the driver's handler gets its messages appended to the log, one stamped
// line each.
TEST_F(HostInterface, MessageHandlerAppendsStampedLines) {
    std::ofstream("/tmp/debug.log") << "earlier\n";
    const QtMsgHandler previous = qInstallMsgHandler(customMessageHandler);
    qDebug("panel %d started", 7);
    qInstallMsgHandler(previous);
    customMessageHandler(QtFatalMsg, "line one");  // fatal is logged and the handler returns
    customMessageHandler(QtWarningMsg, nullptr);
    QFile log(QString::fromLatin1("/tmp/debug.log"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().split('\n');
    ASSERT_EQ(lines.size(), 5);  // the earlier line, three new ones, the final newline
    const std::regex stamp(R"(^\d{4}\.\d\d\.\d\d\.\d\d:\d\d:\d\d\.([1-9]\d{0,2}|0):)");
    const char* const texts[] = {"earlier", "panel 7 started", "line one", ""};
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(lines[i].endsWith(texts[i]) &&
                    (i == 0 || std::regex_search(lines[i].constData(), stamp)))
            << lines[i].data();
    }
}
