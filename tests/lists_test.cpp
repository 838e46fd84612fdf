// The variable lists: registration, grouping a bucket into block reads, and the rebuild of the
// cyclic read list from the host's list, with a property test on random host lists.
#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <tuple>
#include <utility>

#include "loaded_driver.h"

namespace {

typedef std::vector<std::pair<int, int>> Spans;  // (address, count) per entry
typedef std::tuple<int, int, int, int> Block;    // station, area, address, count
typedef std::vector<Block> Blocks;

Spans spansOf(const QList<RW_VAR>& list) {
    Spans spans;
    for (const RW_VAR& v : list) {
        spans.emplace_back(v.address, v.count);
    }
    return spans;
}

class Lists : public DriverTest {
protected:
    QList<RW_VAR>& onceReads() { return driver.onceReadList; }

    void fillOnceReads(int n) {
        for (int i = 0; i < n; ++i) {
            RW_VAR v = var(14, 0, 1);
            v.itemId = i;
            onceReads().append(v);
        }
    }

    // readList after grouping the bucket `spans` of area 14 behind what readList already holds.
    Spans groupAfter(const Spans& spans, int max) {
        QList<RW_VAR> bucket;
        for (const auto& s : spans) {
            bucket.append(var(14, s.first, s.second));
        }
        BitVarReCreat(&bucket, max);
        return spansOf(driver.readList);
    }
    Spans group(const Spans& spans, int max) {
        driver.readList.clear();
        return groupAfter(spans, max);
    }

    Blocks blocks() const {
        Blocks out;
        for (const RW_VAR& v : driver.readList) {
            out.emplace_back(v.station, v.area, v.address, v.count);
        }
        return out;
    }
};

}  // namespace

// Plain appends take copies unchanged; the write list stops at 2048, the verbatim once-read
// mode at nothing.
TEST_F(Lists, PlainAppendsAndTheWriteListCap) {
    RW_VAR bits = hostVar(2, "35", 20, 9);
    EXPECT_EQ(AddListReadVar(&bits), 1);
    EXPECT_EQ(AddListReadVar(nullptr), 1);
    EXPECT_EQ(spansOf(driver.readList), (Spans{{0, 20}}));  // not normalised

    RW_VAR v = var(14, 0, 1);
    for (int i = 0; i < 2047; ++i) {
        driver.writeList.append(v);
    }
    EXPECT_EQ(AddListWriteVar(&v), 2048);
    v.itemId = 5;
    EXPECT_EQ(AddListWriteVar(&v), 2048);
    EXPECT_EQ(driver.writeList.last().itemId, 0);
    EXPECT_EQ(AddListWriteVar(nullptr), 2048);

    fillOnceReads(2048);
    RW_VAR unchecked = hostVar(14, "not an address", 1, 0);
    EXPECT_EQ(AddListOnceReadVar(&unchecked, 1), 2049);
    EXPECT_EQ(AddListOnceReadVar(&unchecked, 1), 2050);  // duplicates too
    EXPECT_EQ(onceReads().last().addressText, QString::fromLatin1("not an address"));
    EXPECT_EQ(AddListOnceReadVar(nullptr, 1), 2050);
    EXPECT_EQ(AddListOnceReadVar(nullptr, 0), 0);
}

