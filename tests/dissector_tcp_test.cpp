// The dissector on real TCP traffic on the loopback interface, recorded by dumpcap; skipped where
// this machine does not let dumpcap capture.
#include "tool_processes.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "byte_io.h"
#include "frame_bytes.h"
#include "tcp.h"

namespace {

using namespace tooltest;
using namespace testframes;

constexpr Byte kNoAreaCode = 0x7F;  // a code no area has: the PLC ignores the frame
constexpr Byte kServed = 1;         // the simulator's station
constexpr Byte kUnserved = 2;       // a station nobody answers
constexpr int kReplyWaitMs = 5000;
constexpr auto kSplitPause = std::chrono::milliseconds(50);
// The simulator judges the bytes it holds once the line has been quiet this long: longer than
// the pause inside a split request.
constexpr int kSimulatorGapMs = 300;
// Time for dumpcap to set its filter once it has its file, and to read what the kernel holds for
// it before it is stopped.
constexpr auto kCaptureSettle = std::chrono::milliseconds(200);
constexpr auto kCaptureDrain = std::chrono::seconds(1);

// Starts dumpcap recording the TCP traffic of `port` on the loopback interface to `path`; why it
// cannot, if it cannot.
std::string startCapture(std::unique_ptr<Process>& dumpcap, const std::string& path, int port) {
    if (access(KORVAN_DUMPCAP, X_OK) != 0) {
        return "dumpcap is missing (" KORVAN_DUMPCAP ")";
    }
    dumpcap = std::make_unique<Process>(
        KORVAN_DUMPCAP, Texts{"-i", "lo", "-f", "tcp port " + std::to_string(port), "-w", path});
    // It makes the file once the interface is open, or says why not after "Capturing on".
    waitFor(
        [&] {
            return std::filesystem::exists(path) ||
                   dumpcap->err().find("dumpcap: ") != std::string::npos;
        },
        std::chrono::seconds(10));
    if (!std::filesystem::exists(path)) {
        return "dumpcap cannot capture on lo: " + dumpcap->err();
    }
    std::this_thread::sleep_for(kCaptureSettle);
    return "";
}

// The frame with its check value damaged.
Bytes damaged(Bytes frame) {
    frame.back() ^= 0xFF;
    return frame;
}

// The words as tshark shows korvan.word.
std::string shown(const Words& words) {
    std::string text;
    for (std::uint16_t w : words) {
        char word[8];
        std::snprintf(word, sizeof word, ",0x%04x", w);
        text += word;
    }
    return text.substr(1);
}

// The test's own panel: writes the pieces a pause apart on `fd`, then reads their replies,
// `replyBytes` in all; without any, it waits for the simulator to judge what it holds and checks
// that nothing came.
void talk(int fd, const std::vector<Bytes>& pieces, std::size_t replyBytes) {
    for (const Bytes& piece : pieces) {
        tools::writeAll(fd, piece.data(), piece.size());
        std::this_thread::sleep_for(kSplitPause);
    }
    Bytes got, beyond;
    tools::readFor(fd, std::max<std::size_t>(replyBytes, 1),
                   replyBytes > 0 ? kReplyWaitMs : 2 * kSimulatorGapMs, got, beyond);
    EXPECT_EQ(got.size() + beyond.size(), replyBytes);
}

// The rows tshark shows of the korvan frames in `capture`, a frame a row, with the frames that
// the last two fields name (request_in and reply_in) given as "#" and their row.
std::vector<Row> decodeRows(const std::string& capture, Texts fields, const Texts& options) {
    fields.insert(fields.begin(), "_ws.col.No.");
    std::vector<Row> rows = decode(capture, fields, "korvan", options);
    std::map<std::string, std::string> rowOf;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rowOf[rows[i][0]] = "#" + std::to_string(i);
    }
    for (Row& row : rows) {
        row.erase(row.begin());
        for (std::size_t column = row.size() - 2; column < row.size(); ++column) {
            std::istringstream frames(row[column]);
            row[column].clear();
            for (std::string frame; std::getline(frames, frame, ',');) {
                row[column] += (row[column].empty() ? "" : ",") + rowOf[frame];
            }
        }
    }
    return rows;
}

