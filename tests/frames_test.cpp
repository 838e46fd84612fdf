// Frames on the wire: area codes, local read and write frames, the two-frame bit-of-word write,
// remote frames, and the judging of replies. Frames are exact vectors, check values included.
#include <iterator>

#include "loaded_driver.h"

namespace {

class Frames : public DriverTest {
protected:
    static bool crcHolds(const QByteArray& frame) {
        return frame.size() >= 2 && withCrc(frame.left(frame.size() - 2)) == frame;
    }
    static bool sumHolds(const QByteArray& frame) {
        unsigned int sum = 0;
        for (int i = 0; i + 1 < frame.size(); ++i) {
            sum += static_cast<unsigned char>(frame.at(i));
        }
        return static_cast<unsigned char>(sum) ==
               static_cast<unsigned char>(frame.at(frame.size() - 1));
    }
};

}  // namespace

// The PLC model keeps its own table of the family's area codes: the two must agree.
TEST_F(Frames, AreaCodesFollowTheTableIncludingItsIrregularEntries) {
    const auto code = exported<unsigned char (*)(Communication_Protocol*, unsigned char)>(
        symbolOf("Communication_Protocol::register_identifier").c_str());
    for (int area = 0; area <= 28; ++area) {
        EXPECT_EQ(code(&driver, static_cast<unsigned char>(area)),
                  plcsim::PlcModel::areaCodeOfIndex(area))
            << area;
    }
    EXPECT_EQ(code(&driver, 7), 0x0D);  // the irregular ones, by name
    EXPECT_EQ(code(&driver, 25), 0x91);
    EXPECT_EQ(code(&driver, 29), 0);
    EXPECT_EQ(code(&driver, 255), 0);
}

// Bit areas are requested in bits, 16 per group the variable counts; fields wider than the frame
// lose their upper bits, while the expected lengths use the full count.
TEST_F(Frames, ReadFramesQueueInCallOrder) {
    const struct {
        RW_VAR record;
        const char* frame;
        int replyLength;
    } cases[] = {
        {var(14, 100, 2), "01 20 80 00 00 64 00 02 7F DB", 9},
        {var(0, 2, 1), "01 1E 01 00 00 20 00 10 7E 11", 7},
        {var(2, 4096, 1), "01 1E 03 01 00 00 00 10 43 F9", 7},  // bit 65536
        {var(13, 0, 1), "01 1E 12 00 00 00 00 10 7D 78", 7},
        {var(-1, 0, 1), "01 20 00 00 00 00 00 01 61 C5", 7},  // negative areas compare unsigned
        {var(40, 0, 1), "01 20 00 00 00 00 00 01 61 C5", 7},
        {var(20, 7, 0), "01 20 88 00 00 07 00 00 0F 4C", 5},
        {var(14, 0x7ABCDEF, 0x12345, 0x1234), "34 20 80 AB CD EF 23 45 8E AC", 2 * 0x12345 + 5},
        {var(14, 0, 0x7FFFFFFF), "01 20 80 00 00 00 FF FF BE 75", 3},  // wraps, no trap
    };
    info.framesAnswered = 5;
    for (const auto& c : cases) {
        read_register(c.record);
    }
    ASSERT_EQ(driver.requestQueue.size(), static_cast<int>(std::size(cases)));
    for (int i = 0; i < driver.requestQueue.size(); ++i) {
        const int replyLength = cases[i].replyLength;
        expectRequest(request(i), cases[i].frame, replyLength, 3, replyLength - 5);
        EXPECT_EQ(request(i).var.address, cases[i].record.address);
    }
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(info.framesAnswered, 0);
}

TEST_F(Frames, RepliesAreJudgedByStationAndCrc) {
    const QByteArray good = bytesOf("01 20 04 12 34 56 78 86 54");
    EXPECT_EQ(CheckGetData(&good), kReplyInvalid);  // nothing queued
    const struct {
        RW_VAR head;
        QByteArray reply;
        int verdict;
    } cases[] = {
        {var(14, 100, 2), good, kReplyStore},
        {var(14, 100, 2), bytesOf("01 20 04 12 35 56 78 86 54"), kReplyInvalid},
        {var(14, 100, 2), bytesOf("01 20 04 12 34 56 78 54 86"), kReplyInvalid},  // CRC swapped
        {var(14, 100, 2), withCrc(bytesOf("02 20 04 12 34 56 78")), kReplyInvalid},
        {var(14, 0, 1), withCrc(bytesOf("01 20 00")), kReplyInvalid},  // 5 bytes are too short
        {var(14, 0, 1), QByteArray(), kReplyInvalid},
        {var(14, 0, 1, 257), withCrc(bytesOf("01 20 02 00 00")), kReplyInvalid},
        {writeVar(14, 0, 1, ""), withCrc(bytesOf("01 21 00 00 00 00 00 01")), kReplyNothingToStore},
        {var(14, 0, 1, 0), QByteArray(), kReplyNothingToStore},  // a broadcast gets no answer
    };
    for (const auto& c : cases) {
        driver.requestQueue.clear();
        read_register(c.head);
        EXPECT_EQ(CheckGetData(&c.reply), c.verdict) << hex(c.reply);
        EXPECT_EQ(CheckGetData(nullptr),
                  c.head.station == 0 ? kReplyNothingToStore : kReplyInvalid);
    }
}