// The normalising once-read mode parses, takes the port's station unless stations are
// per-variable, converts bits to words, splits by the block length and skips pieces already
// queued for the same host item, whatever their texts and payload.
TEST_F(Lists, NormalisingOnceReadsSplitConvertAndSkipDuplicates) {
    RW_VAR v = hostVar(20, "0", 250);
    v.mark = -1;
    v.extra = 77;
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 3);
    EXPECT_EQ(spansOf(onceReads()), (Spans{{0, 100}, {100, 100}, {200, 50}}));
    EXPECT_EQ(onceReads().at(0).mark + onceReads().at(0).extra, 0);
    EXPECT_EQ(v.address, 250);  // the caller's record is the working copy, past the last piece
    EXPECT_EQ(v.count, 50);
    RW_VAR again = hostVar(20, " 0", 250);
    again.nameText = QString::fromLatin1("other");
    again.data = QByteArray("xy");
    again.direction = 1;
    EXPECT_EQ(AddListOnceReadVar(&again, 7), 3);

    RW_VAR otherItem = hostVar(20, "0", 100);  // the first piece again
    otherItem.itemId = 1;
    RW_VAR otherPort = hostVar(20, "0", 100);
    otherPort.port = 2;
    EXPECT_EQ(AddListOnceReadVar(&otherItem, 0), 4);
    EXPECT_EQ(AddListOnceReadVar(&otherPort, 0), 5);

    onceReads().clear();
    info.defaultStation = 3;
    RW_VAR portStation = hostVar(14, "5", 1, 9);
    RW_VAR bitOfWord = hostVar(29, "10.3", 1);
    AddListOnceReadVar(&portStation, 0);
    AddListOnceReadVar(&bitOfWord, 0);
    info.perVarStation = 1;
    RW_VAR bits = hostVar(2, "35", 20, 6);
    AddListOnceReadVar(&bits, 0);
    ASSERT_EQ(onceReads().size(), 3);
    const QList<RW_VAR>& e = onceReads();
    EXPECT_EQ(std::vector<int>({e[0].station, e[1].station, e[2].station}),
              std::vector<int>({3, 3, 6}));
    EXPECT_EQ(std::vector<int>(
                  {e[1].area, e[1].address, e[1].count, e[2].area, e[2].address, e[2].count}),
              std::vector<int>({14, 10, 1, 2, 2, 2}));
}

TEST_F(Lists, NormalisingOnceReadsThatAddNothing) {
    RW_VAR octal = hostVar(0, "18", 1);  // 8 is not an octal digit
    RW_VAR negative = hostVar(14, "-4", 1);
    RW_VAR none = hostVar(14, "1", 0);
    RW_VAR belowNone = hostVar(14, "1", -3);
    for (RW_VAR* v : {&octal, &negative, &none, &belowNone}) {
        EXPECT_EQ(AddListOnceReadVar(v, 0), 0) << v->addressText.toStdString();
    }
    EXPECT_EQ(octal.address, 0);  // untouched when the text does not parse

    info.defaultStation = 0;
    RW_VAR noStation = hostVar(14, "12", 1, 5);
    EXPECT_EQ(AddListOnceReadVar(&noStation, 0), 0);
    EXPECT_EQ(noStation.station, 0);  // already overwritten when rejected
    EXPECT_EQ(noStation.address, 12);
    EXPECT_TRUE(onceReads().isEmpty());

    info.defaultStation = 1;
    fillOnceReads(2048);
    RW_VAR late = hostVar(14, "500", 1);
    EXPECT_EQ(AddListOnceReadVar(&late, 0), 2048);

    SetComInfo(nullptr);
    onceReads().clear();
    EXPECT_EQ(AddListOnceReadVar(&late, 0), 0);
    EXPECT_TRUE(onceReads().isEmpty());
}

// A block length below 1 counts as 1. A huge count with a block length of 1 would mean two
// billion pieces; the list fills at 2048 and the call returns with the record as if every
// piece had been offered.
TEST_F(Lists, NormalisingOnceReadsAtBlockLengthEdges) {
    for (int max : {0, -5}) {
        onceReads().clear();
        info.maxUnits = max;
        RW_VAR v = hostVar(14, "10", 3);
        EXPECT_EQ(AddListOnceReadVar(&v, 0), 3);
        EXPECT_EQ(spansOf(onceReads()), (Spans{{10, 1}, {11, 1}, {12, 1}}));
    }
    onceReads().clear();
    info.maxUnits = 1;
    RW_VAR v = hostVar(14, "0", 0x7FFFFFFF);
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 2048);
    EXPECT_EQ(onceReads().last().address, 2047);
    EXPECT_EQ(v.address, 0x7FFFFFFF);
    EXPECT_EQ(v.count, 1);
}

