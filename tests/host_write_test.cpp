// Host writes: cutting a value into write records, packing, write modes and mirroring.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "driver/comm_failed.h"
#include "driver_fixture.h"
#include "hex.h"
#include "image/register_image.h"

namespace {

constexpr int kWriteThrough = 2;
constexpr int kImageOnly = 0;

class HostWriteTest : public DriverTest {
protected:
    void SetUp() override {
        DriverTest::SetUp();
        info.writeMode = kWriteThrough;
    }

    static int write(int area, const char* address, const char* hostBytes, int count,
                     int station = 1) {
        QByteArray values = bytesOf(hostBytes);
        return SetRegisterData(QStringLiteral("tag"), area, QString::fromLatin1(address), station,
                               &values, count, 7, 8);
    }

    static const RW_VAR& queued(int i) { return PLC_driver.writeList.at(i); }

    // The queued records as "address count: data".
    static std::vector<std::string> pieces() {
        std::vector<std::string> out;
        for (const RW_VAR& r : PLC_driver.writeList) {
            out.push_back(std::to_string(r.address) + " " + std::to_string(r.count) + ": " +
                          hex(r.data));
        }
        return out;
    }

    static void mirrorQueued() {
        for (const RW_VAR& record : PLC_driver.writeList) {
            write_data_to_local(record);
        }
    }

    static quint16 word(int area, qint64 address, int station = 1) {
        return PLC_driver.registerCache.value(quint64(station) << 56 | quint64(area) << 48 |
                                              quint64(address));
    }

    static void setWord(int area, qint64 address, quint16 value) {
        PLC_driver.registerCache.insert(quint64(1) << 56 | quint64(area) << 48 | quint64(address),
                                        value);
    }
};

TEST_F(HostWriteTest, WordsAreCutIntoRecordsOfTheBlockLength) {
    info.maxUnits = 2;
    info.remoteMode = 5;
    EXPECT_EQ(write(14, "100", "01 00 02 00 03 00", 3), 2);

    EXPECT_EQ(pieces(), (std::vector<std::string>{"100 2: 01 00 02 00", "102 1: 03 00"}));
    const RW_VAR& first = queued(0);
    EXPECT_EQ(first.ownerId, 7);
    EXPECT_EQ(first.itemId, 8);
    EXPECT_EQ(first.direction, 1);
    EXPECT_EQ(first.remoteMode, 5);
    EXPECT_EQ(first.port, info.portId);
    EXPECT_EQ(first.nameText, QStringLiteral("tag"));
    EXPECT_EQ(first.addressText, QStringLiteral("100"));
    EXPECT_EQ(first.area, 14);

    // Until its frame is built, a write to a working link does not show in the image.
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());
    mirrorQueued();
    EXPECT_EQ(word(14, 100), 1);
    EXPECT_EQ(word(14, 101), 2);
    EXPECT_EQ(word(14, 102), 3);
}

TEST_F(HostWriteTest, BitsArePackedLeastSignificantFirstAndMirrorOnlyThemselves) {
    EXPECT_EQ(write(2, "20", "01 00 01 01 00 00 00 00 00 01", 10), 1);
    EXPECT_EQ(pieces(), std::vector<std::string>{"20 10: 0D 02"});

    setWord(2, 1, 0xFFFF);
    mirrorQueued();
    // Bits 20..29 are bits 4..13 of word 1: 4, 6, 7, 13 on, 5 and 8..12 off, the rest kept.
    EXPECT_EQ(word(2, 1), 0xE0DF);
}

TEST_F(HostWriteTest, BitPiecesAreEightTimesTheBlockLength) {
    info.maxUnits = 1;
    write(3, "5", "01 00 00 00 00 00 00 01  00 01 00 00 00 00 00 00  01 01 00 01", 20);

    EXPECT_EQ(pieces(), (std::vector<std::string>{"5 8: 81", "13 8: 02", "21 4: 0B"}));
}

TEST_F(HostWriteTest, BitsOfWordsAreOneRecordEachAcrossTheWordBoundary) {
    write(29, "10.15", "01 00", 2);
    EXPECT_EQ(pieces(), (std::vector<std::string>{"175 1: 01", "176 1: 00"}));
    EXPECT_EQ(queued(1).area, 29);

    setWord(14, 11, 0xFFFF);
    mirrorQueued();
    EXPECT_EQ(word(14, 10), 0x8000);
    EXPECT_EQ(word(14, 11), 0xFFFE);
}

