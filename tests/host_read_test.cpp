// GetRegisterData: bits, words and bits of words out of the register image.
#include <gtest/gtest.h>

#include <climits>

#include "driver_fixture.h"

namespace {

constexpr quint64 kStation1 = 0x01ull << 56;
constexpr quint64 kArea14 = 14ull << 48;
constexpr quint64 kArea2 = 2ull << 48;
constexpr quint64 kArea0 = 0ull << 48;

class HostReadTest : public DriverTest {
protected:
    QByteArray read(int area, const char* address, int count, int station = 1) {
        result =
            GetRegisterData(QString(), area, QString::fromLatin1(address), station, &buffer, count);
        return buffer;
    }
    void store(quint64 key, quint16 word) { PLC_driver.registerCache.insert(key, word); }

    QByteArray buffer{"previous"};
    int result = -1;
};

QByteArray bytes(std::initializer_list<unsigned char> b) {
    return QByteArray(reinterpret_cast<const char*>(std::data(b)), static_cast<int>(b.size()));
}

}  // namespace

TEST_F(HostReadTest, WordsLowByteFirstAndZerosForWhatWasNeverRead) {
    store(kStation1 | kArea14 | 100, 0x1234);
    EXPECT_EQ(read(14, "100", 2), bytes({0x34, 0x12, 0x00, 0x00}));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(PLC_driver.registerCache.size(), 1);  // reads never insert
}

TEST_F(HostReadTest, BitsAcrossWordBoundaries) {
    store(kStation1 | kArea2 | 0, 0x8000);
    store(kStation1 | kArea2 | 1, 0x0001);
    EXPECT_EQ(read(2, "15", 3), bytes({1, 1, 0}));
    EXPECT_EQ(read(0, "17", 1), bytes({0}));  // octal 17 is bit 15 of word 0 of area 0
    store(kStation1 | kArea0 | 0, 0x8000);
    EXPECT_EQ(read(0, "17", 2), bytes({1, 0}));
}

TEST_F(HostReadTest, BitsOfWordsLiveInArea14) {
    store(kStation1 | kArea14 | 100, 0x0008);
    EXPECT_EQ(read(29, "100.3", 2), bytes({1, 0}));
    store(kStation1 | kArea14 | 11, 0x0001);
    EXPECT_EQ(read(29, "10.15", 2), bytes({0, 1}));  // bit 15 is followed by bit 0 of word 11
}

TEST_F(HostReadTest, StationComesFromThePortUnlessPerVariable) {
    store((5ull << 56) | kArea14 | 7, 0xBEEF);
    info.defaultStation = 5;
    EXPECT_EQ(read(14, "7", 1, 1), bytes({0xEF, 0xBE}));
    info.perVarStation = 1;
    EXPECT_EQ(read(14, "7", 1, 1), bytes({0, 0}));
    EXPECT_EQ(read(14, "7", 1, 5), bytes({0xEF, 0xBE}));
}

TEST_F(HostReadTest, BadTextsAndAreasGiveZeros) {
    EXPECT_EQ(read(14, "abc", 4), QByteArray(8, '\0'));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(read(29, "1.2.3", 3), QByteArray(6, '\0'));  // two bytes per unit on this path
    EXPECT_EQ(result, 0);
    EXPECT_EQ(read(30, "5", 3), QByteArray(6, '\0'));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(read(-4, "5", 1), QByteArray(2, '\0'));
    EXPECT_EQ(result, 1);
}

TEST_F(HostReadTest, CountsThatAskForNothingOrTooMuch) {
    EXPECT_TRUE(read(14, "0", 0).isEmpty());
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(read(14, "0", -3).isEmpty());
    EXPECT_TRUE(read(14, "0", INT_MAX).isEmpty());  // two bytes a word does not fit an int
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(read(14, "x", INT_MAX).isEmpty());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(GetRegisterData(QString(), 14, QStringLiteral("0"), 1, nullptr, 4), 0);
}

TEST_F(HostReadTest, WithoutAPortRecordTheGivenStationIsUsed) {
    SetComInfo(nullptr);
    store((9ull << 56) | kArea14 | 0, 0x0102);
    EXPECT_EQ(read(14, "0", 1, 9), bytes({0x02, 0x01}));
}
