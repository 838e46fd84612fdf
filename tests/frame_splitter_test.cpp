// The simulator's framing of a byte stream: frames that arrive together or in pieces, noise on
// the line, and remote frames whose bytes could start a local one.
#include <gtest/gtest.h>

#include "frame_splitter.h"

namespace {

using plcsim::Bytes;

const Bytes kRead{0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x7F, 0xDB};
const Bytes kWrite{0x01, 0x21, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02,
                   0x04, 0x12, 0x34, 0x56, 0x78, 0x58, 0x19};

// A remote read whose owner byte (0x20) is also the local read-words function.
Bytes remoteRead() {
    Bytes f{22, 0x20, 0, 1, 1, 0, 14, 0, 0, 0, 100, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0};
    unsigned sum = 0;
    for (std::uint8_t b : f) {
        sum += b;
    }
    f.push_back(static_cast<std::uint8_t>(sum));
    return f;
}

// A local write of 260 payload bytes: its length byte says 4.
Bytes longWrite() {
    Bytes f{0x01, 0x21, 0x80, 0x00, 0x00, 0x00, 0x00, 130, 260 & 0xFF};
    f.resize(f.size() + 260, 0x5A);
    const std::uint16_t crc = plcsim::crc16(f.data(), f.size());
    f.push_back(static_cast<std::uint8_t>(crc & 0xFF));
    f.push_back(static_cast<std::uint8_t>(crc >> 8));
    return f;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) {
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

using Pieces = std::vector<plcsim::Piece>;

plcsim::Piece frame(const Bytes& b) {
    return {b, true};
}

Pieces feed(plcsim::FrameSplitter& s, const Bytes& b) {
    return s.feed(b.data(), b.size());
}

}  // namespace

TEST(FrameSplitter, FindsFramesTogetherAndInPieces) {
    plcsim::FrameSplitter s;
    const Bytes stream = join({kRead, kWrite, remoteRead(), longWrite(), kRead});
    EXPECT_EQ(feed(s, Bytes(stream.begin(), stream.begin() + 13)), Pieces{frame(kRead)});
    EXPECT_EQ(feed(s, Bytes(stream.begin() + 13, stream.end())),
              (Pieces{frame(kWrite), frame(remoteRead()), frame(longWrite()), frame(kRead)}));
    EXPECT_FALSE(s.pending());
}

TEST(FrameSplitter, ResynchronisesWhenTheLineGoesQuiet) {
    plcsim::FrameSplitter s;
    Bytes damaged = kRead;
    damaged[5] ^= 0x01;
    // Noise, then a frame whose CRC fails: nothing can be told until the line is quiet. The
    // bytes dropped come out as one run, before the frame behind them.
    EXPECT_TRUE(feed(s, join({{0xFF}, damaged, kRead})).empty());
    EXPECT_EQ(s.flush(), (Pieces{{join({{0xFF}, damaged}), false}, frame(kRead)}));
    EXPECT_EQ(s.discarded(), 1 + damaged.size());
    EXPECT_EQ(feed(s, kRead), Pieces{frame(kRead)});
}
