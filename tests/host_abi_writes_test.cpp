// Host writes, write frames and reply storing through the loaded library, as a host reaches
// them: SetRegisterData by its plain name, the frame and image functions by their C++ symbols.
#include <gtest/gtest.h>

#include "driver/Communication_Protocol.h"
#include "hex.h"
#include "korvan_qa_qb_series_port.h"
#include "loaded_library.h"
#include "request_checks.h"

namespace {

using SetComInfoFn = void (*)(ComInfo*);
using SetRegisterDataFn = int (*)(QString, int, QString, int, QByteArray*, int, int, int);
using BuildFn = void (*)(const RW_VAR&);
using SaveFn = void (*)(QByteArray*);
using CrcFn = unsigned short (*)(unsigned char*, unsigned short);

constexpr const char* kWriteRegister = "_Z14write_registerRK6RW_VAR";
constexpr const char* kSaveToLocalDataErea = "_Z19SaveToLocalDataEreaP10QByteArray";
constexpr const char* kCalCrc = "_Z6CalCRCPht";

class HostAbiWritesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(lib.loaded()) << LoadedLibrary::error();
        driver = static_cast<Communication_Protocol*>(lib.symbol("PLC_driver"));
        ASSERT_NE(driver, nullptr);
        // The library may stay loaded between tests: start from empty lists and image.
        driver->writeList.clear();
        driver->requestQueue.clear();
        driver->registerCache.clear();
        driver->commFailed = 0;
        info.maxUnits = 100;
        info.defaultStation = 1;
        info.portId = 1;
        info.writeMode = 2;
        lib.get<SetComInfoFn>("SetComInfo")(&info);
    }
    void TearDown() override {
        if (driver != nullptr) {
            lib.get<SetComInfoFn>("SetComInfo")(nullptr);
        }
    }

    int setRegisterData(int area, const char* address, const char* hostBytes, int count) {
        QByteArray values = bytesOf(hostBytes);
        return lib.get<SetRegisterDataFn>("SetRegisterData")(
            QString(), area, QString::fromLatin1(address), 1, &values, count, 3, 4);
    }

    QByteArray withCrc(QByteArray frame) {
        const unsigned short crc =
            lib.get<CrcFn>(kCalCrc)(reinterpret_cast<unsigned char*>(frame.data()),
                                    static_cast<unsigned short>(frame.size()));
        frame.append(static_cast<char>(crc));
        frame.append(static_cast<char>(crc >> 8));
        return frame;
    }

    LoadedLibrary lib;
    Communication_Protocol* driver = nullptr;
    ComInfo info;
};

TEST_F(HostAbiWritesTest, ExportsTheWriteAndImageFunctions) {
    for (const char* name :
         {"SetRegisterData", kWriteRegister, "_Z12write_analogRK6RW_VAR",
          "_Z16write_analog_bitRK6RW_VAR", "_Z14Remote_ReadVarRK6RW_VAR",
          "_Z15Remote_WriteVarRK6RW_VAR", kSaveToLocalDataErea,
          "_Z19SpecialRegisterSavePK10QByteArray", "_Z19write_data_to_localRK6RW_VAR"}) {
        EXPECT_NE(lib.symbol(name), nullptr) << name;
    }
    EXPECT_EQ(lib.symbol("_ZN9QHashData8willGrowEv"), nullptr) << "Qt's symbols stay Qt's";
}

TEST_F(HostAbiWritesTest, ABitOfWordWriteRunsFromHostCallToCompletedFrame) {
    EXPECT_EQ(setRegisterData(29, "10.3", "01", 1), 1);
    ASSERT_EQ(driver->writeList.size(), 1);
    EXPECT_TRUE(driver->registerCache.isEmpty());  // the link is up: not shown before sending

    lib.get<BuildFn>(kWriteRegister)(driver->writeList.first());
    ASSERT_EQ(driver->requestQueue.size(), 2);
    expectRequest(driver->requestQueue.at(0), "01 20 80 00 00 0A 00 01 5E 07", 7, 3, 2);
    expectRequest(driver->requestQueue.at(1), "01 21 80 00 00 0A 00 01 02 00 00 00 00", 10, 0, 0);
    EXPECT_EQ(driver->registerCache.value(0x010E00000000000A), 0x0008);  // shown once sent

    QByteArray reply = withCrc(bytesOf("01 20 02 00 00"));
    lib.get<SaveFn>(kSaveToLocalDataErea)(&reply);
    EXPECT_EQ(hex(driver->requestQueue.at(1).frame), "01 21 80 00 00 0A 00 01 02 00 08 92 21");
}

TEST_F(HostAbiWritesTest, ImageOnlyPortsShowWritesAtOnce) {
    info.writeMode = 0;
    EXPECT_EQ(setRegisterData(20, "7", "CD AB", 1), 0);
    EXPECT_EQ(driver->registerCache.value(0x0114000000000007), 0xABCD);
    EXPECT_EQ(setRegisterData(29, "1.2.3", "01", 1), 0);
    EXPECT_TRUE(driver->writeList.isEmpty());
}

}  // namespace
