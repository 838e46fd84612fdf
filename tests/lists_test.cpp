// The variable lists: registration, grouping into block reads, and the rebuild of the cyclic
// read list, against literal plans.
#include "loaded_driver.h"

namespace {

// A list as "station/area/address+count" entries, or only "address+count".
std::string listed(const QList<RW_VAR>& list, bool full = true) {
    std::string text;
    for (const RW_VAR& v : list) {
        text += (text.empty() ? "" : " ") +
                (full ? std::to_string(v.station) + "/" + std::to_string(v.area) + "/" : "") +
                std::to_string(v.address) + "+" + std::to_string(v.count);
    }
    return text;
}

class Lists : public DriverTest {
protected:
    int addOnce(RW_VAR v) { return AddListOnceReadVar(&v, korvan::kOnceReadPlanned); }
};

}  // namespace

// Plain appends take copies unchanged; the write list stops at kListCapacity, the verbatim
// once-read mode at nothing.
TEST_F(Lists, PlainAppendsAndTheWriteListCap) {
    RW_VAR bits = hostVar(2, "35", 20, 9);
    EXPECT_TRUE(AddListReadVar(&bits) == 1 && AddListReadVar(nullptr) == 1);
    EXPECT_EQ(listed(driver.readList), "9/2/0+20");  // not normalised
    const int full = korvan::kListCapacity, verbatim = korvan::kOnceReadVerbatim;
    RW_VAR v = var(14, 0, 1);
    for (int i = 0; i < full - 1; ++i) {
        driver.writeList.append(v);
        driver.onceReadList.append(v);
    }
    v.itemId = 5;
    EXPECT_EQ(
        std::vector<int>({AddListWriteVar(&v), AddListWriteVar(&v), AddListWriteVar(nullptr)}),
        std::vector<int>({full, full, full}));
    EXPECT_EQ(driver.writeList.last().itemId, 5);
    RW_VAR unchecked = hostVar(14, "not an address", 1, 0);
    EXPECT_EQ(std::vector<int>({AddListOnceReadVar(&unchecked, verbatim),
                                AddListOnceReadVar(&unchecked, verbatim),
                                AddListOnceReadVar(nullptr, verbatim),
                                AddListOnceReadVar(nullptr, korvan::kOnceReadPlanned)}),
              std::vector<int>({full, full + 1, full + 1, korvan::kAddressNotParsed}));
    EXPECT_EQ(driver.onceReadList.last().addressText, QString::fromLatin1("not an address"));
}

// The normalising once-read mode parses, takes the port's station unless stations are
// per-variable, converts bits to words, splits by the block length (below 1 counts as 1) and skips
// pieces queued for the same host item, port, station and words. A bad text or station 0 gives 0;
// the caller's record ends as if every piece had been offered, also once the list is full.
TEST_F(Lists, NormalisingOnceReads) {
    RW_VAR v = hostVar(20, "0", 250);
    v.mark = v.extra = 7;
    EXPECT_EQ(AddListOnceReadVar(&v, korvan::kOnceReadPlanned), 3);
    EXPECT_EQ(listed(driver.onceReadList), "1/20/0+100 1/20/100+100 1/20/200+50");
    EXPECT_EQ(std::vector<int>({v.address, v.count, driver.onceReadList.at(0).mark, v.extra}),
              std::vector<int>({250, 50, 0, 0}));
    RW_VAR again = hostVar(20, " 0", 250);
    again.nameText = QString::fromLatin1("other");
    again.data = QByteArray("xy");
    const RW_VAR otherItem = owned(hostVar(20, "0", 100), 0, 1),
                 otherPort = owned(hostVar(20, "0", 100), 0, 0, 2);
    EXPECT_EQ(
        std::vector<int>({AddListOnceReadVar(&again, 7), addOnce(otherItem), addOnce(otherPort),
                          addOnce(hostVar(0, "18", 1)), addOnce(hostVar(14, "-4", 1)),
                          addOnce(hostVar(14, "1", 0)), addOnce(hostVar(14, "1", -3))}),
        std::vector<int>({3, 4, 5, korvan::kAddressNotParsed, korvan::kAddressNotParsed, 5, 5}));

    driver.onceReadList.clear();
    info.defaultStation = 3;
    addOnce(hostVar(14, "5", 1, 9));
    addOnce(hostVar(korvan::kAreaBitOfWord, "10.3", 1));
    info.perVarStation = 1;
    addOnce(hostVar(2, "35", 20, 6));
    addOnce(hostVar(14, "5", 1, 4));
    EXPECT_TRUE(addOnce(hostVar(14, "5", 1, 4)) == 4 && addOnce(hostVar(14, "12", 1, 0)) == 0);
    EXPECT_EQ(listed(driver.onceReadList), "3/14/5+1 3/14/10+1 6/2/2+2 4/14/5+1");
    for (int max : {0, -5}) {
        driver.onceReadList.clear();
        info.maxUnits = max;
        EXPECT_EQ(addOnce(hostVar(14, "10", 3, 1)), 3);
        EXPECT_EQ(listed(driver.onceReadList), "1/14/10+1 1/14/11+1 1/14/12+1");
    }
    driver.onceReadList.clear();
    info.maxUnits = 1;
    v = hostVar(14, "0", 0x7FFFFFFF);  // two billion pieces: the list fills up
    EXPECT_EQ(AddListOnceReadVar(&v, korvan::kOnceReadPlanned), korvan::kListCapacity);
    EXPECT_EQ(std::vector<int>({driver.onceReadList.last().address, v.address, v.count}),
              std::vector<int>({korvan::kListCapacity - 1, 0x7FFFFFFF, 1}));
    SetComInfo(nullptr);
    EXPECT_EQ(addOnce(hostVar(14, "5", 1)), korvan::kAddressNotParsed);
}

