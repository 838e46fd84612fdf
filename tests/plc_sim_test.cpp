// The simulator's own parts. Its frame splitter finds frames in a byte stream: together or in
// pieces, behind noise, and remote frames whose bytes could start a local one. Its PLC model, the
// tests' oracle, answers literal frames of the wire format from its own memory and shares no code
// with the driver.
#include <gtest/gtest.h>

#include <QtCore/QByteArray>

#include <numeric>

#include "frame_splitter.h"
#include "plc_model.h"

namespace {

using Pieces = std::vector<plcsim::Piece>;

plcsim::Bytes bytesOf(const char* hex) {
    const QByteArray b = QByteArray::fromHex(hex);
    return plcsim::Bytes(b.begin(), b.end());
}

}  // namespace

TEST(FrameSplitter, FindsFramesTogetherInPiecesAndBehindNoise) {
    const plcsim::Bytes read = bytesOf("01 20 80 00 00 64 00 02 7F DB"),
                        remote = bytesOf(
                            "16 20 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 AC"),
                        write = bytesOf("01 21 80 00 00 64 00 02 04 12 34 56 78 58 19");
    plcsim::Bytes stream;
    for (const plcsim::Bytes& part : {read, remote, write, read}) {
        stream.insert(stream.end(), part.begin(), part.end());
    }
    plcsim::FrameSplitter s;
    EXPECT_EQ(s.feed(stream.data(), 13), (Pieces{{read, true}}));
    EXPECT_EQ(s.feed(stream.data() + 13, stream.size() - 13),
              (Pieces{{remote, true}, {write, true}, {read, true}}));
    // Noise, then a frame whose CRC fails: nothing can be told until the line is quiet. The bytes
    // dropped come out as one run, before the frame behind them.
    stream = bytesOf("FF 01 20 80 00 00 65 00 02 7F DB 01 20 80 00 00 64 00 02 7F DB");
    EXPECT_TRUE(s.feed(stream.data(), stream.size()).empty());
    EXPECT_EQ(s.flush(),
              (Pieces{{plcsim::Bytes(stream.begin(), stream.begin() + 11), false}, {read, true}}));
    EXPECT_TRUE(s.discarded() == 11 && !s.pending());
    // Frames longer than their length bytes say, which keep the low 8 bits: a local write of
    // 600 payload bytes and a remote write of 300, in pieces that end inside them.
    plcsim::Bytes local = bytesOf("01 21 80 00 00 00 01 2C 58"),
                  longRemote =
                      bytesOf("42 01 01 01 01 00 0E 00 00 00 00 00 96 00 00 00 00 00 00 00 00");
    for (int i = 0; i < 600; ++i) {
        local.push_back(static_cast<std::uint8_t>(i));
    }
    const std::uint16_t crc = plcsim::crc16(local.data(), local.size());
    local.insert(local.end(),
                 {static_cast<std::uint8_t>(crc), static_cast<std::uint8_t>(crc >> 8)});
    longRemote.resize(longRemote.size() + 300, 0x5A);
    longRemote.push_back(
        static_cast<std::uint8_t>(std::accumulate(longRemote.begin(), longRemote.end(), 0u)));
    stream = local;
    for (const plcsim::Bytes& part : {longRemote, read}) {
        stream.insert(stream.end(), part.begin(), part.end());
    }
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
    const std::pair<const char*, const char*> cases[] = {
        // request, reply (none: silent)
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
