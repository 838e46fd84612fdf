// The simulator's own parts. Its frame splitter finds frames in a byte stream: together or in
// pieces, behind noise, and remote frames whose bytes could start a local one. Its PLC model, the
// tests' oracle, answers literal frames of the wire format from its own memory and shares no code
// with the driver.
#include <gtest/gtest.h>

#include "frame_bytes.h"
#include "frame_splitter.h"
#include "plc_model.h"

using namespace testframes;
using Pieces = std::vector<plcsim::Piece>;

TEST(FrameSplitter, FindsFramesTogetherInPiecesAndBehindNoise) {
    const Bytes read = localFrame(1, 100, 2), write = localFrame(1, 100, 2, {0x1234, 0x5678});
    const Bytes remote =
        bytesOf("16 20 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 AC");
    Bytes stream = joined({read, remote, write, read});
    plcsim::FrameSplitter s;
    EXPECT_EQ(s.feed(stream.data(), 13), (Pieces{{read, true}}));
    EXPECT_EQ(s.feed(stream.data() + 13, stream.size() - 13),
              (Pieces{{remote, true}, {write, true}, {read, true}}));
    // Noise, then a frame whose CRC fails: nothing can be told until the line is quiet. The bytes
    // dropped come out as one run, before the frame behind them.
    stream = bytesOf("FF 01 20 80 00 00 65 00 02 7F DB 01 20 80 00 00 64 00 02 7F DB");
    EXPECT_TRUE(s.feed(stream.data(), stream.size()).empty());
    EXPECT_EQ(s.flush(),
              (Pieces{{Bytes(stream.begin(), stream.begin() + 11), false}, {read, true}}));
    EXPECT_TRUE(s.discarded() == 11 && !s.pending());
    // Frames longer than their length bytes say, which keep the low 8 bits: a local write of
    // 600 payload bytes and a remote write of 300, in pieces that end inside them.
    const Bytes local = localFrame(1, 0, 300, run(0, 300)),
                longRemote = remoteFrame(0, 150, Words(150, 0x5A5A));
    stream = joined({local, longRemote, read});
    EXPECT_TRUE(s.feed(stream.data(), 500).empty());
    EXPECT_EQ(s.feed(stream.data() + 500, 400), (Pieces{{local, true}}));
    EXPECT_EQ(s.feed(stream.data() + 900, stream.size() - 900),
              (Pieces{{longRemote, true}, {read, true}}));
}

TEST(PlcModel, AnswersFramesFromItsMemory) {
    plcsim::PlcModel plc({1, 2, 3});
    plc.setWord(1, 0x80, 100, 0x1234);
    plc.setWord(1, 0x80, 101, 0x5678);
    plc.setBit(1, 0x01, 32, true);
    plc.setBit(1, 0x01, 47, true);
    // request, reply (none: silent)
    const std::pair<const char*, const char*> cases[] = {
        {"01 20 80 00 00 64 00 02 7F DB", "01 20 04 12 34 56 78 86 54"},
        {"01 1E 01 00 00 20 00 10 7E 11", "01 1E 02 01 80 BE 18"},  // bits low byte first
        {"16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C",
         "01 20 04 12 34 56 78 86 54"},
        {"01 21 80 00 00 64 00 02 04 AB CD 56 78 AD 74", "01 21 80 00 00 64 00 02 6F 1B"},
        {"00 21 80 00 00 05 00 01 02 AB CD 00 00", ""},  // bad CRC: ignored
        {"00 21 80 00 00 05 00 01 02 AB CD 29 41", ""},  // a broadcast is carried out silently
        {"04 20 80 00 00 00 00 01 BE 3A", ""},           // a station not served
        // More than a host ever reads in one frame: 101 words, 1601 bits, 101 remote units.
        {"01 20 80 00 00 64 00 65 3E 31", ""},
        {"01 1E 01 00 00 00 06 41 BD 87", ""},
        {"16 00 00 01 01 00 0E 00 00 00 64 00 65 00 00 00 00 00 00 00 00 EF", ""},
        {"18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4",
         "01 21 00 0E 00 00 00 64 D8 EF"},  // a remote word payload is low byte first
    };
    for (const auto& [request, reply] : cases) {
        const plcsim::Reply r = plc.handle(bytesOf(request));
        EXPECT_TRUE(r.answered == (*reply != 0) && r.bytes == bytesOf(reply)) << request;
    }
    EXPECT_EQ(plc.stats().ignored, 5);  // the broadcast was carried out
    EXPECT_EQ(
        std::vector<int>({plc.word(1, 0x80, 100), plc.word(1, 0x80, 5), plc.word(3, 0x80, 5)}),
        std::vector<int>({0x1234, 0xABCD, 0xABCD}));
}