// Only areas 1..5 and 7 are written bit by bit. Word payloads are held low byte first and sent
// high byte first, an odd one padded to whole words; addresses are never scaled.
TEST_F(Frames, LocalWriteFrames) {
    const struct {
        RW_VAR record;
        const char* frame;
    } cases[] = {
        {writeVar(14, 100, 2, "34 12 78 56"), "01 21 80 00 00 64 00 02 04 12 34 56 78 58 19"},
        {writeVar(7, 0, 1, "01 00"), "01 1F 0D 00 00 00 00 01 02 01 00 CA 81"},
        {writeVar(1, 0, 1, "01 00"), "01 1F 02 00 00 00 00 01 02 01 00 8B 71"},
        {writeVar(5, 0, 1, "01 00"), "01 1F 06 00 00 00 00 01 02 01 00 B9 B1"},
        {writeVar(6, 0, 1, "01 00"), "01 21 07 00 00 00 00 01 02 00 01 15 7B"},
        {writeVar(0, 0, 1, "01 00"), "01 21 01 00 00 00 00 01 02 00 01 3E DB"},
        {writeVar(13, 0, 1, "01 00"), "01 21 12 00 00 00 00 01 02 00 01 E7 EB"},
        {writeVar(28, 0, 1, "01 00"), "01 21 8B 00 00 00 00 01 02 00 01 21 BD"},
        {writeVar(30, 0, 1, "01 00"), "01 21 00 00 00 00 00 01 02 00 01 33 4B"},
        {writeVar(-1, 0, 1, "01 00"), "01 21 00 00 00 00 00 01 02 00 01 33 4B"},
        {writeVar(2, 35, 3, "05"), "01 1F 03 00 00 23 00 03 01 05 19 B3"},
        {writeVar(14, 100, 2, "34 12 78"), "01 21 80 00 00 64 00 02 04 12 34 00 78 67 B9"},
        {writeVar(14, 1, 0, "", 0), "00 21 80 00 00 01 00 00 00 49 10"},  // station 0: no reply
    };
    for (const auto& c : cases) {
        driver.requestQueue.clear();
        info.framesAnswered = 5;
        write_analog(c.record);
        ASSERT_EQ(driver.requestQueue.size(), 1);
        expectRequest(request(0), c.frame, c.record.station == 0 ? 0 : 10, 0, 0);
        EXPECT_EQ(request(0).var.data, c.record.data);
        EXPECT_EQ(info.framesInExchange, 1);
        EXPECT_EQ(info.framesAnswered, 0);
    }

    // The length byte keeps its low 8 bits; the whole payload is sent.
    write_analog(writeVar(3, 0, 2400, QByteArray(300, '\x11').toHex().constData()));
    EXPECT_EQ(request(1).frame.size(), 311);
    EXPECT_EQ(static_cast<unsigned char>(request(1).frame.at(8)), 300 & 0xFF);
    EXPECT_TRUE(crcHolds(request(1).frame));
}

// The frame buffer holds 2048 bytes: 11 of header and CRC, so at most 2037 payload bytes. A
// longer record queues nothing and is not mirrored (the scheduler reports it failed before it
// gets here), and nothing beyond the frame buffer is touched.
TEST_F(Frames, APayloadBeyondTheFrameBufferIsNeverSent) {
    driver.registerCache.insert(1, 0x5555);  // the member just after frameBuf
    write_analog(writeVar(3, 0, 8 * 2037, QByteArray(2037, '\x01').toHex().constData()));
    write_analog(writeVar(14, 0, 1018, QByteArray(2036, '\x01').toHex().constData()));
    EXPECT_EQ(request(0).frame.size(), 2048);
    EXPECT_TRUE(crcHolds(request(0).frame));
    EXPECT_EQ(request(1).frame.size(), 2047);

    const RW_VAR tooLong[] = {
        writeVar(3, 0, 8 * 2038, QByteArray(2038, '\x01').toHex().constData()),
        writeVar(14, 0, 1019, QByteArray(2037, '\x01').toHex().constData()),  // 2038 padded
        writeVar(14, 0, 5000, QByteArray(10000, '\x01').toHex().constData(), 0),
    };
    driver.requestQueue.clear();
    info.framesInExchange = 0;
    for (const RW_VAR& v : tooLong) {
        write_register(v);
        write_analog(v);
    }
    EXPECT_TRUE(driver.requestQueue.isEmpty());
    EXPECT_EQ(info.framesInExchange, 0);
    EXPECT_EQ(image(), (Image{{1, 0x5555}}));
}