// A variable joins the block when it starts fewer than max words after the block's first word; a
// block never exceeds max, a longer variable is cut into blocks of max, one of no words neither
// opens nor stretches a block, and equal addresses fold into the longest. BitVarReCreat appends:
// its first variable opens a block even inside readList's last. Blocks come by station, then area
// (29 shares 14), then address; bad texts, station 0 and no words are left out.
TEST_F(Lists, GroupingAndPlanningBlocks) {
    const std::tuple<std::vector<std::pair<int, int>>, int, const char*> cases[] = {
        // bucket (address, count), block length, blocks
        // clang-format off
        {{{0, 10}}, 10, "0+10"}, {{{0, 11}}, 10, "0+10 10+1"}, {{{0, 20}}, 10, "0+10 10+10"},
        {{{0, 2}, {9, 1}}, 10, "0+10"}, {{{0, 2}, {10, 1}}, 10, "0+2 10+1"}, {{{0, 10}, {3, 2}}, 10, "0+10"},
        {{{0, 4}, {3, 9}, {12, 1}}, 10, "0+10 10+3"}, {{{0, 1}, {99, 1}}, 100, "0+100"},
        {{{0, 0}, {3, -2}, {4, 2}, {12, 0}, {20, 0}}, 10, "4+2"}, {{{5, 2}, {6, 1}}, 1, "5+2 6+1"},
        {{{5, 2}, {5, 2}}, 1, "5+2"}, {{{0, 5}}, 1, "0+5"}, {{{5, 1}, {5, 3}, {7, 2}}, 0, "5+3 7+2"},
        {{{5, 1}, {5, 3}, {7, 2}}, -4, "5+3 7+2"},
        // clang-format on
    };
    for (const auto& [spans, max, blocks] : cases) {
        QList<RW_VAR> bucket;
        for (const auto& [address, count] : spans) {
            bucket.append(var(14, address, count));
        }
        driver.readList = QList<RW_VAR>();
        BitVarReCreat(&bucket, max);
        EXPECT_EQ(listed(driver.readList, false), blocks) << max;
    }
    QList<RW_VAR> next{var(14, 0, 0), var(14, 2, 1), var(14, 11, 1)};
    BitVarReCreat(&next, 10);
    EXPECT_EQ(listed(driver.readList, false), "5+3 7+2 2+10");
    RW_VAR v = var(14, 40, 3);
    QList<RW_VAR> pieces;
    WhetherGroup(25, 10, &v, &pieces);  // cut by its total, the variable left holding the last
    WhetherGroup(3, 0, &v, &pieces);
    EXPECT_EQ(listed(pieces, false), "40+10 50+10 60+5 60+1 61+1 62+1");
    info.maxUnits = 10;
    info.perVarStation = 1;
    const int bitOfWord = korvan::kAreaBitOfWord;
    EXPECT_EQ(
        rebuild({cyclicVar(14, "5", 1, 3), cyclicVar(14, "oops", 1, 1),
                 cyclicVar(bitOfWord, "20.3", 1, 1), cyclicVar(2, "0", 16, 3),
                 cyclicVar(14, "21", 1, 1), cyclicVar(2, "32", 1, 1), cyclicVar(14, "7", 1, 0),
                 cyclicVar(0, "18", 1), cyclicVar(bitOfWord, "10", 1), cyclicVar(14, "3", 0),
                 cyclicVar(14, "8", -5), cyclicVar(2, "16", 0)}),
        4);
    EXPECT_EQ(listed(driver.readList), "1/2/2+1 1/14/20+2 3/2/0+1 3/14/5+1");
    info.perVarStation = 0;
    info.defaultStation = 4;
    rebuild({cyclicVar(14, "35", 12, 7), cyclicVar(14, "9", 4), cyclicVar(14, "0", 2),
             cyclicVar(14, "31", 1), cyclicVar(14, "5", 1), cyclicVar(14, "30", 3),
             cyclicVar(1, "17", 20)});
    EXPECT_EQ(listed(driver.readList), "4/1/0+3 4/14/0+10 4/14/10+3 4/14/30+10 4/14/40+7");
}

