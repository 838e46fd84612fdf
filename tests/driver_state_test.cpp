// The driver object's initial state, the configuration calls and the station switches.
#include <gtest/gtest.h>

#include "driver_fixture.h"

namespace {

int onResult(int, int, int, int) {
    return 0;
}
int onError(QList<RW_VAR>*, int, int) {
    return 0;
}

class StationTest : public DriverTest {};

}  // namespace

TEST(DriverObject, StartsEmptyWithNoSourceYet) {
    const Communication_Protocol fresh;
    EXPECT_EQ(fresh.comInfo, nullptr);
    EXPECT_TRUE(fresh.readList.isEmpty() && fresh.writeList.isEmpty() &&
                fresh.onceReadList.isEmpty() && fresh.requestQueue.isEmpty());
    EXPECT_EQ(fresh.resultCallback, nullptr);
    EXPECT_EQ(fresh.errorCallback, nullptr);
    EXPECT_TRUE(fresh.stationMap.isEmpty());
    EXPECT_EQ(fresh.currentSource, 100);
    EXPECT_EQ(fresh.writeBurst + fresh.onceBurst + fresh.scanCount + fresh.commFailed, 0);
    EXPECT_EQ(fresh.retVar.result, 0);
    EXPECT_TRUE(fresh.retVar.data.isEmpty() && fresh.retVar.addressText.isEmpty());
    EXPECT_TRUE(fresh.registerCache.isEmpty());
}

TEST(DriverObject, PassRetValueCopiesEverythingButThePayload) {
    RW_VAR from;
    from.ownerId = 1;
    from.itemId = 2;
    from.direction = 3;
    from.remoteMode = 4;
    from.port = 5;
    from.result = 6;
    from.nameText = QStringLiteral("name");
    from.addressText = QStringLiteral("10.3");
    from.area = 7;
    from.address = 8;
    from.station = 9;
    from.count = 10;
    from.mark = -1;
    from.extra = 12;
    from.data = QByteArray("payload");
    RW_VAR to;
    to.data = QByteArray("old");
    passRetValue(from, to);
    EXPECT_EQ(to.ownerId + to.itemId + to.direction + to.remoteMode + to.port + to.result, 21);
    EXPECT_EQ(to.nameText, from.nameText);
    EXPECT_EQ(to.addressText, from.addressText);
    EXPECT_EQ(to.area + to.address + to.station + to.count + to.mark + to.extra, 45);
    EXPECT_TRUE(to.data.isEmpty());
}

TEST_F(DriverTest, SetComInfoCapsBlockLengthFromAboveOnly) {
    for (int given : {250, 101, 100, 7, 0, -5}) {
        ComInfo record;
        record.maxUnits = given;
        record.clearedWord10 = 11;
        record.clearedWord13 = 13;
        SetComInfo(&record);
        EXPECT_EQ(PLC_driver.comInfo, &record);
        EXPECT_EQ(record.maxUnits, given > 100 ? 100 : given);
        EXPECT_EQ(record.clearedWord10, 0);
        EXPECT_EQ(record.clearedWord13, 0);
    }
    SetComInfo(nullptr);
    EXPECT_EQ(PLC_driver.comInfo, nullptr);
}

TEST_F(DriverTest, CallbacksAndLocalAreasAreStoredAsGiven) {
    RegistCallBackFuncIntf(onResult, onError);
    EXPECT_EQ(PLC_driver.resultCallback, &onResult);
    EXPECT_EQ(PLC_driver.errorCallback, &onError);
    RegistCallBackFuncIntf(nullptr, onError);
    EXPECT_EQ(PLC_driver.resultCallback, nullptr);

    int bits = 0;
    int words = 0;
    int third = 0;
    FlashLocalRegister(&bits, &words, &third);
    EXPECT_EQ(LB, &bits);
    EXPECT_EQ(LW, &words);
    EXPECT_EQ(RWI, &third);
    EXPECT_EQ(QueryFinishFlag(), 1);
}

TEST_F(StationTest, SwitchingOffIsAnExactKey) {
    EnCommStation(3, 0);
    EnCommStation(3, 0);
    EXPECT_EQ(PLC_driver.stationMap.size(), 1);
    EXPECT_EQ(Ethernetcontains(3), 1);
    EXPECT_EQ(Ethernetcontains(2), 0);
    EXPECT_EQ(Ethernetcontains(4), 0);
    EnableEthernet(3, 1);  // both switches share one map
    EXPECT_EQ(Ethernetcontains(3), 0);
}

TEST_F(StationTest, NegativeStationServesEveryStationAgain) {
    EnCommStation(1, 0);
    EnableEthernet(2, 0);
    EnCommStation(-1, 1);
    EXPECT_TRUE(PLC_driver.stationMap.isEmpty());
    EnCommStation(4, 0);
    EnableEthernet(-7, 0);  // whatever the enable value
    EXPECT_TRUE(PLC_driver.stationMap.isEmpty());
}

TEST_F(StationTest, OtherEnableValuesChangeNothing) {
    EnCommStation(5, 7);
    EXPECT_EQ(Ethernetcontains(5), 0);
    EnCommStation(5, 0);
    EnCommStation(5, -1);
    EnableEthernet(5, 2);
    EXPECT_EQ(Ethernetcontains(5), 1);
    EXPECT_EQ(PLC_driver.stationMap.value(5, -1), 0);
}
