// The driver's CRC against the simulator's own, written apart from each other: every byte value,
// and random buffers of every length a frame can have. A null buffer counts as empty.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "korvan_qa_qb_series_port.h"
#include "wire_format.h"

TEST(Crc, MatchesTheSimulatorsForEveryByteAndFrameLength) {
    for (int value = 0; value < 256; ++value) {
        unsigned char byte = static_cast<unsigned char>(value);
        ASSERT_EQ(CalCRC(&byte, 1), plcsim::crc16(&byte, 1)) << value;
    }
    std::mt19937 rng(7);
    std::vector<unsigned char> data(2050);
    for (unsigned char& b : data) {
        b = static_cast<unsigned char>(rng());
    }
    for (unsigned short length = 0; length <= data.size(); ++length) {
        ASSERT_EQ(CalCRC(data.data(), length), plcsim::crc16(data.data(), length)) << length;
    }
    EXPECT_EQ(CalCRC(nullptr, 5), 0xFFFF);
}
