// The frame builders called directly: area codes, fields at their edges, the reply each frame
// expects, and the judging of replies. Frames are exact, check values included.
#include "loaded_driver.h"

namespace {

// A write of `bytes` bytes of `value`.
RW_VAR filled(int area, int address, int count, int bytes, char value, int station = 1) {
    RW_VAR v = writeVar(area, address, count, "", station);
    v.data = QByteArray(bytes, value);
    return v;
}

class Frames : public DriverTest {};

}  // namespace

// One frame an exchange, or for a bit of a word the word's read (which station 0 answers too) and
// its write. Bit areas are read 16 bits per unit; only areas 1..5 and 7 are written bit by bit;
// word payloads are held low byte first, sent high byte first, an odd one padded. Fields lose
// their upper bits, expected lengths use the full count. Station 0 answers no write.
TEST_F(Frames, FramesAndTheRepliesTheyExpect) {
    const int bitOfWord = korvan::kAreaBitOfWord, none = korvan::kReplyNone;
    RW_VAR wide = writeVar(bitOfWord, 163, 1, "01");
    wide.mark = korvan::kMarkBitOfWordRead;
    wide.extra = 0x01020304;
    wide.ownerId = 0x1FF;
    const auto rd = read_register, wr = write_analog, bitWr = write_analog_bit,
               remoteRd = Remote_ReadVar, remoteWr = Remote_WriteVar;
    // builder, record, frame, reply length, data offset, data length
    const std::tuple<void (*)(const RW_VAR&), RW_VAR, const char*, int, int, int> cases[] = {
        // clang-format off
        {rd, var(0, 2, 1), "01 1E 01 00 00 20 00 10 7E 11", 7, 3, 2},
        {rd, var(2, 4096, 1), "01 1E 03 01 00 00 00 10 43 F9", 7, 3, 2},  // bit 65536
        {rd, var(13, 0, 1), "01 1E 12 00 00 00 00 10 7D 78", 7, 3, 2},
        {rd, var(-1, 0, 1), "01 20 00 00 00 00 00 01 61 C5", 7, 3, 2},  // compared unsigned
        {rd, var(korvan::kAreaBitOfWord + 1, 0, 1), "01 20 00 00 00 00 00 01 61 C5", 7, 3, 2},
        {rd, var(20, 7, 0), "01 20 88 00 00 07 00 00 0F 4C", 5, 3, 0},
        {rd, var(14, 0x7ABCDEF, 0x12345, 0x1234), "34 20 80 AB CD EF 23 45 8E AC", 0x2468F, 3, 0x2468A},
        {rd, var(14, 0, 0x7FFFFFFF), "01 20 80 00 00 00 FF FF BE 75", 3, 3, -2},  // wraps, no trap
        {wr, writeVar(7, 0, 1, "01 00"), "01 1F 0D 00 00 00 00 01 02 01 00 CA 81", 10, 0, 0},
        {wr, writeVar(1, 0, 1, "01 00"), "01 1F 02 00 00 00 00 01 02 01 00 8B 71", 10, 0, 0},
        {wr, writeVar(5, 0, 1, "01 00"), "01 1F 06 00 00 00 00 01 02 01 00 B9 B1", 10, 0, 0},
        {wr, writeVar(6, 0, 1, "01 00"), "01 21 07 00 00 00 00 01 02 00 01 15 7B", 10, 0, 0},
        {wr, writeVar(13, 0, 1, "01 00"), "01 21 12 00 00 00 00 01 02 00 01 E7 EB", 10, 0, 0},
        {wr, writeVar(-1, 0, 1, "01 00"), "01 21 00 00 00 00 00 01 02 00 01 33 4B", 10, 0, 0},
        {wr, writeVar(14, 100, 2, "34 12 78"), "01 21 80 00 00 64 00 02 04 12 34 00 78 67 B9", 10, 0, 0},
        {wr, writeVar(14, 1, 0, "", 0), "00 21 80 00 00 01 00 00 00 49 10", none, 0, 0},
        {bitWr, writeVar(bitOfWord, 163, 1, "01", 0), "00 20 80 00 00 0A 00 01 9F CB | 00 21 80 00 00 0A 00 01 02 00 00 00 00", 7, 3, 2},
        {remoteWr, wide, "17 FF 01 01 01 00 1D 00 00 00 A3 00 01 FF FF FF FF 01 02 03 04 01 E1", 10, 0, 0},
        {remoteRd, var(14, 100, 0, 0), "16 00 00 01 00 00 0E 00 00 00 64 00 00 00 00 00 00 00 00 00 00 89", 5, 3, 0},
        {remoteWr, writeVar(14, 100, 0, "", 0), "16 00 01 01 00 00 0E 00 00 00 64 00 00 00 00 00 00 00 00 00 00 8A", none, 0, 0},
        // clang-format on
    };
    for (const auto& [builder, record, frame, replyLength, dataOffset, dataLength] : cases) {
        driver.requestQueue.clear();
        info.framesAnswered = 5;
        builder(record);
        std::string frames;
        for (const Protocol& r : driver.requestQueue) {
            frames += (frames.empty() ? "" : " | ") + hex(r.frame);
            EXPECT_TRUE(r.sendLength == r.frame.size() && r.var.address == record.address &&
                        r.var.data == record.data &&
                        (r.reserved[0] | r.reserved[1] | r.reserved[2]) == 0);
        }
        EXPECT_EQ(frames, frame);
        const Protocol& r = request(0);
        EXPECT_EQ(
            std::vector<int>({r.replyLength, r.dataOffset, r.dataLength, info.framesInExchange,
                              info.framesAnswered}),
            std::vector<int>({replyLength, dataOffset, dataLength, driver.requestQueue.size(), 0}))
            << frame;
    }
    driver.requestQueue.clear();
    // A length byte keeps its low 8 bits; the whole payload is sent, and the sum covers every
    // byte even past the 16-bit length the sum function takes.
    write_analog(filled(3, 0, 2400, 300, '\x11'));
    EXPECT_EQ(hex(request(0).frame.left(10)), "01 1F 04 00 00 00 09 60 2C 11");
    EXPECT_EQ(request(0).frame, withCrc(request(0).frame.left(309)));
    Remote_WriteVar(filled(14, 100, 117, 234, '\x01'));
    Remote_WriteVar(filled(14, 100, 35000, 70000, '\x03'));
    const auto sizeLengthAndSum = [this](int i) {
        const QByteArray& frame = request(i).frame;
        return std::to_string(frame.size()) + " " + hex(frame.left(1) + frame.right(1));
    };
    EXPECT_EQ(sizeLengthAndSum(1) + ", " + sizeLengthAndSum(2), "256 00 D4, 70022 86 8B");
}

