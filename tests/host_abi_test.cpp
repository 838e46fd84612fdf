// The host interface of the loaded library: the driver object at load, the configuration entry
// points, the helpers no exchange uses, and the copy of a record DataCom hands back.
#include "loaded_driver.h"

class HostInterface : public DriverTest {};

// Runs first in this process, so the object is as loading the library left it.
TEST(LoadedLibrary, ConstructsTheDriverAtLoad) {
    const auto* d = exported<const Communication_Protocol*>("PLC_driver");
    ASSERT_NE(d, nullptr);
    EXPECT_TRUE(d->comInfo == nullptr && d->requestQueue.isEmpty() && d->stationMap.isEmpty());
    EXPECT_EQ(d->currentSource, 100);
}

// SetComInfo caps the block length from above only and clears two words. The address texts of
// the loaded library are those of StringAddressToInt, which has its own tests.
TEST_F(HostInterface, ConfigurationEntryPoints) {
    for (int given : {250, 101, 100, 7, 0, -5}) {
        ComInfo port;
        port.maxUnits = given;
        port.clearedWord10 = port.clearedWord13 = 5;
        SetComInfo(&port);
        EXPECT_EQ(std::vector<int>({port.maxUnits, port.clearedWord10, port.clearedWord13}),
                  std::vector<int>({given > 100 ? 100 : given, 0, 0}));
    }
    SetComInfo(nullptr);
    int bits = 0, words = 0, third = 0;
    FlashLocalRegister(&bits, &words, &third);
    EXPECT_TRUE(*exported<void**>("LB") == &bits && *exported<void**>("LW") == &words &&
                *exported<void**>("RWI") == &third && QueryFinishFlag() == 1);
    EXPECT_EQ(PLCAddressChangeIntef(1, QString::fromLatin1("17")), 15);
}

// The check values at their edges (the CRC and the sum are also checked in every frame that
// carries them), and the digit helpers, which have no range test: a value is offset by one of
// two constants.
TEST_F(HostInterface, ChecksumsAndDigits) {
    std::vector<unsigned char> ff(300, 0xFF);
    unsigned char one[] = {0x01}, halves[] = {0x80, 0x80}, three[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(std::vector<int>({CalCRC(nullptr, 5), CalSUM(ff.data(), 300), CalSUM(nullptr, 3),
                                CalLRC(one, 1), CalLRC(halves, 2), CalLRC(one, 0), CalXOR(three, 3),
                                CalXOR(three, 1), CalXOR(three, 0), CalXOR(nullptr, 2)}),
              std::vector<int>({0xFFFF, 0x2AD4, 0, 0xFF, 256, 256, 0x70, 0x12, 0x12, 0}));
    EXPECT_EQ(
        std::vector<int>({DigitalToASCII(0), DigitalToASCII(9), DigitalToASCII(10),
                          DigitalToASCII(15), DigitalToASCII(-1), DigitalToASCII(2147483647)}),
        std::vector<int>({'0', '9', 'A', 'F', 0x2F, static_cast<int>(0x80000036u)}));
    EXPECT_EQ(std::vector<int>({ASCIIToDigital('7'), ASCIIToDigital(0x3F), ASCIIToDigital('F'),
                                ASCIIToDigital(0x40), ASCIIToDigital(' '), ASCIIToDigital('a'),
                                ASCIIToDigital(-5)}),
              std::vector<int>({7, 15, 15, 0, 0, 42, 0}));
}

TEST_F(HostInterface, PassRetValueCopiesEverythingButThePayload) {
    const auto fields = [](const RW_VAR& v) {
        return std::make_tuple(v.ownerId, v.itemId, v.direction, v.remoteMode, v.port, v.result,
                               v.nameText, v.addressText, v.area, v.address, v.station, v.count,
                               v.mark, v.extra);
    };
    const RW_VAR from{
        1,  2,   3, 4, 5,  6, QString::fromLatin1("name"), QString::fromLatin1("10.3"),
        29, 163, 9, 1, -1, 7, QByteArray("payload")};
    RW_VAR to = writeVar(0, 0, 0, "01");
    passRetValue(from, to);
    EXPECT_EQ(fields(to), fields(from));
    EXPECT_TRUE(to.data.isEmpty());
}
