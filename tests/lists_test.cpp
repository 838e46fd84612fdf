// The variable lists: registration, grouping into block reads, and the rebuild of the cyclic
// read list, checked against an independent plan of random host lists.
#include <algorithm>
#include <iterator>
#include <random>
#include <tuple>

#include "loaded_driver.h"

namespace {

typedef std::vector<std::pair<int, int>> Spans;  // (address, count) per entry

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
    int addOnce(RW_VAR v) { return AddListOnceReadVar(&v, 0); }
};

}  // namespace

// Plain appends take copies unchanged; the write list stops at 2048, the verbatim once-read
// mode at nothing.
TEST_F(Lists, PlainAppendsAndTheWriteListCap) {
    RW_VAR bits = hostVar(2, "35", 20, 9);
    EXPECT_EQ(AddListReadVar(&bits) + AddListReadVar(nullptr), 2);
    EXPECT_EQ(spansOf(driver.readList), (Spans{{0, 20}}));  // not normalised
    RW_VAR v = var(14, 0, 1);
    for (int i = 0; i < 2047; ++i) {
        driver.writeList.append(v);
        onceReads().append(v);
    }
    v.itemId = 5;
    EXPECT_EQ(
        std::vector<int>({AddListWriteVar(&v), AddListWriteVar(&v), AddListWriteVar(nullptr)}),
        std::vector<int>({2048, 2048, 2048}));
    EXPECT_EQ(driver.writeList.at(2046).itemId + driver.writeList.last().itemId, 5);
    RW_VAR unchecked = hostVar(14, "not an address", 1, 0);
    EXPECT_EQ(
        std::vector<int>({AddListOnceReadVar(&unchecked, 1), AddListOnceReadVar(&unchecked, 1),
                          AddListOnceReadVar(nullptr, 1), AddListOnceReadVar(nullptr, 0)}),
        std::vector<int>({2048, 2049, 2049, 0}));
    EXPECT_EQ(onceReads().last().addressText, QString::fromLatin1("not an address"));
}

// The normalising once-read mode parses, takes the port's station unless stations are
// per-variable, converts bits to words, splits by the block length (below 1 counts as 1) and
// skips pieces already queued for the same host item, station and words, whatever their texts
// and payload. Texts that do not parse, counts below 1 and a station of 0 add nothing. The
// caller's record ends as if every piece had been offered, also once the list is full.
TEST_F(Lists, NormalisingOnceReads) {
    RW_VAR v = hostVar(20, "0", 250);
    v.mark = v.extra = 7;
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 3);
    EXPECT_EQ(spansOf(onceReads()), (Spans{{0, 100}, {100, 100}, {200, 50}}));
    EXPECT_EQ(std::vector<int>({v.address, v.count, onceReads().at(0).mark, v.extra}),
              std::vector<int>({250, 50, 0, 0}));
    RW_VAR again = hostVar(20, " 0", 250);
    again.nameText = QString::fromLatin1("other");
    again.data = QByteArray("xy");
    RW_VAR otherItem = hostVar(20, "0", 100);
    otherItem.itemId = 1;
    RW_VAR otherPort = hostVar(20, "0", 100);
    otherPort.port = 2;
    EXPECT_EQ(
        std::vector<int>({AddListOnceReadVar(&again, 7), addOnce(otherItem), addOnce(otherPort),
                          addOnce(hostVar(0, "18", 1)), addOnce(hostVar(14, "-4", 1)),
                          addOnce(hostVar(14, "1", 0)), addOnce(hostVar(14, "1", -3))}),
        std::vector<int>({3, 4, 5, 0, 0, 5, 5}));  // unparsed 0, else the list's size

    onceReads().clear();
    info.defaultStation = 3;
    addOnce(hostVar(14, "5", 1, 9));
    addOnce(hostVar(29, "10.3", 1));
    info.perVarStation = 1;
    addOnce(hostVar(2, "35", 20, 6));
    EXPECT_EQ(addOnce(hostVar(14, "5", 1, 4)), 4);
    EXPECT_EQ(addOnce(hostVar(14, "5", 1, 4)), 4);
    RW_VAR noStation = hostVar(14, "12", 1, 0);
    EXPECT_EQ(AddListOnceReadVar(&noStation, 0), 0);
    EXPECT_EQ(std::make_pair(noStation.station, noStation.address), std::make_pair(0, 12));
    std::vector<std::array<int, 4>> entries;
    for (const RW_VAR& e : onceReads()) {
        entries.push_back({e.station, e.area, e.address, e.count});
    }
    EXPECT_EQ(entries, (std::vector<std::array<int, 4>>{
                           {3, 14, 5, 1}, {3, 14, 10, 1}, {6, 2, 2, 2}, {4, 14, 5, 1}}));

    for (int max : {0, -5}) {
        onceReads().clear();
        info.maxUnits = max;
        EXPECT_EQ(addOnce(hostVar(14, "10", 3)), 3);
        EXPECT_EQ(spansOf(onceReads()), (Spans{{10, 1}, {11, 1}, {12, 1}}));
    }
    onceReads().clear();
    info.maxUnits = 1;
    v = hostVar(14, "0", 0x7FFFFFFF);  // two billion pieces: the list fills at 2048
    EXPECT_EQ(AddListOnceReadVar(&v, 0), 2048);
    EXPECT_EQ(std::vector<int>({onceReads().last().address, v.address, v.count}),
              std::vector<int>({2047, 0x7FFFFFFF, 1}));
    SetComInfo(nullptr);
    onceReads().clear();
    EXPECT_EQ(addOnce(hostVar(14, "5", 1)), 0);
}