// A variable joins the block when it starts fewer than max words after the block's first word,
// whatever the gap; a block never exceeds max, and a longer variable is cut into blocks of max.
// Variables asking for no word neither open nor stretch a block. A block length of 1 only folds
// equal addresses; below 1 it counts as 1.
TEST_F(Lists, GroupingABucketIntoBlocks) {
    const struct {
        Spans bucket;
        int max;
        Spans blocks;
    } cases[] = {
        {{{0, 10}}, 10, {{0, 10}}},
        {{{0, 11}}, 10, {{0, 10}, {10, 1}}},
        {{{0, 20}}, 10, {{0, 10}, {10, 10}}},
        {{{0, 2}, {9, 1}}, 10, {{0, 10}}},
        {{{0, 2}, {10, 1}}, 10, {{0, 2}, {10, 1}}},
        {{{0, 10}, {3, 2}}, 10, {{0, 10}}},
        {{{0, 1}, {99, 1}}, 100, {{0, 100}}},
        {{{0, 1}, {100, 1}}, 100, {{0, 1}, {100, 1}}},
        {{{0, 0}, {3, -2}, {4, 2}, {12, 0}, {20, 0}}, 10, {{4, 2}}},
        {{{5, 2}, {6, 1}}, 1, {{5, 2}, {6, 1}}},
        {{{5, 2}, {5, 2}}, 1, {{5, 2}}},
        {{{0, 5}}, 1, {{0, 5}}},
        {{{5, 1}, {5, 3}, {7, 2}}, 0, {{5, 3}, {7, 2}}},
        {{{5, 1}, {5, 3}, {7, 2}}, -4, {{5, 3}, {7, 2}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(group(c.bucket, c.max), c.blocks) << "max " << c.max;
    }

    // Every bucket's first variable opens a block, even inside the previous bucket's last block
    // and even after a variable that asks for no word.
    group({{0, 5}}, 10);
    EXPECT_EQ(groupAfter({{2, 1}}, 10), (Spans{{0, 5}, {2, 1}}));
    EXPECT_EQ(groupAfter({{0, 0}, {3, 1}}, 10), (Spans{{0, 5}, {2, 1}, {3, 1}}));

    // WhetherGroup cuts by its total, not by the variable's own count, and leaves the variable
    // holding the last piece; a max below 1 counts as 1.
    RW_VAR v = var(14, 40, 3);
    QList<RW_VAR> pieces;
    WhetherGroup(25, 10, &v, &pieces);
    WhetherGroup(3, 0, &v, &pieces);
    EXPECT_EQ(spansOf(pieces), (Spans{{40, 10}, {50, 10}, {60, 5}, {60, 1}, {61, 1}, {62, 1}}));

    // Blocks carry the fields of the variable that opened them.
    QList<RW_VAR> bucket{var(14, 0, 2), var(14, 0, 4), var(14, 5, 20)};
    bucket[0].nameText = QString::fromLatin1("first");
    driver.readList.clear();
    BitVarReCreat(&bucket, 10);
    ASSERT_EQ(spansOf(driver.readList), (Spans{{0, 10}, {10, 10}, {20, 5}}));
    for (const RW_VAR& block : driver.readList) {
        EXPECT_EQ(block.nameText, QString::fromLatin1("first"));
    }
}

TEST_F(Lists, RebuildGroupsTheWorkedExamples) {
    info.maxUnits = 10;
    EXPECT_EQ(rebuild({cyclicVar(14, "35", 12), cyclicVar(14, "9", 4), cyclicVar(14, "0", 2),
                       cyclicVar(14, "31", 1), cyclicVar(14, "5", 1), cyclicVar(14, "30", 3)}),
              4);
    EXPECT_EQ(blocks(), (Blocks{{1, 14, 0, 10}, {1, 14, 10, 3}, {1, 14, 30, 10}, {1, 14, 40, 7}}));
    EXPECT_EQ(rebuild({cyclicVar(14, "100", 25)}), 3);
    EXPECT_EQ(blocks(), (Blocks{{1, 14, 100, 10}, {1, 14, 110, 10}, {1, 14, 120, 5}}));
    info.maxUnits = 1;
    EXPECT_EQ(rebuild({cyclicVar(14, "5", 1), cyclicVar(14, "8", 4), cyclicVar(14, "5", 3),
                       cyclicVar(14, "6", 1), cyclicVar(14, "5", 2)}),
              3);
    EXPECT_EQ(blocks(), (Blocks{{1, 14, 5, 3}, {1, 14, 6, 1}, {1, 14, 8, 4}}));
}

// Blocks come by station, then area (29 shares area 14), whatever the host's order. Texts that
// do not parse and stations that resolve to 0 are left out. Without per-variable stations
// every variable takes the port's station.
TEST_F(Lists, RebuildOrdersBucketsAndLeavesOutWhatCannotBeRead) {
    info.perVarStation = 1;
    info.maxUnits = 10;
    EXPECT_EQ(
        rebuild({cyclicVar(14, "5", 1, 3), cyclicVar(14, "oops", 1, 1), cyclicVar(29, "20.3", 1, 1),
                 cyclicVar(2, "0", 16, 3), cyclicVar(14, "21", 1, 1), cyclicVar(2, "32", 1, 1),
                 cyclicVar(14, "7", 1, 0), cyclicVar(0, "18", 1), cyclicVar(29, "10", 1),
                 cyclicVar(29, "1.2.3", 1), cyclicVar(14, "", 1), cyclicVar(14, "-4", 1)}),
        4);
    EXPECT_EQ(blocks(), (Blocks{{1, 2, 2, 1}, {1, 14, 20, 2}, {3, 2, 0, 1}, {3, 14, 5, 1}}));

    const QList<HOSTVAR> ownStations{cyclicVar(14, "1", 1, 7), cyclicVar(14, "2", 1, 0)};
    EXPECT_EQ(rebuild(ownStations), 1);
    EXPECT_EQ(blocks(), (Blocks{{7, 14, 1, 1}}));
    info.perVarStation = 0;
    info.defaultStation = 4;
    EXPECT_EQ(rebuild(ownStations), 1);
    EXPECT_EQ(blocks(), (Blocks{{4, 14, 1, 2}}));

    // Variables that ask for no word could never be read, whatever the block length.
    for (int max : {1, 10}) {
        info.maxUnits = max;
        EXPECT_EQ(rebuild({cyclicVar(14, "3", 0), cyclicVar(14, "3", 2), cyclicVar(14, "8", -5),
                           cyclicVar(14, "9", 0), cyclicVar(2, "16", 0)}),
                  1)
            << max;
        EXPECT_EQ(blocks(), (Blocks{{4, 14, 3, 2}})) << max;
    }
}

// Everything in readList goes, also what AddListReadVar put there. The scan restarts when there
// is a list to plan, even one of which nothing can be read. Entries are reads of the port that
// belong to no host item; the first of equal addresses, in host order, opens the block.
TEST_F(Lists, RebuildReplacesTheListAndRestartsTheScan) {
    RW_VAR stale = hostVar(14, "3", 1);
    AddListReadVar(&stale);
    driver.scanCount = 5;
    info.scanDone = 1;
    EXPECT_EQ(rebuild({}), 0);
    EXPECT_EQ(ReCreatReadVarList(nullptr), 0);
    EXPECT_TRUE(driver.readList.isEmpty());
    EXPECT_EQ(driver.scanCount, 5);
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(rebuild({cyclicVar(14, "x", 1)}), 0);
    EXPECT_EQ(driver.scanCount, 0);
    EXPECT_EQ(info.scanDone, 0);

    AddListReadVar(&stale);
    info.scanDone = 1;
    info.remoteMode = 3;
    info.portId = 9;
    EXPECT_EQ(rebuild({cyclicVar(2, "35", 20, 1, "level"), cyclicVar(14, "9", 1, 1, "late"),
                       cyclicVar(14, "5", 1, 1, "a"), cyclicVar(14, "5", 3, 1, "b")}),
              2);
    EXPECT_EQ(info.scanDone, 0);
    EXPECT_EQ(blocks(), (Blocks{{1, 2, 2, 2}, {1, 14, 5, 5}}));  // bits 35..54: words 2 and 3
    const RW_VAR& e = driver.readList.first();
    EXPECT_EQ(std::vector<int>({e.ownerId, e.itemId, e.direction, e.remoteMode, e.port, e.result,
                                e.mark, e.extra}),
              std::vector<int>({0, -1, 0, 3, 9, 0, 0, 0}));
    EXPECT_EQ(e.nameText, QString::fromLatin1("level"));
    EXPECT_EQ(e.addressText, QString::fromLatin1("35"));
    EXPECT_TRUE(e.data.isEmpty());
    EXPECT_EQ(driver.readList.last().nameText, QString::fromLatin1("a"));
}

// The order of the exchange sort the rebuild promises: adjacent swaps on a strict compare.
TEST_F(Lists, BubbleSortGivesTheExchangeSortOrderWithTiesInPlace) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> address(-5, 5);
    for (int round = 0; round < 50; ++round) {
        QList<RW_VAR> list;
        for (int i = 0; i < 60; ++i) {
            list.append(var(14, address(rng), 1));
            list.last().itemId = i;
        }
        QList<RW_VAR> expected = list;
        for (int i = 1; i < expected.size(); ++i) {
            for (int j = expected.size() - 1; j >= i; --j) {
                if (expected[j].address < expected[j - 1].address) {
                    std::swap(expected[j], expected[j - 1]);
                }
            }
        }
        Bubble_Sort(&list);
        ASSERT_EQ(list.size(), expected.size());
        for (int i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].itemId, expected[i].itemId) << "round " << round << " at " << i;
        }
    }
}

