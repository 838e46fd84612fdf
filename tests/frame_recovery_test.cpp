// The line tap's frame recovery on timed byte streams, heard by one receiver or one per direction:
// what is told as soon as the bytes allow, and what only when the input ends.
#include <gtest/gtest.h>

#include "frame_bytes.h"
#include "receivers.h"

namespace {

using linetap::Clock;
using linetap::Frame;
using linetap::FrameKind;
using namespace testframes;

constexpr auto kGap = std::chrono::milliseconds(20);

// Frames of the wire format, their replies, and bytes that are no frame.
constexpr char kRead[] = "01 20 80 00 00 64 00 02 7F DB";
constexpr char kReadReply[] = "01 20 04 12 34 56 78 86 54";
constexpr char kDamagedReply[] = "01 20 04 12 34 56 79 86 54";
constexpr char kRemoteRead[] = "16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C";
constexpr char kWrite[] = "01 21 80 00 00 64 00 02 04 AB CD 56 78 AD 74";
constexpr char kWriteAck[] = "01 21 80 00 00 64 00 02 6F 1B";
constexpr char kRemoteWrite[] =
    "18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4";
constexpr char kRemoteWriteAck[] = "01 21 00 0E 00 00 00 64 D8 EF";
constexpr char kBroadcastWrite[] = "00 21 80 00 00 05 00 01 02 AB CD 29 41";
constexpr char kReadBits[] = "01 1E 01 00 00 20 00 14 7F D2";  // 20 bits: two groups
constexpr char kReadBitsReply[] = "01 1E 04 01 80 05 00 FA FA";
constexpr char kRemoteBitWrite[] =  // 3 bits in one byte
    "17 00 01 01 01 00 01 00 00 00 00 00 03 00 00 00 00 00 00 00 00 05 23";
constexpr char kRemoteBitWriteAck[] = "01 21 00 01 00 00 00 00 8D 05";
constexpr char kNoise[] = "FF 00 A5";
// A remote read of area index 64, which no area has: its sum holds by chance.
constexpr char kNoArea[] = "16 00 00 01 01 00 40 00 00 00 64 00 02 00 00 00 00 00 00 00 00 BE";

// A local write of 300 payload bytes, more than its length byte says, and its acknowledgement.
std::string longWrite() {
    return hexOf(localFrame(2, 0x10, 150, run(0, 150)));
}
constexpr char kLongWriteAck[] = "02 21 80 00 00 10 00 96 6E BB";

// Frames as the test writes them: "Q local ..." a request, "R ..." a good reply, "R! ..." a
// damaged one, "D ..." dropped bytes.
std::string q(const std::string& hex, bool remote = false) {
    return std::string("Q ") + (remote ? "remote " : "local ") + hex;
}
std::string r(const std::string& hex) {
    return "R " + hex;
}
std::string damaged(const std::string& hex) {
    return "R! " + hex;
}
std::string d(const std::string& hex) {
    return "D " + hex;
}

std::vector<std::string> shown(const std::vector<Frame>& frames) {
    std::vector<std::string> texts;
    for (const Frame& frame : frames) {
        const std::string hex = hexOf(frame.bytes);
        if (frame.kind == FrameKind::Request) {
            texts.push_back(q(hex, frame.family != tools::FrameFamily::Local));
        } else if (frame.kind == FrameKind::Reply) {
            texts.push_back(frame.good ? r(hex) : damaged(hex));
        } else {
            texts.push_back(d(hex));
        }
    }
    return texts;
}

}  // namespace