// BitVarReCreat groups one bucket behind what readList holds: its first variable opens a block
// even inside the previous bucket's last block. WhetherGroup cuts by its total, not by the
// variable's own count, and leaves the variable holding the last piece.
TEST_F(Lists, GroupingABucketIntoBlocks) {
    QList<RW_VAR> first{var(14, 0, 5)}, second{var(14, 0, 0), var(14, 2, 1), var(14, 11, 1)};
    BitVarReCreat(&first, 10);
    BitVarReCreat(&second, 10);
    BitVarReCreat(&first, 1);
    EXPECT_EQ(spansOf(driver.readList), (Spans{{0, 5}, {2, 10}, {0, 5}}));
    RW_VAR v = var(14, 40, 3);
    QList<RW_VAR> pieces;
    WhetherGroup(25, 10, &v, &pieces);
    WhetherGroup(3, 0, &v, &pieces);  // a block length below 1 counts as 1
    EXPECT_EQ(spansOf(pieces), (Spans{{40, 10}, {50, 10}, {60, 5}, {60, 1}, {61, 1}, {62, 1}}));
}

// Everything in readList goes, also what AddListReadVar put there. The scan restarts when there
// is a list to plan, even one of which nothing can be read. Entries are reads of the port that
// belong to no host item and carry the texts of the variable that opened them.
TEST_F(Lists, RebuildReplacesTheListAndRestartsTheScan) {
    RW_VAR stale = hostVar(14, "3", 1);
    AddListReadVar(&stale);
    driver.scanCount = 5;
    info.scanDone = 1;
    EXPECT_EQ(rebuild({}) + ReCreatReadVarList(nullptr), 0);
    EXPECT_TRUE(driver.readList.isEmpty());
    EXPECT_EQ(std::make_pair(driver.scanCount, info.scanDone), std::make_pair(5, 1));
    EXPECT_EQ(rebuild({cyclicVar(14, "x", 1)}), 0);
    EXPECT_EQ(std::make_pair(driver.scanCount, info.scanDone), std::make_pair(0, 0));

    AddListReadVar(&stale);
    info.remoteMode = 3;
    info.portId = 9;
    EXPECT_EQ(rebuild({cyclicVar(2, "35", 20, 1, "level"), cyclicVar(14, "9", 1, 1, "late"),
                       cyclicVar(14, "5", 1, 1, "a"), cyclicVar(14, "5", 3, 1, "b")}),
              2);
    EXPECT_EQ(spansOf(driver.readList), (Spans{{2, 2}, {5, 5}}));  // bits 35..54: words 2, 3
    const RW_VAR& e = driver.readList.first();
    EXPECT_EQ(std::vector<int>({e.ownerId, e.itemId, e.direction, e.remoteMode, e.port, e.result,
                                e.mark, e.extra, e.area, e.station}),
              std::vector<int>({0, -1, 0, 3, 9, 0, 0, 0, 2, 1}));
    EXPECT_EQ(e.nameText + e.addressText + driver.readList.last().nameText,
              QString::fromLatin1("level35a"));
    EXPECT_TRUE(e.data.isEmpty());
}