// The rebuild replaces readList and restarts the scan when there is a list to plan, even one of
// which nothing can be read. Its entries are the port's, of no host item, with the texts of the
// variable that opened them.
TEST_F(Lists, RebuildReplacesTheListAndRestartsTheScan) {
    RW_VAR stale = hostVar(14, "3", 1);
    AddListReadVar(&stale);
    driver.scanCount = 5;
    info.scanDone = korvan::kScanDone;
    EXPECT_TRUE(rebuild({}) == 0 && ReCreatReadVarList(nullptr) == 0 && driver.readList.isEmpty());
    EXPECT_EQ(std::make_pair(driver.scanCount, info.scanDone),
              std::make_pair(5, korvan::kScanDone));
    EXPECT_EQ(rebuild({cyclicVar(14, "x", 1)}), 0);
    EXPECT_EQ(std::make_pair(driver.scanCount, info.scanDone), std::make_pair(0, 0));
    AddListReadVar(&stale);
    info.remoteMode = 3;
    info.portId = 9;
    EXPECT_EQ(rebuild({cyclicVar(2, "35", 20, 1, "level"), cyclicVar(14, "9", 1, 1, "late"),
                       cyclicVar(14, "5", 1, 1, "a"), cyclicVar(14, "5", 3, 1, "b")}),
              2);
    EXPECT_EQ(listed(driver.readList), "1/2/2+2 1/14/5+5");  // bits 35..54: words 2 and 3
    const RW_VAR& e = driver.readList.first();
    EXPECT_EQ(std::vector<int>({e.ownerId, e.itemId, e.direction, e.remoteMode, e.port, e.result,
                                e.mark, e.extra, e.data.size()}),
              std::vector<int>({korvan::kCyclicOwnerId, korvan::kCyclicItemId,
                                korvan::kDirectionRead, 3, 9, 0, 0, 0, 0}));
    EXPECT_EQ(e.nameText + e.addressText + driver.readList.last().nameText,
              QString::fromLatin1("level35a"));
}

// Bubble_Sort sorts as an exchange sort on a strict compare: equal addresses keep their order.
TEST_F(Lists, BubbleSortKeepsEqualAddressesInOrder) {
    QList<RW_VAR> list;
    for (int i = 0; i < 40; ++i) {
        list.append(owned(var(14, i * 7919 % 11 - 5, 1), 0, i));
    }
    Bubble_Sort(&list);
    for (int i = 1; i < 40; ++i) {
        EXPECT_LT(std::make_pair(list.at(i - 1).address, list.at(i - 1).itemId),
                  std::make_pair(list.at(i).address, list.at(i).itemId));
    }
}
