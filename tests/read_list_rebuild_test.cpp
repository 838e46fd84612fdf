#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "driver_fixture.h"
#include "host_list.h"
#include "lists/read_planning.h"

namespace {

typedef std::tuple<int, int, int, int> Block;  // station, area, address, count

std::vector<Block> blocks() {
    std::vector<Block> out;
    for (const RW_VAR& v : PLC_driver.readList) {
        out.emplace_back(v.station, v.area, v.address, v.count);
    }
    return out;
}

class ReadListRebuildTest : public DriverTest {
protected:
    int rebuild(QList<HOSTVAR> list) { return ReCreatReadVarList(&list); }
};

// Everything in readList goes, also what AddListReadVar put there; the scan restarts only when
// there is a list to plan.
TEST_F(ReadListRebuildTest, ReplacesReadListAndRestartsTheScan) {
    RW_VAR stale = hostVar(14, "3", 1);
    AddListReadVar(&stale);
    PLC_driver.scanCount = 5;
    info.scanDone = 1;
    EXPECT_EQ(rebuild({}), 0);
    EXPECT_EQ(ReCreatReadVarList(nullptr), 0);
    EXPECT_TRUE(PLC_driver.readList.isEmpty());
    EXPECT_EQ(PLC_driver.scanCount, 5);
    EXPECT_EQ(info.scanDone, 1);

    AddListReadVar(&stale);
    EXPECT_EQ(rebuild({cyclicVar(20, "40", 2)}), 1);
    EXPECT_EQ(blocks(), (std::vector<Block>{{1, 20, 40, 2}}));
    EXPECT_EQ(PLC_driver.scanCount, 0);
    EXPECT_EQ(info.scanDone, 0);
}

TEST_F(ReadListRebuildTest, LeavesOutInvalidTextsAndStationZero) {
    info.perVarStation = 1;
    PLC_driver.scanCount = 5;
    info.scanDone = 1;
    const QList<HOSTVAR> invalid = {
        cyclicVar(0, "18", 1),      // 8 is no octal digit
        cyclicVar(29, "10", 1),     // no bit part
        cyclicVar(29, "1.2.3", 1),  // two points
        cyclicVar(14, "", 1),       // empty
        cyclicVar(14, "-4", 1),     // negative
        cyclicVar(14, "7", 1, 0),   // station 0
    };
    EXPECT_EQ(rebuild(invalid), 0);
    EXPECT_EQ(PLC_driver.scanCount, 0);
    EXPECT_EQ(info.scanDone, 0);

    QList<HOSTVAR> mixed = invalid;
    mixed.insert(3, cyclicVar(14, "250", 3, 2));
    EXPECT_EQ(rebuild(mixed), 1);
    EXPECT_EQ(blocks(), (std::vector<Block>{{2, 14, 250, 3}}));
}

TEST_F(ReadListRebuildTest, EntriesAreReadsOfThePortWithoutOwner) {
    info.remoteMode = 3;
    info.portId = 9;
    ASSERT_EQ(rebuild({cyclicVar(2, "35", 20, 1, "level")}), 1);
    const RW_VAR& e = PLC_driver.readList.first();
    EXPECT_EQ(e.ownerId, 0);
    EXPECT_EQ(e.itemId, -1);
    EXPECT_EQ(e.direction, 0);
    EXPECT_EQ(e.remoteMode, 3);
    EXPECT_EQ(e.port, 9);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.nameText, QStringLiteral("level"));
    EXPECT_EQ(e.addressText, QStringLiteral("35"));
    EXPECT_EQ(e.mark, 0);
    EXPECT_EQ(e.extra, 0);
    EXPECT_TRUE(e.data.isEmpty());
    // Bits 35..54 lie in words 2 and 3.
    EXPECT_EQ(blocks(), (std::vector<Block>{{1, 2, 2, 2}}));
}

TEST_F(ReadListRebuildTest, DefaultStationUnlessPerVariableStations) {
    info.defaultStation = 4;
    rebuild({cyclicVar(14, "1", 1, 7), cyclicVar(14, "2", 1, 0)});
    EXPECT_EQ(blocks(), (std::vector<Block>{{4, 14, 1, 2}}));

    info.perVarStation = 1;
    rebuild({cyclicVar(14, "1", 1, 7), cyclicVar(14, "2", 1, 0)});
    EXPECT_EQ(blocks(), (std::vector<Block>{{7, 14, 1, 1}}));
}