// The order of an exchange sort on a strict compare: sorted, equal addresses in their old order.
TEST_F(Lists, BubbleSortKeepsEqualAddressesInOrder) {
    std::mt19937 rng(7);
    QList<RW_VAR> list;
    for (int i = 0; i < 200; ++i) {
        list.append(var(14, std::uniform_int_distribution<int>(-5, 5)(rng), 1));
        list.last().itemId = i;
    }
    Bubble_Sort(&list);
    ASSERT_EQ(list.size(), 200);
    for (int i = 1; i < list.size(); ++i) {
        EXPECT_LT(std::make_pair(list[i - 1].address, list[i - 1].itemId),
                  std::make_pair(list[i].address, list[i].itemId));
    }
}

// Random host lists against the plan made the obvious way: per bucket (station, then area with
// 29 read as 14), in address order with ties in host order, a variable opens a run of words or
// joins the last one while it starts inside the run's last block; each run is cut into blocks of
// the block length from the word that opened it. A block length of 1 (or less) folds only the
// variables at one address, into the longest. Texts that do not parse, stations of 0 and
// variables that ask for no word are left out.
TEST_F(Lists, RebuildOfRandomListsMatchesTheObviousPlan) {
    typedef std::tuple<int, int, int, int, std::string> Entry;  // station, area, words, name
    constexpr int kAreas[] = {0, 1, 2, 13, 14, 20, 28, 29, 30, 200};
    std::mt19937 rng(20240501);
    const auto pick = [&rng](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(rng);
    };
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const int max = std::array<int, 7>{-3, 0, 1, 2, 7, 100, pick(2, 99)}[round % 7];
        info.maxUnits = max;
        info.perVarStation = round % 5 == 0 ? 0 : 1;
        info.defaultStation = round % 10 == 0 ? 0 : 3;
        QList<HOSTVAR> list;
        std::vector<Entry> vars;  // those that can be read, in words
        for (int i = pick(0, 150); i > 0; --i) {
            const int area = kAreas[pick(0, static_cast<int>(std::size(kAreas)) - 1)];
            const bool bits = area <= 13 || area == 29;
            const int first = pick(0, bits ? 400 * 16 : 400);
            const int count = bits ? pick(1, 200) : pick(-2, 40);  // bits always ask for one
            const int hostStation = pick(0, 4);
            const int station = info.perVarStation != 0 ? hostStation : info.defaultStation;
            const bool parses = pick(0, 9) != 0;
            list.append(cyclicVar(area,
                                  !parses      ? QString::fromLatin1("x")
                                  : area == 29 ? QString::fromLatin1(i % 2 ? "%1.%2" : " %1.%2")
                                                     .arg(first / 16)
                                                     .arg(first % 16)
                                               : QString::number(first, area <= 1 ? 8 : 10),
                                  count, hostStation));
            list.last().nameText = QString::number(i);
            if (parses && station != 0 && count > 0) {
                vars.emplace_back(station, area == 29 ? 14 : area, bits ? first / 16 : first,
                                  bits ? (first % 16 + count + 15) / 16 : count, std::to_string(i));
            }
        }
        std::stable_sort(vars.begin(), vars.end(), [](const Entry& a, const Entry& b) {
            return std::tie(std::get<0>(a), std::get<1>(a), std::get<2>(a)) <
                   std::tie(std::get<0>(b), std::get<1>(b), std::get<2>(b));
        });
        const int length = std::max(max, 1);
        std::vector<Entry> runs;  // the opening variable, its count replaced by the run's end
        for (const auto& [station, area, address, count, name] : vars) {
            if (!runs.empty()) {
                auto& [s, a, from, end, opener] = runs.back();
                const int lastBlock = from + (end - 1 - from) / length * length;
                if (s == station && a == area &&
                    (length == 1 ? address == from : address < lastBlock + length)) {
                    end = std::max(end, address + count);
                    continue;
                }
            }
            runs.emplace_back(station, area, address, address + count, name);
        }
        std::vector<Entry> expected, planned;
        for (const auto& [station, area, from, end, name] : runs) {
            const int step = length == 1 ? end - from : length;  // a block length of 1 cuts nothing
            for (int a = from; a < end; a += step) {
                expected.emplace_back(station, area, a, std::min(step, end - a), name);
            }
        }
        EXPECT_EQ(rebuild(list), static_cast<int>(expected.size()));
        for (const RW_VAR& b : driver.readList) {
            planned.emplace_back(b.station, b.area, b.address, b.count, b.nameText.toStdString());
        }
        ASSERT_EQ(planned, expected);
    }
}
