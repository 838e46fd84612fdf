// The area-code table, local read frames and the validation of replies.
#include <gtest/gtest.h>

#include <vector>

#include "codec/frames.h"
#include "driver_fixture.h"

namespace {

QByteArray bytes(std::vector<unsigned char> b) {
    return QByteArray(reinterpret_cast<const char*>(b.data()), static_cast<int>(b.size()));
}

// The payload followed by its CRC, low byte first, as a PLC sends it.
QByteArray withCrc(std::vector<unsigned char> b) {
    const unsigned short crc = CalCRC(b.data(), static_cast<unsigned short>(b.size()));
    b.push_back(static_cast<unsigned char>(crc));
    b.push_back(static_cast<unsigned char>(crc >> 8));
    return bytes(b);
}

RW_VAR readVar(int station, int area, int address, int count) {
    RW_VAR v;
    v.station = station;
    v.area = area;
    v.address = address;
    v.count = count;
    return v;
}

class ReadFrameTest : public DriverTest {
protected:
    const Protocol& queued(int i = 0) { return PLC_driver.requestQueue.at(i); }
};

}  // namespace

TEST(AreaCodes, FollowTheTableIncludingItsIrregularEntries) {
    Communication_Protocol& d = PLC_driver;
    const unsigned char expected[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0D, 0x08, 0x09,
                                      0x0A, 0x0B, 0x0C, 0x12, 0x80, 0x81, 0x82, 0x8D, 0x85, 0x83,
                                      0x88, 0x8E, 0x86, 0x87, 0x8C, 0x91, 0x89, 0x8A, 0x8B};
    for (int area = 0; area <= 28; ++area) {
        EXPECT_EQ(d.register_identifier(static_cast<unsigned char>(area)), expected[area]) << area;
        EXPECT_EQ(d.register_identifier(static_cast<unsigned char>(area)) >= 0x80, area >= 14);
    }
    EXPECT_EQ(d.register_identifier(29), 0);
    EXPECT_EQ(d.register_identifier(255), 0);
}

TEST_F(ReadFrameTest, WordReadMatchesTheWireExample) {
    read_register(readVar(1, 14, 100, 2));
    ASSERT_EQ(PLC_driver.requestQueue.size(), 1);
    const Protocol& p = queued();
    EXPECT_EQ(p.frame, bytes({0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x7F, 0xDB}));
    EXPECT_EQ(p.sendLength, 10);
    EXPECT_EQ(p.replyLength, 9);
    EXPECT_EQ(p.dataOffset, 3);
    EXPECT_EQ(p.dataLength, 4);
    EXPECT_EQ(p.var.address, 100);
    EXPECT_EQ(p.reserved[0] | p.reserved[1] | p.reserved[2], 0);
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(info.framesAnswered, 0);
}

TEST_F(ReadFrameTest, BitAreaIsRequestedInBits) {
    read_register(readVar(1, 0, 2, 1));
    EXPECT_EQ(queued().frame, bytes({0x01, 0x1E, 0x01, 0x00, 0x00, 0x20, 0x00, 0x10, 0x7E, 0x11}));
    EXPECT_EQ(queued().replyLength, 7);
    EXPECT_EQ(queued().dataLength, 2);

    // Group 4096 is bit 65536: the third address byte carries it.
    read_register(readVar(1, 2, 4096, 1));
    EXPECT_EQ(queued(1).frame.mid(3, 5), bytes({0x01, 0x00, 0x00, 0x00, 0x10}));
    EXPECT_EQ(queued(1).replyLength, 7);
}

TEST_F(ReadFrameTest, FunctionCodeFollowsTheAreaClass) {
    read_register(readVar(1, 13, 0, 1));
    read_register(readVar(1, 14, 0, 1));
    read_register(readVar(1, -1, 0, 1));  // negative areas compare as large unsigned values
    read_register(readVar(1, 40, 0, 1));
    EXPECT_EQ(queued(0).frame.mid(1, 2), bytes({0x1E, 0x12}));
    EXPECT_EQ(queued(1).frame.mid(1, 2), bytes({0x20, 0x80}));
    EXPECT_EQ(queued(2).frame.mid(1, 2), bytes({0x20, 0x00}));
    EXPECT_EQ(queued(3).frame.mid(1, 2), bytes({0x20, 0x00}));
}