TEST_F(HostWriteTest, OnlyWriteThroughQueuesAndItShowsAtOnceOnlyWhileTheLinkIsDown) {
    for (int mode : {0, 1, 3}) {
        info.writeMode = mode;
        EXPECT_EQ(write(14, "50", "34 12", 1), 0) << "writeMode " << mode;
        EXPECT_EQ(word(14, 50), 0x1234);
        PLC_driver.registerCache.clear();
    }

    info.writeMode = kWriteThrough;
    setCommFailed(true);
    EXPECT_EQ(write(29, "4.2", "01", 1), 1);
    EXPECT_EQ(word(14, 4), 0x0004);
    setCommFailed(false);
    EXPECT_EQ(write(29, "4.3", "01", 1), 2);
    EXPECT_EQ(word(14, 4), 0x0004);
}

TEST_F(HostWriteTest, WithoutPerVariableStationsEveryWriteGoesToTheDefaultStation) {
    info.perVarStation = 0;
    info.defaultStation = 3;
    info.writeMode = kImageOnly;
    write(14, "9", "01 00", 1, 1);
    EXPECT_EQ(word(14, 9, 3), 1);
    EXPECT_EQ(PLC_driver.registerCache.size(), 1);

    info.perVarStation = 1;
    info.writeMode = kWriteThrough;
    write(14, "9", "01 00", 1, 6);
    EXPECT_EQ(queued(0).station, 6);
}

TEST_F(HostWriteTest, InputThatNamesNothingWritesNothing) {
    setCommFailed(true);  // would mirror anything that got through
    EXPECT_EQ(write(29, "1.2.3", "01", 1), 0);
    EXPECT_EQ(write(14, "abc", "01 00", 1), 0);
    EXPECT_EQ(write(30, "5", "01 00", 1), 0);
    EXPECT_EQ(write(-1, "5", "01 00", 1), 0);
    EXPECT_EQ(write(14, "5", "01 00", 0), 0);
    EXPECT_EQ(write(14, "5", "01 00", -4), 0);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());

    SetComInfo(nullptr);
    EXPECT_EQ(write(14, "5", "01 00", 1), 0);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
}

TEST_F(HostWriteTest, MissingHostBytesAreWrittenAsZero) {
    write(14, "0", "01 02 03", 3);
    EXPECT_EQ(SetRegisterData(QString(), 2, QStringLiteral("0"), 1, nullptr, 9, 0, 0), 2);
    EXPECT_EQ(pieces(), (std::vector<std::string>{"0 3: 01 02 03 00 00 00", "0 9: 00 00"}));
}

TEST_F(HostWriteTest, BlockLengthIsKeptBetweenOneAndTheCap) {
    info.maxUnits = 0;
    write(14, "0", "", 3);
    EXPECT_EQ(PLC_driver.writeList.size(), 3);

    PLC_driver.writeList.clear();
    info.maxUnits = 250;  // raised by the host after SetComInfo capped it
    write(14, "0", "", 250);
    ASSERT_EQ(PLC_driver.writeList.size(), 3);
    EXPECT_EQ(queued(0).count, 100);
    EXPECT_EQ(queued(0).data.size(), 200);
    EXPECT_EQ(queued(2).count, 50);
}

// One host write is at most as many records as the write list holds.
TEST_F(HostWriteTest, AHugeCountStopsAtTheWriteListCapacity) {
    info.writeMode = kImageOnly;
    write(14, "0", "", INT_MAX);
    EXPECT_EQ(PLC_driver.registerCache.size(), kMaxListEntries * 100);

    PLC_driver.registerCache.clear();
    write(29, "0.0", "", INT_MAX);
    EXPECT_EQ(PLC_driver.registerCache.size(), kMaxListEntries / 16);
}

TEST_F(HostWriteTest, MirroringTakesOnlyWhatThePayloadCarries) {
    RW_VAR bits = hostVar(4, "", 40);
    bits.address = 0;
    bits.data = bytesOf("FF");  // 8 bits for a count of 40
    write_data_to_local(bits);
    EXPECT_EQ(word(4, 0), 0x00FF);
    EXPECT_EQ(PLC_driver.registerCache.size(), 1);

    RW_VAR words = hostVar(20, "", 1);
    words.address = 3;
    words.data = bytesOf("01 02 03");  // the odd byte is no whole word
    write_data_to_local(words);
    EXPECT_EQ(word(20, 3), 0x0201);

    RW_VAR elsewhere = hostVar(31, "", 1);
    elsewhere.data = bytesOf("01 00");
    write_data_to_local(elsewhere);
    EXPECT_EQ(PLC_driver.registerCache.size(), 2);
}

}  // namespace
