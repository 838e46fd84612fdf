// Check values and digit helpers against known vectors.
#include <gtest/gtest.h>

#include <vector>

#include "korvan_qa_qb_series_port.h"

namespace {

using Bytes = std::vector<unsigned char>;

unsigned short crcOf(Bytes b) {
    return CalCRC(b.data(), static_cast<unsigned short>(b.size()));
}

}  // namespace

TEST(Checksums, CrcMatchesReferenceVectors) {
    EXPECT_EQ(crcOf({}), 0xFFFF);
    EXPECT_EQ(crcOf({0x00}), 0x40BF);
    EXPECT_EQ(crcOf({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0x4B37);
    // A read frame's CRC, sent low byte first as 7F DB.
    EXPECT_EQ(crcOf({0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02}), 0xDB7F);
    EXPECT_EQ(CalCRC(nullptr, 5), 0xFFFF);
}

TEST(Checksums, SumWrapsAtSixteenBits) {
    Bytes ff(300, 0xFF);
    EXPECT_EQ(CalSUM(ff.data(), 300), 0x2AD4);  // 76500 mod 65536; a remote frame keeps D4
    EXPECT_EQ(CalSUM(ff.data(), 0), 0);
    EXPECT_EQ(CalSUM(nullptr, 10), 0);
}

TEST(Checksums, LrcLiesInOneTo256) {
    Bytes one{0x01};
    Bytes twoHalves{0x80, 0x80};
    EXPECT_EQ(CalLRC(one.data(), 1), 0xFF);
    EXPECT_EQ(CalLRC(twoHalves.data(), 2), 256);
    EXPECT_EQ(CalLRC(one.data(), 0), 256);
}

TEST(Checksums, XorAlwaysTakesTheFirstByte) {
    Bytes b{0x12, 0x34, 0x56};
    EXPECT_EQ(CalXOR(b.data(), 3), 0x70);
    EXPECT_EQ(CalXOR(b.data(), 1), 0x12);
    EXPECT_EQ(CalXOR(b.data(), 0), 0x12);
    EXPECT_EQ(CalXOR(nullptr, 3), 0);
}

TEST(HexDigits, ConvertWithoutRangeChecks) {
    EXPECT_EQ(DigitalToASCII(0), '0');
    EXPECT_EQ(DigitalToASCII(9), '9');
    EXPECT_EQ(DigitalToASCII(10), 0x41);
    EXPECT_EQ(DigitalToASCII(15), 'F');
    EXPECT_EQ(DigitalToASCII(-1), 0x2F);
    EXPECT_EQ(DigitalToASCII(2147483647), static_cast<int>(0x80000036u));  // wraps, no trap

    EXPECT_EQ(ASCIIToDigital('7'), 7);
    EXPECT_EQ(ASCIIToDigital(0x3F), 15);
    EXPECT_EQ(ASCIIToDigital(0x46), 15);
    EXPECT_EQ(ASCIIToDigital(0x40), 0);
    EXPECT_EQ(ASCIIToDigital(0x20), 0);
    EXPECT_EQ(ASCIIToDigital(0x61), 42);  // lower case is not folded
    EXPECT_EQ(ASCIIToDigital(-5), 0);
}