TEST_F(ReadListRebuildTest, FirstOfEqualAddressesInHostOrderOpensTheBlock) {
    rebuild({cyclicVar(14, "9", 1, 1, "late"), cyclicVar(14, "5", 1, 1, "a"),
             cyclicVar(14, "5", 3, 1, "b")});
    ASSERT_EQ(blocks(), (std::vector<Block>{{1, 14, 5, 5}}));
    EXPECT_EQ(PLC_driver.readList.first().nameText, QStringLiteral("a"));
}

// The order of the exchange sort the rebuild promises: adjacent swaps on a strict compare.
void exchangeSort(QList<RW_VAR>& list) {
    for (int i = 1; i < list.size(); ++i) {
        for (int j = list.size() - 1; j >= i; --j) {
            if (list[j].address < list[j - 1].address) {
                list.swapItemsAt(j, j - 1);
            }
        }
    }
}

TEST(BubbleSortTest, GivesTheExchangeSortOrderWithTiesInPlace) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> address(-5, 5);
    for (int round = 0; round < 50; ++round) {
        QList<RW_VAR> list;
        for (int i = 0; i < 60; ++i) {
            RW_VAR v;
            v.address = address(rng);
            v.itemId = i;
            list.append(v);
        }
        QList<RW_VAR> expected = list;
        exchangeSort(expected);
        Bubble_Sort(&list);
        ASSERT_EQ(list.size(), expected.size());
        for (int i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].itemId, expected[i].itemId) << "round " << round << " at " << i;
        }
    }
}

// Random host lists against an independent account of the words they ask for.
typedef std::pair<int, int> Bucket;  // station, normalised area
typedef std::map<Bucket, std::set<int>> WordsByBucket;

QList<HOSTVAR> randomHostList(std::mt19937& rng, WordsByBucket& wanted) {
    constexpr int kAreas[] = {0, 1, 2, 13, 14, 20, 28, 29};
    const auto pick = [&rng](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(rng);
    };
    QList<HOSTVAR> list;
    for (int i = pick(1, 120); i > 0; --i) {
        const int area = kAreas[pick(0, static_cast<int>(std::size(kAreas)) - 1)];
        const int station = pick(0, 4);
        if (pick(0, 19) == 0) {
            list.append(cyclicVar(area, "x", 1, station));
            continue;
        }
        const bool bits = area <= 13 || area == 29;
        // Bit variables always ask for at least one bit; word variables may ask for none.
        const int count = bits ? pick(1, 200) : pick(-1, 40);
        const int first = bits ? pick(0, 400 * 16) : pick(0, 400);
        QString text = QString::number(first, area <= 1 ? 8 : 10);
        if (area == 29) {
            text = QStringLiteral("%1.%2").arg(first / 16).arg(first % 16);
        }
        list.append(cyclicVar(area, text, count, station));
        const int lastWord = bits ? (first + count - 1) / 16 : first + count - 1;
        for (int w = bits ? first / 16 : first; station != 0 && w <= lastWord; ++w) {
            wanted[{station, area == 29 ? 14 : area}].insert(w);
        }
    }
    return list;
}

TEST_F(ReadListRebuildTest, RandomListsAreCoveredByDisjointBlocksOfAtMostMax) {
    info.perVarStation = 1;
    std::mt19937 rng(20240501);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        info.maxUnits = std::uniform_int_distribution<int>(2, kMaxUnitsCap)(rng);
        WordsByBucket wanted;
        const int entries = rebuild(randomHostList(rng, wanted));
        ASSERT_EQ(entries, PLC_driver.readList.size());

        WordsByBucket read;
        Bucket previous{0, -1};
        for (const RW_VAR& b : PLC_driver.readList) {
            const Bucket bucket{b.station, b.area};
            ASSERT_LE(previous, bucket) << "buckets out of order";
            previous = bucket;
            ASSERT_GE(b.count, 1);
            ASSERT_LE(b.count, info.maxUnits);
            std::set<int>& words = read[bucket];
            ASSERT_TRUE(words.empty() || *words.rbegin() < b.address) << "blocks overlap";
            // A block that reads only words between variables would be a wasted exchange.
            bool useful = false;
            for (int w = b.address; w < b.address + b.count; ++w) {
                words.insert(w);
                useful = useful || wanted[bucket].count(w) != 0;
            }
            ASSERT_TRUE(useful) << "block at " << b.address << " reads nothing asked for";
        }
        for (const auto& [bucket, words] : wanted) {
            const std::set<int>& covered = read[bucket];
            ASSERT_TRUE(std::includes(covered.begin(), covered.end(), words.begin(), words.end()))
                << "words of station " << bucket.first << " area " << bucket.second << " unread";
        }
    }
}

}  // namespace
