// The driver's CRC against the simulator's own, both bit by bit but written apart
// from the wire format: every byte value, and buffers of every length a frame can have.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "korvan_qa_qb_series_port.h"
#include "wire_format.h"

namespace {

TEST(Crc, MatchesTheBitwiseDefinitionForEveryByte) {
    for (int value = 0; value < 256; ++value) {
        unsigned char byte = static_cast<unsigned char>(value);
        EXPECT_EQ(CalCRC(&byte, 1), plcsim::crc16(&byte, 1)) << value;
    }
}

TEST(Crc, MatchesTheBitwiseDefinitionForEveryFrameLength) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> byte(0, 255);
    std::vector<unsigned char> data(2050);
    for (unsigned char& b : data) {
        b = static_cast<unsigned char>(byte(rng));
    }
    for (unsigned short length = 0; length <= data.size(); ++length) {
        ASSERT_EQ(CalCRC(data.data(), length), plcsim::crc16(data.data(), length)) << length;
    }
}

}  // namespace
