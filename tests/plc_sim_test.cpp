// The simulator's side of the wire. The PLC model answers literal frames of the wire format from
// its own memory; it shares no code with the driver, so its agreement with the driver's frames
// means both follow the format. The frame splitter finds frames in a byte stream: frames that
// arrive together or in pieces, noise, and remote frames whose bytes could start a local one.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "frame_splitter.h"

namespace {

using plcsim::Bytes;
using Pieces = std::vector<plcsim::Piece>;

// Frames written down as spaced hex, both ways.
Bytes bytesOf(const std::string& hex) {
    Bytes bytes;
    std::istringstream in(hex);
    for (unsigned int byte; in >> std::hex >> byte;) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    return bytes;
}
std::string hex(const Bytes& bytes) {
    std::string text;
    char pair[4];
    for (std::uint8_t b : bytes) {
        std::snprintf(pair, sizeof pair, "%02X", b);
        text += (text.empty() ? "" : " ") + std::string(pair);
    }
    return text;
}

}  // namespace

TEST(PlcModel, AnswersFramesFromItsMemory) {
    plcsim::PlcModel plc({1, 2, 3});
    plc.setWord(1, 0x80, 100, 0x1234);
    plc.setWord(1, 0x80, 101, 0x5678);
    plc.setBit(1, 0x01, 32, true);
    plc.setBit(1, 0x01, 47, true);
    const char* const cases[][2] = {
        // request, reply (empty: the line stays silent)
        {"01 20 80 00 00 64 00 02 7F DB", "01 20 04 12 34 56 78 86 54"},
        {"01 1E 01 00 00 20 00 10 7E 11", "01 1E 02 01 80 BE 18"},  // bits low byte first
        {"16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C",
         "01 20 04 12 34 56 78 86 54"},
        {"01 21 80 00 00 64 00 02 04 AB CD 56 78 AD 74", "01 21 80 00 00 64 00 02 6F 1B"},
        {"01 20 80 00 00 64 00 02 7F DB", "01 20 04 AB CD 56 78 73 39"},
        {"01 21 80 00 00 0A 00 01 02 00 08 92 21", "01 21 80 00 00 0A 00 01 4E C7"},
        {"00 21 80 00 00 05 00 01 02 AB CD 00 00", ""},  // bad CRC: ignored
        {"00 21 80 00 00 05 00 01 02 AB CD 29 41", ""},  // a broadcast is carried out silently
        {"04 20 80 00 00 00 00 01 BE 3A", ""},           // a station not served
        {"", ""},
        // A remote word payload is low byte first.
        {"18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4",
         "01 21 00 0E 00 00 00 64 D8 EF"},
    };
    for (const auto& [request, reply] : cases) {
        const plcsim::Reply r = plc.handle(bytesOf(request));
        EXPECT_EQ(r.answered, *reply != 0) << request;
        EXPECT_EQ(hex(r.bytes), reply) << request;
    }
    EXPECT_EQ(plc.stats().ignored, 3);
    EXPECT_EQ(plc.word(1, 0x80, 100), 0x1234);
    EXPECT_EQ(plc.word(1, 0x80, 10), 0x0008);
    EXPECT_EQ(plc.word(1, 0x80, 5) + plc.word(3, 0x80, 5), 2 * 0xABCD);
}

TEST(FrameSplitter, FindsFramesTogetherInPiecesAndBehindNoise) {
    const Bytes read = bytesOf("01 20 80 00 00 64 00 02 7F DB");
    const Bytes write = bytesOf("01 21 80 00 00 64 00 02 04 12 34 56 78 58 19");
    // A remote read whose owner byte (0x20) is also the local read-words function.
    const Bytes remote =
        bytesOf("16 20 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 AC");
    // A local write of 260 payload bytes: its length byte says 4.
    Bytes longWrite = bytesOf("01 21 80 00 00 00 00 82 04");
    longWrite.resize(longWrite.size() + 260, 0x5A);
    const std::uint16_t crc = plcsim::crc16(longWrite.data(), longWrite.size());
    longWrite.insert(longWrite.end(), {std::uint8_t(crc & 0xFF), std::uint8_t(crc >> 8)});
    Bytes stream;
    for (const Bytes& part : {read, write, remote, longWrite, read}) {
        stream.insert(stream.end(), part.begin(), part.end());
    }
    plcsim::FrameSplitter s;
    EXPECT_EQ(s.feed(stream.data(), 13), (Pieces{{read, true}}));
    EXPECT_EQ(s.feed(stream.data() + 13, stream.size() - 13),
              (Pieces{{write, true}, {remote, true}, {longWrite, true}, {read, true}}));
    EXPECT_FALSE(s.pending());

    // Noise, then a frame whose CRC fails: nothing can be told until the line is quiet. The
    // bytes dropped come out as one run, before the frame behind them.
    Bytes damaged = read;
    damaged[5] ^= 0x01;
    Bytes noisy{0xFF};
    noisy.insert(noisy.end(), damaged.begin(), damaged.end());
    stream = noisy;
    stream.insert(stream.end(), read.begin(), read.end());
    EXPECT_TRUE(s.feed(stream.data(), stream.size()).empty());
    EXPECT_EQ(s.flush(), (Pieces{{noisy, false}, {read, true}}));
    EXPECT_EQ(s.discarded(), noisy.size());
    EXPECT_EQ(s.feed(read.data(), read.size()), (Pieces{{read, true}}));
}
