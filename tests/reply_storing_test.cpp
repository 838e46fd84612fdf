// Read replies reaching the register image, and the completion of bit-of-word writes.
#include <gtest/gtest.h>

#include "codec/frames.h"
#include "driver_fixture.h"
#include "hex.h"
#include "image/register_image.h"
#include "replies.h"

namespace {

class ReplyStoringTest : public DriverTest {
protected:
    // Queues the read the reply answers, as the scheduler would.
    static void queueRead(int area, int address, int count, int station = 1) {
        RW_VAR v;
        v.area = area;
        v.address = address;
        v.count = count;
        v.station = station;
        read_register(v);
    }

    static void store(QByteArray reply) {
        SaveToLocalDataErea(&reply);
        PLC_driver.requestQueue.removeFirst();
    }

    static quint16 cached(quint64 key) { return PLC_driver.registerCache.value(key); }
};

TEST_F(ReplyStoringTest, WordAreasArriveHighByteFirstUnderConsecutiveKeys) {
    queueRead(14, 100, 2);
    store(replyCarrying("12 34 AB CD"));

    EXPECT_EQ(PLC_driver.registerCache.size(), 2);
    EXPECT_EQ(cached(0x010E000000000064), 0x1234);
    EXPECT_EQ(cached(0x010E000000000065), 0xABCD);
}

TEST_F(ReplyStoringTest, BitGroupsArriveBitsZeroToSevenFirst) {
    queueRead(2, 3, 1);
    store(replyCarrying("01 80"));

    EXPECT_EQ(cached(0x0102000000000003), 0x8001);  // bits 48 and 63
}

TEST_F(ReplyStoringTest, StationsAndAreasKeepApartAndTheLaterStoreWins) {
    queueRead(29, 7, 1);  // bit-of-word data live in the words of area 14
    store(replyCarrying("00 09"));
    queueRead(14, 7, 1, 1);
    store(replyCarrying("00 01"));  // the same word as the bit-of-word read
    queueRead(14, 7, 1, 2);
    store(replyCarrying("00 02"));
    queueRead(15, 7, 1, 1);
    store(replyCarrying("00 03"));
    EXPECT_EQ(PLC_driver.registerCache.size(), 3);

    queueRead(14, 7, 1, 1);
    store(replyCarrying("00 04"));
    EXPECT_EQ(PLC_driver.registerCache.size(), 3);
    EXPECT_EQ(cached(0x010E000000000007), 4);
    EXPECT_EQ(cached(0x020E000000000007), 2);
    EXPECT_EQ(cached(0x010F000000000007), 3);
}

TEST_F(ReplyStoringTest, StoresNothingItHasNoDataFor) {
    QByteArray reply = replyCarrying("12 34");
    SaveToLocalDataErea(&reply);  // nothing queued
    SaveToLocalDataErea(nullptr);
    queueRead(14, 1, 0);  // a zero-word read: no data span
    store(withCrc(bytesOf("01 20 00")));
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());

    // A reply shorter than its request stores only the whole words it holds.
    queueRead(14, 1, 3);
    QByteArray shortReply = bytesOf("01 20 06 12 34 56");
    store(shortReply);
    EXPECT_EQ(PLC_driver.registerCache.size(), 1);
    EXPECT_EQ(cached(0x010E000000000001), 0x1234);
}

// The bit-of-word write: the reply to its word read completes the queued word write.
class BitOfWordCompletionTest : public ReplyStoringTest {
protected:
    static void queueBitWrite(int address, const char* value) {
        RW_VAR v;
        v.area = 29;
        v.address = address;
        v.count = 1;
        v.station = 1;
        v.direction = 1;
        v.data = bytesOf(value);
        write_analog_bit(v);
    }

    static std::string pendingWrite() { return hex(PLC_driver.requestQueue.at(1).frame); }

    static void answerRead(const char* word) {
        QByteArray reply = replyCarrying(word);
        SaveToLocalDataErea(&reply);
    }
};

TEST_F(BitOfWordCompletionTest, PatchesTheWordAndItsCheckValueAndStoresNothing) {
    queueBitWrite(163, "01");  // word 10, bit 3
    ASSERT_EQ(pendingWrite(), "01 21 80 00 00 0A 00 01 02 00 00 00 00");

    answerRead("00 00");
    EXPECT_EQ(pendingWrite(), "01 21 80 00 00 0A 00 01 02 00 08 92 21");
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());
    EXPECT_EQ(PLC_driver.requestQueue.size(), 2);
}

TEST_F(BitOfWordCompletionTest, KeepsTheOtherBitsOfTheWordRead) {
    queueBitWrite(163, "01");
    answerRead("00 10");
    EXPECT_EQ(pendingWrite().substr(27, 5), "00 18");

    resetDriver();
    queueBitWrite(164, "00");  // clear bit 4
    answerRead("00 10");
    EXPECT_EQ(pendingWrite().substr(27, 5), "00 00");

    resetDriver();
    queueBitWrite(175, "");  // an empty payload clears too
    answerRead("FF FF");
    EXPECT_EQ(pendingWrite().substr(27, 5), "7F FF");
}

TEST_F(BitOfWordCompletionTest, LeavesTheWriteAloneWithoutAWordToWorkOn) {
    queueBitWrite(163, "01");
    QByteArray sixBytes = withCrc(bytesOf("01 20 02 00"));
    SaveToLocalDataErea(&sixBytes);
    EXPECT_EQ(pendingWrite(), "01 21 80 00 00 0A 00 01 02 00 00 00 00");

    // Only the read left in the queue: nothing to complete, nothing stored.
    PLC_driver.requestQueue.removeLast();
    answerRead("00 00");
    EXPECT_EQ(PLC_driver.requestQueue.size(), 1);
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());
}

// The write is completed from the queued requests alone: writeList may be changing on a host
// thread while the reply is handled, and is not consulted.
TEST_F(BitOfWordCompletionTest, DependsOnTheQueuedRequestsNotOnWriteList) {
    queueBitWrite(163, "01");
    RW_VAR other;
    other.area = 29;
    other.address = 163;
    AddListWriteVar(&other);  // a record that would clear the bit

    answerRead("00 00");
    EXPECT_EQ(pendingWrite(), "01 21 80 00 00 0A 00 01 02 00 08 92 21");
}

}  // namespace
