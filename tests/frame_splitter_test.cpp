// The simulator's frame splitter finds frames in a byte stream: together or in pieces, behind
// noise, and remote frames whose bytes could start a local one. (The PLC model's answers are
// checked against the driver's frames in every exchange of the loaded-library tests.)
#include <gtest/gtest.h>

#include <QtCore/QByteArray>

#include "frame_splitter.h"

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
}