// Random host lists against an independent account of the words they ask for: every word is
// covered, blocks come in bucket order, never exceed the block length, never overlap within a
// bucket, and each reads at least one word asked for.
TEST_F(Lists, RebuildOfRandomListsCoversEveryWordWithDisjointBlocks) {
    typedef std::pair<int, int> Bucket;  // station, normalised area
    typedef std::map<Bucket, std::set<int>> WordsByBucket;
    constexpr int kAreas[] = {0, 1, 2, 13, 14, 20, 28, 29};
    std::mt19937 rng(20240501);
    const auto pick = [&rng](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(rng);
    };
    info.perVarStation = 1;
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        info.maxUnits = pick(2, 100);
        WordsByBucket wanted;
        QList<HOSTVAR> list;
        for (int i = pick(1, 120); i > 0; --i) {
            const int area = kAreas[pick(0, static_cast<int>(std::size(kAreas)) - 1)];
            const int station = pick(0, 4);
            if (pick(0, 19) == 0) {
                list.append(cyclicVar(area, QString::fromLatin1("x"), 1, station));
                continue;
            }
            const bool bits = area <= 13 || area == 29;
            // Bit variables always ask for at least one bit; word variables may ask for none.
            const int count = bits ? pick(1, 200) : pick(-1, 40);
            const int first = bits ? pick(0, 400 * 16) : pick(0, 400);
            list.append(cyclicVar(area,
                                  area == 29
                                      ? QString::fromLatin1("%1.%2").arg(first / 16).arg(first % 16)
                                      : QString::number(first, area <= 1 ? 8 : 10),
                                  count, station));
            const int lastWord = bits ? (first + count - 1) / 16 : first + count - 1;
            for (int w = bits ? first / 16 : first; station != 0 && w <= lastWord; ++w) {
                wanted[{station, area == 29 ? 14 : area}].insert(w);
            }
        }
        const int entries = rebuild(list);
        ASSERT_EQ(entries, driver.readList.size());

        WordsByBucket read;
        Bucket previous{0, -1};
        for (const RW_VAR& b : driver.readList) {
            const Bucket bucket{b.station, b.area};
            ASSERT_LE(previous, bucket) << "buckets out of order";
            previous = bucket;
            ASSERT_GE(b.count, 1);
            ASSERT_LE(b.count, info.maxUnits);
            std::set<int>& words = read[bucket];
            ASSERT_TRUE(words.empty() || *words.rbegin() < b.address) << "blocks overlap";
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