// The reference host writes and reads; the test's panel splits a read across two TCP segments,
// sends three requests in one (the first to a station nobody serves) whose replies pair with
// theirs, reads an area the PLC does not have, sends a request with a bad CRC alone and in
// front of a good one (neither swallows the frames behind it nor takes the good one's reply),
// and writes frames longer than their 8-bit length bytes say. Read through the port preference
// and through Decode As, each frame decodes field by field and pairs with its reply, if any.
TEST(DissectorTcp, RealTrafficOfBothFamiliesDecodesThroughThePortOrDecodeAs) {
    ScratchDir dir;
    Simulator sim(
        {"--tcp", "127.0.0.1:0", "--fill", "ramp", "--gap", std::to_string(kSimulatorGapMs)});
    const std::string port = sim.endpoint.substr(sim.endpoint.rfind(':') + 1);
    const std::string capture = dir.path("tcp.pcapng");
    std::unique_ptr<Process> dumpcap;
    const std::string failure = startCapture(dumpcap, capture, std::stoi(port));
    if (!failure.empty()) {
        GTEST_SKIP() << failure;
    }

    const HostRun host =
        runHost({"--tcp", sim.endpoint, "--remote-mode", "--scans", "1", "--format", "json",
                 "--turnaround", kTurnaround, "--write", "14:200=0x5678", "14:200:2"});
    ASSERT_EQ(host.exitCode, 0) << host.errors;
    ASSERT_EQ(host.stats.value("exchanges", 0), 2);
    // Lengths beyond 255 bytes: a local write of 411 bytes (length byte 144), a remote one of
    // 422 (166). No reply is as long: the simulator, as the driver, reads at most 100 words.
    const Words localWords = run(0x1000, 200), remoteWords = run(0x2000, 200);
    const Bytes split = localFrame(kServed, 100, 2);
    const tools::UniqueFd panel = tools::connectTcp({"127.0.0.1", std::stoi(port)}, kReplyWaitMs);
    const int fd = panel.get();
    talk(fd, {Bytes(split.begin(), split.begin() + 4), Bytes(split.begin() + 4, split.end())}, 9);
    talk(
        fd,
        {joined({localFrame(kUnserved, 300, 1), localFrame(kServed, 300, 1), remoteFrame(400, 3)})},
        7 + 11);
    talk(fd, {localFrame(kServed, 500, 1, {}, kNoAreaCode)}, 0);
    talk(fd, {localFrame(kServed, 501, 1)}, 7);
    talk(fd, {damaged(localFrame(kServed, 502, 1))}, 0);
    talk(fd, {joined({damaged(localFrame(kServed, 503, 1)), localFrame(kServed, 504, 1)})}, 7);
    talk(fd, {localFrame(kServed, 1000, 200, localWords)}, 10);
    talk(fd, {remoteFrame(1200, 200, remoteWords)}, 10);
    std::this_thread::sleep_for(kCaptureDrain);
    ASSERT_EQ(dumpcap->finish(SIGINT), 0);
    ASSERT_TRUE(sim.stop());

    const Texts fields{"kind",     "family",     "station", "function",   "area",
                       "address",  "count",      "word",    "crc.status", "sum.status",
                       "no_reply", "request_in", "reply_in"};
    // clang-format off
    const std::vector<Row> expected{
        // The host's write and read, then the panel's.
        {"0", "1", "1", "", "14", "200", "1", "0x5678", "", "good", "", "", "#1"},
        {"1", "1", "1", "0x21", "", "", "", "", "good", "", "", "#0", ""},
        {"0", "1", "1", "", "14", "200", "2", "", "", "good", "", "", "#3"},
        {"1", "1", "1", "0x20", "", "", "", "0x5678,0x00c9", "good", "", "", "#2", ""},
        {"0", "0", "1", "0x20", "14", "100", "2", "", "good", "", "", "", "#5"},
        {"1", "0", "1", "0x20", "", "", "", "0x0064,0x0065", "good", "", "", "#4", ""},
        {"0,0,0", "0,0,1", "2,1,1", "0x20,0x20", "14,14,14", "300,300,400", "1,1,3", "",
         "good,good", "good", "1", "", "#7,#8"},
        {"1", "0", "1", "0x20", "", "", "", "0x012c", "good", "", "", "#6", ""},
        {"1", "1", "1", "0x20", "", "", "", "0x0190,0x0191,0x0192", "good", "", "", "#6", ""},
        {"0", "0", "1", "0x20", "", "500", "1", "", "good", "", "1", "", ""},
        {"0", "0", "1", "0x20", "14", "501", "1", "", "good", "", "", "", "#11"},
        {"1", "0", "1", "0x20", "", "", "", "0x01f5", "good", "", "", "#10", ""},
        {"0", "0", "1", "0x20", "14", "502", "1", "", "bad", "", "1", "", ""},
        {"0,0", "0,0", "1,1", "0x20,0x20", "14,14", "503,504", "1,1", "", "bad,good", "", "1",
         "", "#14"},
        {"1", "0", "1", "0x20", "", "", "", "0x01f8", "good", "", "", "#13", ""},
        {"0", "0", "1", "0x21", "14", "1000", "200", shown(localWords), "good", "", "", "",
         "#16"},
        {"1", "0", "1", "0x21", "", "", "", "", "good", "", "", "#15", ""},
        {"0", "1", "1", "", "14", "1200", "200", shown(remoteWords), "", "good", "", "", "#18"},
        {"1", "1", "1", "0x21", "", "", "", "", "good", "", "", "#17", ""},
    };
    // clang-format on
    for (const Texts& options :
         {Texts{"-o", "korvan.tcp_port:" + port}, Texts{"-d", "tcp.port==" + port + ",korvan"}}) {
        SCOPED_TRACE(options[1]);
        EXPECT_EQ(decodeRows(capture, fields, options), expected);
        EXPECT_EQ(decode(capture, {"address"}, "korvan && tcp.segment.count == 2", options),
                  std::vector<Row>{{"100"}});
        // The frames of one packet share its Info; the damaged one got no reply.
        EXPECT_EQ(decode(capture, {"_ws.col.Info"}, "korvan.address == 503", options),
                  std::vector<Row>{{"read words st=1 area 0x80 @503 x1 [bad CRC] [no reply] | "
                                    "read words st=1 area 0x80 @504 x1"}});
    }
}

}  // namespace
