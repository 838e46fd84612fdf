#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "driver_fixture.h"
#include "lists/read_planning.h"

namespace {

typedef std::vector<std::pair<int, int>> Spans;  // (address, count) per entry

RW_VAR wordVar(int address, int count, const char* name = "") {
    RW_VAR v;
    v.area = 14;
    v.station = 1;
    v.address = address;
    v.count = count;
    v.nameText = QString::fromLatin1(name);
    return v;
}

QList<RW_VAR> bucketOf(const Spans& spans) {
    QList<RW_VAR> bucket;
    for (const auto& s : spans) {
        bucket.append(wordVar(s.first, s.second));
    }
    return bucket;
}

Spans spansOf(const QList<RW_VAR>& list) {
    Spans spans;
    for (const RW_VAR& v : list) {
        spans.emplace_back(v.address, v.count);
    }
    return spans;
}

class ReadGroupingTest : public DriverTest {
protected:
    // readList after grouping `bucket` behind whatever readList already holds.
    Spans groupAfter(const Spans& bucket, int max) {
        QList<RW_VAR> list = bucketOf(bucket);
        BitVarReCreat(&list, max);
        return spansOf(PLC_driver.readList);
    }
    Spans group(const Spans& bucket, int max) {
        PLC_driver.readList.clear();
        return groupAfter(bucket, max);
    }
};

// A variable joins when it starts fewer than max words after the block's first word; a block
// never exceeds max.
TEST_F(ReadGroupingTest, JoinsOnlyBelowBlockStartPlusMax) {
    EXPECT_EQ(group({{0, 10}}, 10), (Spans{{0, 10}}));
    EXPECT_EQ(group({{0, 11}}, 10), (Spans{{0, 10}, {10, 1}}));
    EXPECT_EQ(group({{0, 2}, {9, 1}}, 10), (Spans{{0, 10}}));
    EXPECT_EQ(group({{0, 2}, {10, 1}}, 10), (Spans{{0, 2}, {10, 1}}));
    EXPECT_EQ(group({{0, 1}, {99, 1}}, kMaxUnitsCap), (Spans{{0, 100}}));
    EXPECT_EQ(group({{0, 1}, {100, 1}}, kMaxUnitsCap), (Spans{{0, 1}, {100, 1}}));
    EXPECT_EQ(group({{0, 10}, {3, 2}}, 10), (Spans{{0, 10}}));
}

TEST_F(ReadGroupingTest, BlocksCarryTheFieldsOfTheVariableThatOpenedThem) {
    QList<RW_VAR> bucket;
    bucket << wordVar(0, 2, "first") << wordVar(0, 4, "second") << wordVar(5, 20, "third");
    BitVarReCreat(&bucket, 10);
    ASSERT_EQ(spansOf(PLC_driver.readList), (Spans{{0, 10}, {10, 10}, {20, 5}}));
    for (const RW_VAR& block : PLC_driver.readList) {
        EXPECT_EQ(block.nameText, QStringLiteral("first"));
    }
}

// Variables asking for no word neither open nor stretch a block.
TEST_F(ReadGroupingTest, SkipsVariablesWithoutWords) {
    EXPECT_EQ(group({{0, 0}, {3, -2}, {4, 2}, {12, 0}, {20, 0}}, 10), (Spans{{4, 2}}));
}

// Every bucket's first variable opens a block, even inside the previous bucket's last block, and
// even when the bucket starts with a variable that asks for no word.
TEST_F(ReadGroupingTest, BucketsNeverMerge) {
    group({{0, 5}}, 10);
    EXPECT_EQ(groupAfter({{2, 1}}, 10), (Spans{{0, 5}, {2, 1}}));
    EXPECT_EQ(groupAfter({{0, 0}, {3, 1}}, 10), (Spans{{0, 5}, {2, 1}, {3, 1}}));
}

TEST_F(ReadGroupingTest, BlockLengthOfOneOnlyFoldsEqualAddresses) {
    EXPECT_EQ(group({{5, 2}, {6, 1}}, 1), (Spans{{5, 2}, {6, 1}}));
    EXPECT_EQ(group({{5, 2}, {5, 2}}, 1), (Spans{{5, 2}}));
    EXPECT_EQ(group({{0, 5}}, 1), (Spans{{0, 5}}));
}

TEST_F(ReadGroupingTest, BlockLengthBelowOneCountsAsOne) {
    EXPECT_EQ(group({{5, 1}, {5, 3}, {7, 2}}, 0), (Spans{{5, 3}, {7, 2}}));
    EXPECT_EQ(group({{5, 1}, {5, 3}, {7, 2}}, -4), (Spans{{5, 3}, {7, 2}}));
}

TEST(WhetherGroupTest, CutsByTotalAndLeavesTheLastPieceInVar) {
    RW_VAR var = wordVar(40, 3);
    QList<RW_VAR> out;
    WhetherGroup(7, 10, &var, &out);
    EXPECT_EQ(spansOf(out), (Spans{{40, 3}}));  // fits: var's own count is kept

    out.clear();
    WhetherGroup(25, 10, &var, &out);
    EXPECT_EQ(spansOf(out), (Spans{{40, 10}, {50, 10}, {60, 5}}));
    EXPECT_EQ(spansOf({var}), (Spans{{60, 5}}));

    var = wordVar(40, 3);
    out.clear();
    WhetherGroup(20, 10, &var, &out);
    EXPECT_EQ(spansOf(out), (Spans{{40, 10}, {50, 10}}));

    var = wordVar(7, 3);
    out.clear();
    WhetherGroup(3, 0, &var, &out);
    EXPECT_EQ(spansOf(out), (Spans{{7, 1}, {8, 1}, {9, 1}}));
}

}  // namespace