TEST(FrameRecovery, TellsFramesOfBothDirectionsAsSoonAsTheBytesAllow) {
    struct Arrival {
        std::size_t receiver;  // with two: 0 hears the requests, 1 the replies
        int ms;
        std::string hex;
    };
    struct Case {
        const char* what;
        bool apart;
        std::vector<Arrival> arrivals;
        std::vector<std::string> told;      // by the time of the last arrival
        std::vector<std::string> atTheEnd;  // only once the input ends
        bool remoteOnly = false;
    };
    // clang-format off
    const Case cases[] = {
        {"both families back to back, a broadcast among them", false,
         {{0, 0, std::string(kRead) + kReadReply + kRemoteRead + kReadReply + kWrite + kWriteAck +
                 kRemoteWrite + kRemoteWriteAck + kBroadcastWrite + kReadBits + kReadBitsReply +
                 kRemoteBitWrite + kRemoteBitWriteAck}},
         {q(kRead), r(kReadReply), q(kRemoteRead, true), r(kReadReply), q(kWrite), r(kWriteAck),
          q(kRemoteWrite, true), r(kRemoteWriteAck), q(kBroadcastWrite), q(kReadBits),
          r(kReadBitsReply), q(kRemoteBitWrite, true), r(kRemoteBitWriteAck)},
         {}},
        {"a reply in pieces, a long write", false,
         {{0, 0, kRead}, {0, 5, "01 20 04 12"}, {0, 6, "34 56 78 86 54"},
          {0, 10, longWrite().substr(0, 600)}, {0, 12, longWrite().substr(600) + kLongWriteAck}},
         {q(kRead), r(kReadReply), q(longWrite()), r(kLongWriteAck)}, {}},
        {"a damaged reply, and the retry at once", false,
         {{0, 0, std::string(kRead) + kDamagedReply + kRead + kReadReply}},
         {q(kRead), damaged(kDamagedReply), q(kRead), r(kReadReply)}, {}},
        {"no reply: the retry after the host's timeout", false,
         {{0, 0, kRead}, {0, 300, kRead}, {0, 305, kReadReply}},
         {q(kRead), q(kRead), r(kReadReply)}, {}},
        {"noise at once before a request waits for the line to be quiet", false,
         {{0, 0, std::string(kRead) + kReadReply + kNoise + kRead + kReadReply}},
         {q(kRead), r(kReadReply)},
         {d(kNoise), q(kRead), r(kReadReply)}},
        {"noise alone on a quiet line, and a damaged reply before a gap", false,
         {{0, 0, std::string(kRead) + kReadReply}, {0, 100, kNoise}, {0, 200, kRead},
          {0, 205, kDamagedReply}, {0, 300, kRead}},
         {q(kRead), r(kReadReply), d(kNoise), q(kRead), damaged(kDamagedReply), q(kRead)}, {}},
        {"bytes that sum as a remote frame but name no area", false,
         {{0, 0, kNoArea}, {0, 100, std::string(kRead) + kReadReply}},
         {d(kNoArea), q(kRead), r(kReadReply)}, {}},
        {"requests of the remote family only", false,
         {{0, 0, std::string(kRead) + kReadReply + kRemoteRead + kReadReply}},
         {},
         {d(std::string(kRead) + " " + kReadReply), q(kRemoteRead, true), r(kReadReply)},
         true},
        {"apart: a damaged reply, and the next reply after the retry", true,
         {{0, 0, kRead}, {1, 5, kReadReply}, {0, 10, kRead}, {1, 15, kDamagedReply},
          {0, 18, kRead}, {1, 25, kReadReply}},
         {q(kRead), r(kReadReply), q(kRead), damaged(kDamagedReply), q(kRead), r(kReadReply)}, {}},
        {"apart: a reply heard before the end of its request", true,
         {{0, 0, "01 20 80 00 00"}, {1, 1, kReadReply}, {0, 2, "64 00 02 7F DB"},
          {0, 3, kRemoteRead}},
         {q(kRead), r(kReadReply), q(kRemoteRead, true)}, {}},
        {"apart: a damaged reply waits on a quiet line for requests held behind noise", true,
         {{0, 0, kRead}, {1, 2, kDamagedReply}, {0, 3, kNoise}, {1, 5, "01 02 03"},
          {0, 13, "01 21 80 00"}, {0, 23, "00 64 00 02"}, {0, 33, "04 AB CD 56 78 AD 74"}},
         {q(kRead)},
         {d(kNoise), d(std::string(kDamagedReply) + " 01 02 03"), q(kWrite)}},
        {"apart: noise on the reply wire, a reply without its request", true,
         {{1, 0, kNoise}, {0, 1, kWrite}, {1, 2, kWriteAck}, {1, 30, kReadReply}},
         {d(kNoise), q(kWrite), r(kWriteAck), d(kReadReply)}, {}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        linetap::Receivers receivers(c.apart, c.remoteOnly, kGap);
        const Clock::time_point start = Clock::now();
        std::vector<std::string> told;
        for (const Arrival& a : c.arrivals) {
            const Bytes bytes = bytesOf(a.hex);
            const Clock::time_point at = start + std::chrono::milliseconds(a.ms);
            receivers.feed(a.receiver, bytes.data(), bytes.size(), at);
            const std::vector<std::string> now = shown(receivers.take(at));
            told.insert(told.end(), now.begin(), now.end());
            // What is left is told later, never in the past: the tap would spin.
            EXPECT_GT(receivers.nextDecision(), at);
        }
        EXPECT_EQ(told, c.told);
        EXPECT_EQ(shown(receivers.finish()), c.atTheEnd);
    }
}
