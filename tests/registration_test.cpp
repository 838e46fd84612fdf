// The three registration entry points: plain appends, the 2048 cap, and the once-read planner.
#include <gtest/gtest.h>

#include "driver_fixture.h"

namespace {

class RegistrationTest : public DriverTest {
protected:
    QList<RW_VAR>& onceReads() { return PLC_driver.onceReadList; }

    void fillOnceReads(int n) {
        for (int i = 0; i < n; ++i) {
            RW_VAR v = hostVar(14, "0", 1);
            v.itemId = i;
            onceReads().append(v);
        }
    }
};

}  // namespace

TEST_F(RegistrationTest, ReadListTakesCopiesUnchanged) {
    RW_VAR v = hostVar(2, "35", 20, 9);
    EXPECT_EQ(AddListReadVar(&v), 1);
    v.count = 99;
    EXPECT_EQ(AddListReadVar(&v), 2);
    EXPECT_EQ(PLC_driver.readList.at(0).count, 20);  // not normalised, not shared
    EXPECT_EQ(PLC_driver.readList.at(0).station, 9);
    EXPECT_EQ(AddListReadVar(nullptr), 2);
}

TEST_F(RegistrationTest, WriteListStopsAt2048) {
    RW_VAR v = hostVar(14, "0", 1);
    for (int i = 0; i < 2047; ++i) {
        PLC_driver.writeList.append(v);
    }
    EXPECT_EQ(AddListWriteVar(&v), 2048);
    v.itemId = 5;
    EXPECT_EQ(AddListWriteVar(&v), 2048);
    EXPECT_EQ(PLC_driver.writeList.last().itemId, 0);
    EXPECT_EQ(AddListWriteVar(nullptr), 2048);
}

TEST_F(RegistrationTest, VerbatimOnceReadHasNoCapAndNoChecks) {
    fillOnceReads(2048);
    RW_VAR v = hostVar(14, "not an address", 1, 0);
    EXPECT_EQ(AddListOnceReadVar(&v, 1), 2049);
    EXPECT_EQ(onceReads().last().addressText, QStringLiteral("not an address"));
    EXPECT_EQ(AddListOnceReadVar(&v, 1), 2050);  // duplicates too
}

TEST_F(RegistrationTest, NormalisingOnceReadSplitsByBlockLength) {
    RW_VAR v = hostVar(20, "0", 250);
    v.ownerId = 4;
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 3);
    ASSERT_EQ(onceReads().size(), 3);
    EXPECT_EQ(onceReads().at(0).address, 0);
    EXPECT_EQ(onceReads().at(0).count, 100);
    EXPECT_EQ(onceReads().at(1).address, 100);
    EXPECT_EQ(onceReads().at(1).count, 100);
    EXPECT_EQ(onceReads().at(2).address, 200);
    EXPECT_EQ(onceReads().at(2).count, 50);
    // The caller's record is the working copy: past the last piece, with its count.
    EXPECT_EQ(v.address, 250);
    EXPECT_EQ(v.count, 50);

    RW_VAR again = hostVar(20, "0", 250);
    again.ownerId = 4;
    EXPECT_EQ(AddListOnceReadVar(&again, 7), 3);  // every piece is already queued
}

TEST_F(RegistrationTest, NormalisingOnceReadConvertsBitAddresses) {
    RW_VAR bits = hostVar(2, "35", 20, 6);
    info.perVarStation = 1;
    EXPECT_EQ(AddListOnceReadVar(&bits, 0), 1);
    EXPECT_EQ(onceReads().at(0).address, 2);
    EXPECT_EQ(onceReads().at(0).count, 2);
    EXPECT_EQ(onceReads().at(0).station, 6);

    RW_VAR bitOfWord = hostVar(29, "10.3", 1);
    EXPECT_EQ(AddListOnceReadVar(&bitOfWord, 0), 2);
    EXPECT_EQ(onceReads().at(1).area, 14);
    EXPECT_EQ(onceReads().at(1).address, 10);
    EXPECT_EQ(onceReads().at(1).count, 1);
}