// The PLC writes whole words: a word read marked -1, then a one-word write whose word and CRC
// the read's reply completes. Station 0 answers both frames of this write.
TEST_F(Frames, BitOfWordWriteReadsTheWordThenWritesIt) {
    RW_VAR v = writeVar(29, 163, 1, "01");  // word 10, bit 3
    v.ownerId = 4;
    write_analog_bit(v);
    ASSERT_EQ(driver.requestQueue.size(), 2);
    expectRequest(request(0), "01 20 80 00 00 0A 00 01 5E 07", 7, 3, 2);
    expectRequest(request(1), "01 21 80 00 00 0A 00 01 02 00 00 00 00", 10, 0, 0);
    EXPECT_EQ(std::vector<int>({request(0).var.direction, request(0).var.mark,
                                request(0).var.address, request(0).var.ownerId}),
              std::vector<int>({0, -1, 163, 4}));  // the record itself, not the word it reads
    EXPECT_EQ(std::vector<int>({request(1).var.direction, request(1).var.mark}),
              std::vector<int>({1, 0}));
    EXPECT_EQ(info.framesInExchange, 2);
    EXPECT_EQ(info.framesAnswered, 0);

    driver.requestQueue.clear();
    write_analog_bit(writeVar(29, 163, 1, "01", 0));
    EXPECT_EQ(request(0).replyLength, 7);
    EXPECT_EQ(request(1).replyLength, 10);
}

TEST_F(Frames, WriteRegisterMirrorsUnlessTheLinkIsDown) {
    write_register(writeVar(14, 10, 1, "34 12"));
    EXPECT_EQ(driver.requestQueue.size(), 1);
    EXPECT_EQ(info.framesInExchange, 1);
    EXPECT_EQ(word(14, 10), 0x1234);

    write_register(writeVar(29, 163, 1, "01"));
    EXPECT_EQ(driver.requestQueue.size(), 3);
    EXPECT_EQ(info.framesInExchange, 2);
    EXPECT_EQ(word(14, 10), 0x123C);

    driver.commFailed = 1;
    write_register(writeVar(14, 10, 1, "00 00"));
    write_register(writeVar(29, 163, 1, "00"));
    EXPECT_EQ(driver.requestQueue.size(), 6);
    EXPECT_EQ(word(14, 10), 0x123C);
}

// Remote frames name the variable by its own fields, start with their length and end in the low
// byte of their sum. Writes go out as held, without a preliminary read, and are mirrored even
// while the link is down.
TEST_F(Frames, RemoteFrames) {
    RW_VAR wide = writeVar(29, 163, 1, "01");
    wide.mark = -1;
    wide.extra = 0x01020304;
    wide.ownerId = 0x1FF;
    const struct {
        RW_VAR record;
        const char* frame;
        int replyLength, dataOffset, dataLength;
    } cases[] = {
        {var(14, 100, 2), "16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C", 9, 3,
         4},
        {writeVar(14, 100, 1, "34 12"),
         "18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4", 10, 0, 0},
        {wide, "17 FF 01 01 01 00 1D 00 00 00 A3 00 01 FF FF FF FF 01 02 03 04 01 E1", 10, 0, 0},
        {var(14, 100, 0, 0), "16 00 00 01 00 00 0E 00 00 00 64 00 00 00 00 00 00 00 00 00 00 89", 5,
         3, 0},
        {writeVar(14, 100, 0, "", 0),
         "16 00 01 01 00 00 0E 00 00 00 64 00 00 00 00 00 00 00 00 00 00 8A", 0, 0, 0},
    };
    for (const auto& c : cases) {
        driver.requestQueue.clear();
        info.framesAnswered = 3;
        (c.record.direction != 0 ? Remote_WriteVar : Remote_ReadVar)(c.record);
        ASSERT_EQ(driver.requestQueue.size(), 1);
        expectRequest(request(0), c.frame, c.replyLength, c.dataOffset, c.dataLength);
        EXPECT_EQ(info.framesInExchange, 1);
        EXPECT_EQ(info.framesAnswered, 0);
    }
    EXPECT_EQ(word(14, 100), 0x1234);
    driver.commFailed = 1;
    Remote_WriteVar(writeVar(14, 100, 1, "78 56"));
    EXPECT_EQ(word(14, 100), 0x5678);

    // 256 bytes: the length byte wraps to 0. The sum covers every byte even past the 16-bit
    // length the sum function takes.
    Remote_WriteVar(writeVar(14, 100, 117, QByteArray(234, '\x01').toHex().constData()));
    Remote_WriteVar(writeVar(14, 100, 35000, QByteArray(70000, '\x03').toHex().constData()));
    EXPECT_EQ(request(2).frame.size(), 256);
    EXPECT_EQ(request(2).frame.at(0), 0);
    EXPECT_TRUE(sumHolds(request(2).frame));
    EXPECT_EQ(request(3).frame.size(), 70022);
    EXPECT_TRUE(sumHolds(request(3).frame));
}