TEST_F(ReadFrameTest, WideFieldsLoseTheirUpperBits) {
    read_register(readVar(0x1234, 14, 0x7ABCDEF, 0x12345));
    const Protocol& p = queued();
    EXPECT_EQ(p.frame.left(1), bytes({0x34}));
    EXPECT_EQ(p.frame.mid(3, 5), bytes({0xAB, 0xCD, 0xEF, 0x23, 0x45}));
    EXPECT_EQ(p.replyLength, 2 * 0x12345 + 5);  // the lengths use the full count
}

TEST_F(ReadFrameTest, ZeroCountAndCallOrder) {
    read_register(readVar(1, 20, 0, 0));
    read_register(readVar(2, 20, 7, 3));
    ASSERT_EQ(PLC_driver.requestQueue.size(), 2);
    EXPECT_EQ(queued(0).frame.mid(6, 2), bytes({0x00, 0x00}));
    EXPECT_EQ(queued(0).replyLength, 5);
    EXPECT_EQ(queued(1).var.station, 2);
    EXPECT_EQ(info.framesInExchange, 1);
}

TEST_F(ReadFrameTest, HugeCountWrapsInsteadOfTrapping) {
    read_register(readVar(1, 14, 0, 0x7FFFFFFF));
    EXPECT_EQ(queued().dataLength, -2);
    EXPECT_EQ(queued().replyLength, 3);
}

TEST_F(ReadFrameTest, ReplyIsJudgedByStationAndCrc) {
    read_register(readVar(1, 14, 100, 2));
    const QByteArray good = withCrc({0x01, 0x20, 0x04, 0x12, 0x34, 0x56, 0x78});
    EXPECT_EQ(CheckGetData(&good), kReplyStore);

    QByteArray swapped = good;
    swapped[7] = good[8];
    swapped[8] = good[7];
    EXPECT_EQ(CheckGetData(&swapped), kReplyInvalid);

    const QByteArray otherStation = withCrc({0x02, 0x20, 0x04, 0x12, 0x34, 0x56, 0x78});
    EXPECT_EQ(CheckGetData(&otherStation), kReplyInvalid);

    const QByteArray tooShort = withCrc({0x01, 0x20, 0x00});
    EXPECT_EQ(tooShort.size(), 5);
    EXPECT_EQ(CheckGetData(&tooShort), kReplyInvalid);

    const QByteArray empty;
    EXPECT_EQ(CheckGetData(&empty), kReplyInvalid);
    EXPECT_EQ(CheckGetData(nullptr), kReplyInvalid);
}

TEST_F(ReadFrameTest, WriteAndBroadcastRepliesCarryNothingToStore) {
    RW_VAR write = readVar(1, 14, 0, 1);
    write.direction = 1;
    read_register(write);
    const QByteArray ack = withCrc({0x01, 0x21, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01});
    EXPECT_EQ(ack.size(), 10);
    EXPECT_EQ(CheckGetData(&ack), kReplyNothingToStore);

    PLC_driver.requestQueue.clear();
    read_register(readVar(0, 14, 0, 1));
    const QByteArray none;
    EXPECT_EQ(CheckGetData(&none), kReplyNothingToStore);
    EXPECT_EQ(CheckGetData(nullptr), kReplyNothingToStore);
}

TEST_F(ReadFrameTest, StationsBeyondOneByteNeverMatch) {
    read_register(readVar(257, 14, 0, 1));
    const QByteArray reply = withCrc({0x01, 0x20, 0x02, 0x00, 0x00});
    EXPECT_EQ(CheckGetData(&reply), kReplyInvalid);
}

TEST_F(ReadFrameTest, NothingQueuedMeansInvalid) {
    const QByteArray reply = withCrc({0x01, 0x20, 0x02, 0x00, 0x00});
    EXPECT_EQ(CheckGetData(&reply), kReplyInvalid);
}
