// Address texts by area, and the normalisation of bit addresses to words.
#include <gtest/gtest.h>

#include <climits>

#include "driver/Communication_Protocol.h"

namespace {

int parse(int area, const char* text) {
    return StringAddressToInt(area, QString::fromLatin1(text));
}

RW_VAR normalised(int area, int address, int count) {
    RW_VAR v;
    v.area = area;
    v.address = address;
    v.count = count;
    PLC_driver.update_rw_var(&v);
    return v;
}

}  // namespace

TEST(AddressParsing, OctalAreasRejectDigitsOutsideTheBase) {
    EXPECT_EQ(parse(0, "17"), 15);
    EXPECT_EQ(parse(1, "17"), 15);
    EXPECT_EQ(parse(0, "18"), -1);
    EXPECT_EQ(parse(1, "9"), -1);
    EXPECT_EQ(parse(2, "17"), 17);
    EXPECT_EQ(parse(5, "17"), 17);
}

TEST(AddressParsing, DecimalAreasIncludingOutOfRangeIndices) {
    EXPECT_EQ(parse(-1, "250"), 250);
    EXPECT_EQ(parse(14, "100"), 100);
    EXPECT_EQ(parse(28, "65535"), 65535);
    EXPECT_EQ(parse(30, "12"), 12);
    EXPECT_EQ(parse(INT_MIN, "7"), 7);
}

// Acceptance follows QString::toInt: surrounding white space and one sign are allowed.
TEST(AddressParsing, IntegerAcceptanceRules) {
    EXPECT_EQ(parse(14, " 12 "), 12);
    EXPECT_EQ(parse(14, "+12"), 12);
    EXPECT_EQ(parse(14, "-12"), -12);  // negative, which every caller treats as invalid
    EXPECT_EQ(parse(14, ""), -1);
    EXPECT_EQ(parse(14, "1 2"), -1);
    EXPECT_EQ(parse(14, "0x10"), -1);
    EXPECT_EQ(parse(14, "12a"), -1);
    EXPECT_EQ(parse(14, "99999999999"), -1);  // does not fit an int
    EXPECT_EQ(parse(14, "2147483647"), INT_MAX);
    EXPECT_EQ(StringAddressToInt(14, QString()), -1);
}

TEST(AddressParsing, BitOfWordNeedsExactlyOnePoint) {
    EXPECT_EQ(parse(29, "10.3"), 163);
    EXPECT_EQ(parse(29, "0.0"), 0);
    EXPECT_EQ(parse(29, "3.20"), 68);  // the bit part has no upper bound
    EXPECT_EQ(parse(29, "4.4"), 68);
    EXPECT_EQ(parse(29, "10."), -1);
    EXPECT_EQ(parse(29, ".3"), -1);
    EXPECT_EQ(parse(29, "10"), -1);
    EXPECT_EQ(parse(29, "1.2.3"), -1);
    EXPECT_EQ(parse(29, "a.3"), -1);
    EXPECT_EQ(parse(29, ""), -1);
    EXPECT_EQ(parse(29, " 10 . 3 "), 163);
    // Very large words wrap in 32 bits rather than overflowing.
    EXPECT_EQ(parse(29, "2147483647.15"), -1);
}

TEST(AddressParsing, HostEntryPointReturnsTheSame) {
    EXPECT_EQ(PLCAddressChangeIntef(0, QStringLiteral("17")), 15);
    EXPECT_EQ(PLCAddressChangeIntef(29, QStringLiteral("10.3")), 163);
    EXPECT_EQ(PLCAddressChangeIntef(29, QStringLiteral("10")), -1);
}

TEST(Normalisation, BitAreasBecomeCoveringWords) {
    RW_VAR v = normalised(2, 35, 20);  // bits 35..54 lie in words 2 and 3
    EXPECT_EQ(v.address, 2);
    EXPECT_EQ(v.count, 2);
    EXPECT_EQ(v.area, 2);

    v = normalised(0, 16, 16);
    EXPECT_EQ(v.address, 1);
    EXPECT_EQ(v.count, 1);
    v = normalised(0, 15, 2);  // bits 15 and 16 straddle two words
    EXPECT_EQ(v.address, 0);
    EXPECT_EQ(v.count, 2);
    v = normalised(0, 32, 0);
    EXPECT_EQ(v.count, 0);
    v = normalised(13, 33, 0);
    EXPECT_EQ(v.address, 2);
    EXPECT_EQ(v.count, 1);
}

TEST(Normalisation, BitOfWordMovesToItsWordArea) {
    RW_VAR v = normalised(29, 165, 1);  // 10.5
    EXPECT_EQ(v.area, 14);
    EXPECT_EQ(v.address, 10);
    EXPECT_EQ(v.count, 1);
}

TEST(Normalisation, WordAndForeignAreasStayAsTheyAre) {
    for (int area : {14, 20, 28, 30, -1}) {
        RW_VAR v = normalised(area, 1234, 17);
        EXPECT_EQ(v.area, area);
        EXPECT_EQ(v.address, 1234);
        EXPECT_EQ(v.count, 17);
    }
}

TEST(Normalisation, ExtremeValuesWrapWithoutTrapping) {
    RW_VAR v = normalised(3, -17, 1);  // arithmetic shift keeps the sign
    EXPECT_EQ(v.address, -2);
    v = normalised(3, 15, INT_MAX);
    EXPECT_EQ(v.count, static_cast<int>(0x80000000u + 29u) >> 4);
    PLC_driver.update_rw_var(nullptr);
}

TEST(Normalisation, CacheAreaOfEachArea) {
    EXPECT_EQ(PLC_driver.get_plc_reg(29), 14);
    EXPECT_EQ(PLC_driver.get_plc_reg(14), 14);
    EXPECT_EQ(PLC_driver.get_plc_reg(0), 0);
    EXPECT_EQ(PLC_driver.get_plc_reg(28), 28);
    EXPECT_EQ(PLC_driver.get_plc_reg(-3), -3);
}