// A reply is good when it is long enough, from the station asked and its CRC holds; a broadcast
// gets no answer.
TEST_F(Frames, RepliesAreJudgedByStationAndCrc) {
    const QByteArray good = bytesOf("01 20 04 12 34 56 78 86 54");
    EXPECT_EQ(CheckGetData(&good), kReplyInvalid);  // nothing queued
    const std::tuple<RW_VAR, QByteArray, int> cases[] = {
        // clang-format off
        {var(14, 100, 2), good, kReplyStore},
        {var(14, 100, 2), bytesOf("01 20 04 12 35 56 78 86 54"), kReplyInvalid},
        {var(14, 100, 2), bytesOf("01 20 04 12 34 56 78 54 86"), kReplyInvalid},  // CRC swapped
        {var(14, 100, 2), withCrc(bytesOf("02 20 04 12 34 56 78")), kReplyInvalid},
        {var(14, 0, 1), withCrc(bytesOf("01 20 00")), kReplyInvalid},  // 5 bytes are too short
        {var(14, 0, 1), QByteArray(), kReplyInvalid}, {var(14, 0, 1, 0), QByteArray(), kReplyNothingToStore},
        {var(14, 0, 1, 257), withCrc(bytesOf("01 20 02 00 00")), kReplyInvalid},
        {writeVar(14, 0, 1, ""), withCrc(bytesOf("01 21 00 00 00 00 00 01")), kReplyNothingToStore},
        // clang-format on
    };
    for (const auto& [head, reply, verdict] : cases) {
        driver.requestQueue.clear();
        read_register(head);
        EXPECT_EQ(CheckGetData(&reply), verdict) << hex(reply);
        EXPECT_EQ(CheckGetData(nullptr), head.station == 0 ? kReplyNothingToStore : kReplyInvalid);
    }
}

// The frame buffer holds 2048 bytes, 2037 of payload: a longer record queues nothing, is not
// mirrored and touches nothing beyond the buffer. Otherwise a local write shows in the image
// unless the link is down; a remote one always.
TEST_F(Frames, WritesTooLongAndWhatTheImageShows) {
    driver.registerCache.insert(1, 0x5555);  // the member just after frameBuf
    write_analog(filled(3, 0, 8 * 2037, 2037, '\x01'));
    write_analog(filled(14, 0, 1018, 2036, '\x01'));
    EXPECT_EQ(request(0).frame, withCrc(request(0).frame.left(2046)));
    EXPECT_EQ(request(1).frame.size(), 2047);
    driver.requestQueue.clear();
    info.framesInExchange = 0;
    for (const RW_VAR& v : {filled(3, 0, 8 * 2038, 2038, '\x01'),
                            filled(14, 0, 1019, 2037, '\x01'),  // 2038 once padded
                            filled(14, 0, 5000, 10000, '\x01', 0)}) {
        write_register(v);
        write_analog(v);
    }
    EXPECT_TRUE(driver.requestQueue.isEmpty() && info.framesInExchange == 0);
    EXPECT_EQ(image(), (Image{{1, 0x5555}}));
    write_register(writeVar(14, 10, 1, "34 12"));
    write_register(writeVar(korvan::kAreaBitOfWord, 163, 1, "01"));
    EXPECT_EQ(std::make_pair(driver.requestQueue.size(), int(word(14, 10))),
              std::make_pair(3, 0x123C));
    driver.commFailed = 1;
    write_register(writeVar(14, 10, 1, "00 00"));
    write_register(writeVar(korvan::kAreaBitOfWord, 163, 1, "00"));
    EXPECT_EQ(std::make_pair(driver.requestQueue.size(), int(word(14, 10))),
              std::make_pair(6, 0x123C));
    Remote_WriteVar(writeVar(14, 10, 1, "78 56"));
    EXPECT_EQ(word(14, 10), 0x5678);
}
