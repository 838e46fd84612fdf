// Puts the one global driver object back into its just-loaded state between tests, and gives
// each test its own port record.
#ifndef KORVAN_TESTS_DRIVER_FIXTURE_H
#define KORVAN_TESTS_DRIVER_FIXTURE_H

#include <gtest/gtest.h>

#include "driver/Communication_Protocol.h"

inline void resetDriver() {
    Communication_Protocol& d = PLC_driver;
    d.comInfo = nullptr;
    d.readList.clear();
    d.writeList.clear();
    d.onceReadList.clear();
    d.spareReadList.clear();
    d.requestQueue.clear();
    d.extendList.clear();
    d.resultCallback = nullptr;
    d.errorCallback = nullptr;
    d.stationMap.clear();
    d.retVar = RW_VAR();
    d.currentSource = kSourceNone;
    d.writeBurst = 0;
    d.onceBurst = 0;
    d.scanCount = 0;
    d.commFailed = 0;
    d.registerCache.clear();
    LB = LW = RWI = nullptr;
}

// A port record handed to the driver: block length 100, station 1, local port 1.
class DriverTest : public ::testing::Test {
protected:
    void SetUp() override {
        resetDriver();
        info.maxUnits = 100;
        info.defaultStation = 1;
        info.retryLimit = 2;
        info.portId = 1;
        SetComInfo(&info);
    }
    void TearDown() override { resetDriver(); }

    // A variable of the local port as a host would fill it in.
    static RW_VAR hostVar(int area, const char* address, int count, int station = 1) {
        RW_VAR v;
        v.area = area;
        v.addressText = QString::fromLatin1(address);
        v.count = count;
        v.station = station;
        v.port = 1;
        return v;
    }

    ComInfo info;
};

#endif
