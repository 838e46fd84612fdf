// Remote frames: the variable's own fields, a length byte and an additive checksum.
#include <gtest/gtest.h>

#include "codec/frames.h"
#include "driver/comm_failed.h"
#include "driver_fixture.h"
#include "hex.h"
#include "request_checks.h"

namespace {

class RemoteFramesTest : public DriverTest {
protected:
    static RW_VAR record(int direction, int count, const char* data, int station = 1) {
        RW_VAR v;
        v.direction = direction;
        v.port = 1;
        v.station = station;
        v.area = 14;
        v.address = 100;
        v.count = count;
        v.data = bytesOf(data);
        return v;
    }

    static const Protocol& request(int i) { return PLC_driver.requestQueue.at(i); }

    static unsigned char sumBeforeLast(const QByteArray& frame) {
        unsigned int sum = 0;
        for (int i = 0; i + 1 < frame.size(); ++i) {
            sum += static_cast<unsigned char>(frame.at(i));
        }
        return static_cast<unsigned char>(sum);
    }
};

TEST_F(RemoteFramesTest, ReadNamesTheVariableByItsOwnFields) {
    info.framesAnswered = 3;
    Remote_ReadVar(record(0, 2, ""));

    ASSERT_EQ(PLC_driver.requestQueue.size(), 1);
    expectRequest(request(0), "16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C",
                  9, 3, 4);
    EXPECT_EQ(request(0).var.address, 100);
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(info.framesAnswered, 0);
}

TEST_F(RemoteFramesTest, WriteCarriesItsPayloadAsHeldAndMirrorsIt) {
    Remote_WriteVar(record(1, 1, "34 12"));

    expectRequest(request(0),
                  "18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4", 10, 0,
                  0);
    EXPECT_EQ(PLC_driver.registerCache.value(0x010E000000000064), 0x1234);

    // Unlike a local write, mirrored while the link is down too.
    setCommFailed(true);
    Remote_WriteVar(record(1, 1, "78 56"));
    EXPECT_EQ(PLC_driver.registerCache.value(0x010E000000000064), 0x5678);
}

TEST_F(RemoteFramesTest, FieldsKeepTheirWidths) {
    RW_VAR v = record(1, 1, "01");
    v.area = 29;
    v.address = 163;
    v.mark = -1;
    v.extra = 0x01020304;
    v.ownerId = 0x1FF;
    Remote_WriteVar(v);

    ASSERT_EQ(PLC_driver.requestQueue.size(), 1);  // no preliminary read
    const QByteArray& f = request(0).frame;
    EXPECT_EQ(hex(f.left(21)), "17 FF 01 01 01 00 1D 00 00 00 A3 00 01 FF FF FF FF 01 02 03 04");
    EXPECT_EQ(static_cast<unsigned char>(f.at(22)), sumBeforeLast(f));
}

TEST_F(RemoteFramesTest, LengthAndChecksumAtTheEdges) {
    Remote_ReadVar(record(0, 0, "", 0));  // a read of nothing still expects its reply frame
    expectRequest(request(0), "16 00 00 01 00 00 0E 00 00 00 64 00 00 00 00 00 00 00 00 00 00 89",
                  5, 3, 0);
    PLC_driver.requestQueue.clear();

    Remote_WriteVar(record(1, 0, "", 0));
    EXPECT_EQ(request(0).frame.size(), 22);
    EXPECT_EQ(static_cast<unsigned char>(request(0).frame.at(0)), 0x16);
    EXPECT_EQ(static_cast<unsigned char>(request(0).frame.at(21)), sumBeforeLast(request(0).frame));
    EXPECT_EQ(request(0).replyLength, 0);

    // 256 bytes: the length byte wraps to 0.
    Remote_WriteVar(record(1, 117, QByteArray(234, '\x01').toHex().constData()));
    EXPECT_EQ(request(1).frame.size(), 256);
    EXPECT_EQ(static_cast<unsigned char>(request(1).frame.at(0)), 0x00);
    EXPECT_EQ(static_cast<unsigned char>(request(1).frame.at(255)),
              sumBeforeLast(request(1).frame));

    // The checksum covers every byte even past the 16-bit length the sum function takes.
    Remote_WriteVar(record(1, 35000, QByteArray(70000, '\x03').toHex().constData()));
    EXPECT_EQ(static_cast<unsigned char>(request(2).frame.at(70021)),
              sumBeforeLast(request(2).frame));
}

}  // namespace
