// The PLC model against the driver: frames the driver builds (or literal frames of the wire
// format) go to the model, and the driver must accept what the model answers. The two sides
// share no code, so agreement here means both follow the same wire format.
#include <gtest/gtest.h>

#include "codec/frames.h"
#include "driver_fixture.h"
#include "plc_model.h"

namespace {

using plcsim::Bytes;

constexpr int kWordArea14 = 0x80;
constexpr int kBitArea0 = 0x01;

Bytes toBytes(const QByteArray& a) {
    return Bytes(a.begin(), a.end());
}
QByteArray toQt(const Bytes& b) {
    return QByteArray(reinterpret_cast<const char*>(b.data()), static_cast<int>(b.size()));
}

RW_VAR var(int station, int area, int address, int count, int direction = 0) {
    RW_VAR v;
    v.station = station;
    v.area = area;
    v.address = address;
    v.count = count;
    v.direction = direction;
    return v;
}

class PlcModelTest : public DriverTest {
protected:
    plcsim::PlcModel plc{{1, 2}};

    // Sends the queued head frame to the model and returns the reply.
    plcsim::Reply exchange() { return plc.handle(toBytes(PLC_driver.requestQueue.first().frame)); }
};

}  // namespace

TEST_F(PlcModelTest, WordReadRoundTrip) {
    plc.setWord(1, kWordArea14, 100, 0x1234);
    plc.setWord(1, kWordArea14, 101, 0x5678);
    read_register(var(1, 14, 100, 2));
    const plcsim::Reply r = exchange();
    ASSERT_TRUE(r.answered);
    EXPECT_EQ(r.bytes, (Bytes{0x01, 0x20, 0x04, 0x12, 0x34, 0x56, 0x78, 0x86, 0x54}));
    EXPECT_EQ(static_cast<int>(r.bytes.size()), PLC_driver.requestQueue.first().replyLength);
    const QByteArray reply = toQt(r.bytes);
    EXPECT_EQ(CheckGetData(&reply), kReplyStore);
}

TEST_F(PlcModelTest, BitReadSendsGroupsLowByteFirst) {
    plc.setBit(1, kBitArea0, 32, true);  // group 2, bit 0
    plc.setBit(1, kBitArea0, 47, true);  // group 2, bit 15
    read_register(var(1, 0, 2, 1));
    const plcsim::Reply r = exchange();
    ASSERT_TRUE(r.answered);
    ASSERT_EQ(r.bytes.size(), 7u);
    EXPECT_EQ(r.bytes[3], 0x01);
    EXPECT_EQ(r.bytes[4], 0x80);
    const QByteArray reply = toQt(r.bytes);
    EXPECT_EQ(CheckGetData(&reply), kReplyStore);
}

TEST_F(PlcModelTest, LocalWritesChangeMemoryAndAreAcknowledged) {
    // Words 100 and 101, high byte first on the wire.
    plcsim::Reply r = plc.handle(
        {0x01, 0x21, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x04, 0x12, 0x34, 0x56, 0x78, 0x58, 0x19});
    EXPECT_EQ(plc.word(1, kWordArea14, 100), 0x1234);
    EXPECT_EQ(plc.word(1, kWordArea14, 101), 0x5678);
    ASSERT_TRUE(r.answered);
    EXPECT_EQ(r.bytes.size(), 10u);
    read_register(var(1, 14, 100, 2, 1));
    const QByteArray ack = toQt(r.bytes);
    EXPECT_EQ(CheckGetData(&ack), kReplyNothingToStore);

    // The completed second frame of a bit-in-word write: word 10 becomes 0x0008.
    r = plc.handle({0x01, 0x21, 0x80, 0x00, 0x00, 0x0A, 0x00, 0x01, 0x02, 0x00, 0x08, 0x92, 0x21});
    EXPECT_TRUE(r.answered);
    EXPECT_EQ(plc.word(1, kWordArea14, 10), 0x0008);
}

TEST_F(PlcModelTest, RemoteFramesUseAreaIndicesAndASum) {
    plc.setWord(1, kWordArea14, 100, 0xBEEF);
    plcsim::Reply r =
        plc.handle({0x16, 0x00, 0x00, 0x01, 0x01, 0x00, 0x0E, 0x00, 0x00, 0x00, 0x64,
                    0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x8C});
    ASSERT_TRUE(r.answered);
    EXPECT_EQ(r.bytes.size(), 9u);
    EXPECT_EQ(r.bytes[3], 0xBE);
    EXPECT_EQ(r.bytes[4], 0xEF);

    // A remote word payload is low byte first.
    r = plc.handle({0x18, 0x00, 0x01, 0x01, 0x01, 0x00, 0x0E, 0x00, 0x00, 0x00, 0x64, 0x00,
                    0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x34, 0x12, 0xD4});
    ASSERT_TRUE(r.answered);
    EXPECT_EQ(r.bytes.size(), 10u);
    EXPECT_EQ(plc.word(1, kWordArea14, 100), 0x1234);
}

TEST_F(PlcModelTest, BroadcastsAreCarriedOutSilently) {
    plcsim::Reply r =
        plc.handle({0x00, 0x21, 0x80, 0x00, 0x00, 0x05, 0x00, 0x01, 0x02, 0xAB, 0xCD, 0x00, 0x00});
    Bytes frame{0x00, 0x21, 0x80, 0x00, 0x00, 0x05, 0x00, 0x01, 0x02, 0xAB, 0xCD};
    const std::uint16_t crc = plcsim::crc16(frame.data(), frame.size());
    frame.push_back(crc & 0xFF);
    frame.push_back(crc >> 8);
    EXPECT_FALSE(r.answered);  // bad CRC: ignored
    EXPECT_EQ(plc.word(1, kWordArea14, 5), 0);
    r = plc.handle(frame);
    EXPECT_FALSE(r.answered);
    EXPECT_EQ(plc.word(1, kWordArea14, 5), 0xABCD);
    EXPECT_EQ(plc.word(2, kWordArea14, 5), 0xABCD);
}

TEST_F(PlcModelTest, UnservedStationsAndGarbageGetNoAnswer) {
    read_register(var(3, 14, 0, 1));
    EXPECT_FALSE(exchange().answered);
    EXPECT_FALSE(plc.handle({}).answered);
    EXPECT_FALSE(plc.handle(Bytes(40, 0xFF)).answered);
    EXPECT_EQ(plc.stats().ignored, 3);
}

TEST_F(PlcModelTest, FaultsAreRepeatableAndCaughtByTheDriver) {
    plcsim::Faults faults;
    faults.misaddress = 1.0;
    plc.setFaults(faults);
    read_register(var(1, 14, 0, 1));
    plcsim::Reply r = exchange();
    ASSERT_TRUE(r.answered);
    QByteArray reply = toQt(r.bytes);
    EXPECT_EQ(CheckGetData(&reply), kReplyInvalid);  // right CRC, wrong station

    faults = plcsim::Faults();
    faults.corrupt = 1.0;
    plc.setFaults(faults);
    reply = toQt(exchange().bytes);
    EXPECT_EQ(CheckGetData(&reply), kReplyInvalid);

    faults = plcsim::Faults();
    faults.drop = 0.5;
    faults.seed = 42;
    auto pattern = [&] {
        plc.setFaults(faults);
        std::string answered;
        for (int i = 0; i < 32; ++i) {
            answered += exchange().answered ? '1' : '0';
        }
        return answered;
    };
    const std::string first = pattern();
    EXPECT_EQ(pattern(), first);
    EXPECT_NE(first.find('0'), std::string::npos);
    EXPECT_NE(first.find('1'), std::string::npos);
}
