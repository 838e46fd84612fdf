// Read planning seen by a host: the library loaded with dlopen, the read list inspected through
// the exported driver object, whose layout is binary interface.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "host_list.h"
#include "korvan_qa_qb_series_port.h"
#include "loaded_library.h"

namespace {

// The leading members of the exported driver object: the port record, then the cyclic read list.
struct DriverView {
    ComInfo* comInfo;
    QList<RW_VAR> readList;
};

typedef std::tuple<int, int, int, int> Block;  // station, area, address, count

class HostPlanningTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(lib.loaded()) << LoadedLibrary::error();
        setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
        rebuild = lib.get<int (*)(QList<HOSTVAR>*)>("ReCreatReadVarList");
        driver = static_cast<const DriverView*>(lib.symbol("PLC_driver"));
        ASSERT_NE(driver, nullptr);
        info.maxUnits = 10;
        info.defaultStation = 1;
        info.portId = 1;
        setComInfo(&info);
    }

    // Leaves no read list and no pointer to this test's port record behind.
    void TearDown() override {
        if (rebuild != nullptr && setComInfo != nullptr) {
            QList<HOSTVAR> none;
            rebuild(&none);
            setComInfo(nullptr);
        }
    }

    std::vector<Block> blocks() const {
        std::vector<Block> out;
        for (const RW_VAR& v : driver->readList) {
            out.emplace_back(v.station, v.area, v.address, v.count);
        }
        return out;
    }

    LoadedLibrary lib;
    void (*setComInfo)(ComInfo*) = nullptr;
    int (*rebuild)(QList<HOSTVAR>*) = nullptr;
    const DriverView* driver = nullptr;
    ComInfo info;
};

TEST_F(HostPlanningTest, GroupsNeighboursAndSplitsOverflow) {
    QList<HOSTVAR> list = {cyclicVar(14, "35", 12), cyclicVar(14, "9", 4), cyclicVar(14, "0", 2),
                           cyclicVar(14, "31", 1),  cyclicVar(14, "5", 1), cyclicVar(14, "30", 3)};
    EXPECT_EQ(rebuild(&list), 4);
    EXPECT_EQ(blocks(), (std::vector<Block>{
                            {1, 14, 0, 10}, {1, 14, 10, 3}, {1, 14, 30, 10}, {1, 14, 40, 7}}));

    list = {cyclicVar(14, "100", 25)};
    EXPECT_EQ(rebuild(&list), 3);
    EXPECT_EQ(blocks(), (std::vector<Block>{{1, 14, 100, 10}, {1, 14, 110, 10}, {1, 14, 120, 5}}));
}

TEST_F(HostPlanningTest, BlockLengthOfOneOnlyFoldsEqualAddresses) {
    info.maxUnits = 1;
    QList<HOSTVAR> list = {cyclicVar(14, "5", 1), cyclicVar(14, "8", 4), cyclicVar(14, "5", 3),
                           cyclicVar(14, "6", 1), cyclicVar(14, "5", 2)};
    EXPECT_EQ(rebuild(&list), 3);
    EXPECT_EQ(blocks(), (std::vector<Block>{{1, 14, 5, 3}, {1, 14, 6, 1}, {1, 14, 8, 4}}));
}

TEST_F(HostPlanningTest, OrdersByStationAndAreaAndLeavesOutWhatCannotBeRead) {
    info.perVarStation = 1;
    QList<HOSTVAR> list = {cyclicVar(14, "5", 1, 3),    cyclicVar(14, "oops", 1, 1),
                           cyclicVar(29, "20.3", 1, 1), cyclicVar(2, "0", 16, 3),
                           cyclicVar(14, "21", 1, 1),   cyclicVar(2, "32", 1, 1),
                           cyclicVar(14, "7", 1, 0)};
    EXPECT_EQ(rebuild(&list), 4);
    EXPECT_EQ(blocks(),
              (std::vector<Block>{{1, 2, 2, 1}, {1, 14, 20, 2}, {3, 2, 0, 1}, {3, 14, 5, 1}}));

    list.clear();
    EXPECT_EQ(rebuild(&list), 0);
    EXPECT_TRUE(driver->readList.isEmpty());
}

// The C++ helpers are reachable under their mangled names and work on the caller's lists.
TEST_F(HostPlanningTest, SortsAndCutsCallerOwnedLists) {
    const auto sort = lib.get<void (*)(QList<RW_VAR>*)>("_Z11Bubble_SortP5QListI6RW_VARE");
    const auto cut = lib.get<void (*)(int, int, RW_VAR*, QList<RW_VAR>*)>(
        "_Z12WhetherGroupiiP6RW_VARP5QListIS_E");
    ASSERT_TRUE(sort != nullptr && cut != nullptr);

    RW_VAR var;
    var.address = 40;
    QList<RW_VAR> pieces;
    cut(25, 10, &var, &pieces);
    std::reverse(pieces.begin(), pieces.end());
    sort(&pieces);
    ASSERT_EQ(pieces.size(), 3);
    EXPECT_EQ(pieces.first().address, 40);
    EXPECT_EQ(pieces.last().count, 5);
}

}  // namespace
