// Local write frames: bit and word writes, and the two-frame bit-of-word write.
#include <gtest/gtest.h>

#include "codec/frames.h"
#include "driver/comm_failed.h"
#include "driver_fixture.h"
#include "hex.h"
#include "request_checks.h"

namespace {

class WriteFramesTest : public DriverTest {
protected:
    static RW_VAR record(int area, int address, int count, const char* data, int station = 1) {
        RW_VAR v;
        v.area = area;
        v.address = address;
        v.count = count;
        v.station = station;
        v.direction = 1;
        v.port = 1;
        v.data = bytesOf(data);
        return v;
    }

    static const Protocol& request(int i) { return PLC_driver.requestQueue.at(i); }

    static bool crcHolds(const QByteArray& frame) {
        QByteArray f = frame;
        const unsigned short crc = CalCRC(reinterpret_cast<unsigned char*>(f.data()),
                                          static_cast<unsigned short>(f.size() - 2));
        return static_cast<unsigned char>(f.at(f.size() - 2)) == (crc & 0xFF) &&
               static_cast<unsigned char>(f.at(f.size() - 1)) == (crc >> 8);
    }
};

TEST_F(WriteFramesTest, WordWriteSendsEachWordHighByteFirst) {
    info.framesAnswered = 5;
    write_analog(record(14, 100, 2, "34 12 78 56"));

    ASSERT_EQ(PLC_driver.requestQueue.size(), 1);
    expectRequest(request(0), "01 21 80 00 00 64 00 02 04 12 34 56 78 58 19", 10, 0, 0);
    EXPECT_EQ(request(0).var.address, 100);
    EXPECT_EQ(hex(request(0).var.data), "34 12 78 56");
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(info.framesAnswered, 0);
}

TEST_F(WriteFramesTest, OnlySomeBitAreasAreWrittenBitByBit) {
    struct Case {
        int area;
        const char* functionAndCode;
    };
    const Case cases[] = {{7, "1F 0D"},  {1, "1F 02"},  {5, "1F 06"},  {6, "21 07"}, {0, "21 01"},
                          {13, "21 12"}, {28, "21 8B"}, {30, "21 00"}, {-1, "21 00"}};
    for (const Case& c : cases) {
        resetDriver();
        write_analog(record(c.area, 0, 1, "01 00"));
        EXPECT_EQ(hex(request(0).frame.mid(1, 2)), c.functionAndCode) << "area " << c.area;
    }
}

TEST_F(WriteFramesTest, BitWriteSendsItsPayloadAsPacked) {
    write_analog(record(2, 35, 3, "05"));
    const QByteArray& frame = request(0).frame;
    EXPECT_EQ(hex(frame.left(10)), "01 1F 03 00 00 23 00 03 01 05");  // bit address unscaled
    EXPECT_EQ(frame.size(), 12);
    EXPECT_TRUE(crcHolds(frame));
}

TEST_F(WriteFramesTest, PayloadLengthsAtTheEdges) {
    write_analog(record(14, 1, 0, "", 0));
    EXPECT_EQ(request(0).replyLength, 0);  // station 0 never answers
    EXPECT_EQ(hex(request(0).frame.left(9)), "00 21 80 00 00 01 00 00 00");
    EXPECT_EQ(request(0).frame.size(), 11);
    EXPECT_TRUE(crcHolds(request(0).frame));

    // An odd word payload goes out padded to whole words.
    write_analog(record(14, 100, 2, "34 12 78"));
    EXPECT_EQ(hex(request(1).frame.mid(8, 5)), "04 12 34 00 78");
    EXPECT_TRUE(crcHolds(request(1).frame));

    // The length byte keeps its low 8 bits; the whole payload is sent.
    write_analog(record(3, 0, 2400, QByteArray(300, '\x11').toHex().constData()));
    EXPECT_EQ(request(2).frame.size(), 311);
    EXPECT_EQ(static_cast<unsigned char>(request(2).frame.at(8)), 300 & 0xFF);
}

// The frame buffer holds 2048 bytes: 11 of header and CRC, so at most 2037 payload bytes.
TEST_F(WriteFramesTest, APayloadBeyondTheFrameBufferIsNeverSent) {
    PLC_driver.registerCache.insert(1, 0x5555);  // the member just after frameBuf
    write_analog(record(3, 0, 8 * 2037, QByteArray(2037, '\x01').toHex().constData()));
    EXPECT_EQ(request(0).frame.size(), 2048);
    EXPECT_TRUE(crcHolds(request(0).frame));

    write_analog(record(14, 0, 1018, QByteArray(2036, '\x01').toHex().constData()));
    EXPECT_EQ(request(1).frame.size(), 2047);

    const RW_VAR tooLong[] = {
        record(3, 0, 8 * 2038, QByteArray(2038, '\x01').toHex().constData()),
        record(14, 0, 1019, QByteArray(2037, '\x01').toHex().constData()),  // 2038 once padded
        record(14, 0, 5000, QByteArray(10000, '\x01').toHex().constData(), 0),
    };
    for (const RW_VAR& v : tooLong) {
        PLC_driver.requestQueue.clear();
        info.framesInExchange = 0;
        write_register(v);
        ASSERT_EQ(PLC_driver.requestQueue.size(), 1);
        // Nothing to send, and a reply that cannot come: the exchange fails and the host hears.
        EXPECT_TRUE(request(0).frame.isEmpty());
        EXPECT_EQ(request(0).sendLength, 0);
        EXPECT_EQ(request(0).replyLength, 10);
        EXPECT_EQ(info.framesInExchange, 1);
    }
    // Not mirrored either, and nothing beyond frameBuf was touched.
    EXPECT_EQ(PLC_driver.registerCache.size(), 1);
    EXPECT_EQ(PLC_driver.registerCache.value(1), 0x5555);
}

TEST_F(WriteFramesTest, BitOfWordWriteReadsTheWordThenWritesIt) {
    RW_VAR v = record(29, 163, 1, "01");  // word 10, bit 3
    v.ownerId = 4;
    write_analog_bit(v);

    ASSERT_EQ(PLC_driver.requestQueue.size(), 2);
    const Protocol& read = request(0);
    expectRequest(read, "01 20 80 00 00 0A 00 01 5E 07", 7, 3, 2);
    EXPECT_EQ(read.var.direction, 0);
    EXPECT_EQ(read.var.mark, -1);
    EXPECT_EQ(read.var.address, 163);  // the record itself, not the word it reads
    EXPECT_EQ(read.var.ownerId, 4);

    const Protocol& write = request(1);
    expectRequest(write, "01 21 80 00 00 0A 00 01 02 00 00 00 00", 10, 0, 0);
    EXPECT_EQ(write.var.direction, 1);
    EXPECT_EQ(write.var.mark, 0);

    EXPECT_EQ(info.framesInExchange, 2);
    EXPECT_EQ(info.framesAnswered, 0);

    // Station 0 answers both frames of this write.
    resetDriver();
    write_analog_bit(record(29, 163, 1, "01", 0));
    EXPECT_EQ(request(0).replyLength, 7);
    EXPECT_EQ(request(1).replyLength, 10);
}

TEST_F(WriteFramesTest, WriteRegisterMirrorsUnlessTheLinkIsDown) {
    const quint64 word10 = quint64(1) << 56 | quint64(14) << 48 | 10;

    write_register(record(14, 10, 1, "34 12"));
    EXPECT_EQ(PLC_driver.requestQueue.size(), 1);
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(PLC_driver.registerCache.value(word10), 0x1234);

    write_register(record(29, 163, 1, "01"));
    EXPECT_EQ(PLC_driver.requestQueue.size(), 3);
    EXPECT_EQ(info.framesInExchange, 2);
    EXPECT_EQ(PLC_driver.registerCache.value(word10), 0x123C);

    setCommFailed(true);
    write_register(record(14, 10, 1, "00 00"));
    write_register(record(29, 163, 1, "00"));
    EXPECT_EQ(PLC_driver.requestQueue.size(), 6);
    EXPECT_EQ(PLC_driver.registerCache.value(word10), 0x123C);
}

}  // namespace