TEST_F(RegistrationTest, StationComesFromThePortUnlessPerVariable) {
    info.defaultStation = 3;
    RW_VAR v = hostVar(14, "5", 1, 9);
    v.mark = -1;
    v.extra = 77;
    AddListOnceReadVar(&v, 0);
    EXPECT_EQ(onceReads().at(0).station, 3);
    EXPECT_EQ(onceReads().at(0).mark, 0);
    EXPECT_EQ(onceReads().at(0).extra, 0);

    info.perVarStation = 1;
    RW_VAR own = hostVar(14, "5", 1, 9);
    AddListOnceReadVar(&own, 0);
    EXPECT_EQ(onceReads().at(1).station, 9);
}

TEST_F(RegistrationTest, RejectedOnceReadsReturnZero) {
    RW_VAR bad = hostVar(0, "18", 1);  // 8 is not an octal digit
    EXPECT_EQ(AddListOnceReadVar(&bad, 0), 0);
    EXPECT_EQ(bad.address, 0);  // untouched when the text does not parse

    RW_VAR negative = hostVar(14, "-4", 1);
    EXPECT_EQ(AddListOnceReadVar(&negative, 0), 0);

    info.defaultStation = 0;
    RW_VAR noStation = hostVar(14, "12", 1, 5);
    EXPECT_EQ(AddListOnceReadVar(&noStation, 0), 0);
    EXPECT_EQ(noStation.station, 0);  // already overwritten when rejected
    EXPECT_EQ(noStation.address, 12);
    EXPECT_TRUE(onceReads().isEmpty());
}

TEST_F(RegistrationTest, EmptyCountAppendsNothing) {
    RW_VAR v = hostVar(14, "1", 0);
    fillOnceReads(2);
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 2);
    RW_VAR negative = hostVar(14, "1", -3);
    EXPECT_EQ(AddListOnceReadVar(&negative, 0), 2);
}

TEST_F(RegistrationTest, DuplicateTestIgnoresTextsAndPayload) {
    RW_VAR a = hostVar(14, "7", 1);
    RW_VAR b = hostVar(14, " 7", 1);
    b.nameText = QStringLiteral("other");
    b.data = QByteArray("xy");
    b.direction = 1;
    EXPECT_EQ(AddListOnceReadVar(&a, 0), 1);
    EXPECT_EQ(AddListOnceReadVar(&b, 0), 1);

    RW_VAR otherItem = hostVar(14, "7", 1);
    otherItem.itemId = 1;
    EXPECT_EQ(AddListOnceReadVar(&otherItem, 0), 2);
    RW_VAR otherPort = hostVar(14, "7", 1);
    otherPort.port = 2;
    EXPECT_EQ(AddListOnceReadVar(&otherPort, 0), 3);
}

TEST_F(RegistrationTest, FullOnceReadListDropsNewPieces) {
    fillOnceReads(2048);
    RW_VAR v = hostVar(14, "500", 1);
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 2048);
}

TEST_F(RegistrationTest, BlockLengthBelowOneCountsAsOne) {
    for (int max : {0, -5}) {
        onceReads().clear();
        info.maxUnits = max;
        RW_VAR v = hostVar(14, "10", 3);
        EXPECT_EQ(AddListOnceReadVar(&v, 0), 3);
        EXPECT_EQ(onceReads().at(2).address, 12);
        EXPECT_EQ(onceReads().at(2).count, 1);
    }
}

// A huge count with a block length of 1 would mean two billion pieces; the list fills at 2048
// and the call returns promptly with the record as if every piece had been offered.
TEST_F(RegistrationTest, HugeCountFinishesPromptly) {
    info.maxUnits = 1;
    RW_VAR v = hostVar(14, "0", 0x7FFFFFFF);
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 2048);
    EXPECT_EQ(onceReads().last().address, 2047);
    EXPECT_EQ(v.address, 0x7FFFFFFF);
    EXPECT_EQ(v.count, 1);
}

TEST_F(RegistrationTest, NoPortRecordMeansNothingIsPlanned) {
    SetComInfo(nullptr);
    RW_VAR v = hostVar(14, "1", 1);
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 0);
    EXPECT_TRUE(onceReads().isEmpty());
}

TEST_F(RegistrationTest, NullRecordIsRejected) {
    fillOnceReads(3);
    EXPECT_EQ(AddListOnceReadVar(nullptr, 0), 0);
    EXPECT_EQ(AddListOnceReadVar(nullptr, 1), 3);
    EXPECT_EQ(onceReads().size(), 3);
}
