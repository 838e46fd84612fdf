// The reference host given input that used to break it: runs of writes alone and a peer that
// floods the line.
#include <poll.h>
#include <sys/socket.h>

#include <atomic>

#include "tcp.h"
#include "tool_processes.h"

namespace {

using namespace tooltest;

// Waits until the host polls, and so handles signals.
bool polling(const Process& host) {
    return waitFor([&] { return host.err().find("polling") != std::string::npos; });
}

std::string numbers(int from, int to) {
    std::string text;
    for (int v = from; v <= to; ++v) {
        text += (text.empty() ? "" : ",") + std::to_string(v);
    }
    return text;
}

// A run of writes alone goes on until every write has its result: more than the driver's burst
// of five, a bit of a word written bit by bit, a write in more pieces than a burst, a write
// longer on the line than the turnaround. The PLC's dump holds every word, the last area's too.
// A run stopped while a write is under way says so and fails.
TEST(RefHostHardening, AWriteOnlyRunEndsWhenEveryWriteHasItsResult) {
    const std::string longText = "14:300=" + numbers(1, 200);
    Texts writes{"--write", "29:10.0=1,1,1,1,1,1,1,1", "--write", "28:7=7", "--write", longText};
    Memory written{{{1, 14, 10}, 0x00FF}, {{1, 28, 7}, 7}}, longWrite;  // 28: the last area
    for (std::uint16_t a = 1; a <= 200; ++a) {
        longWrite[{1, 14, 299 + a}] = a;
        if (a <= 7) {
            writes.insert(writes.end(),
                          {"--write", "14:" + std::to_string(a) + "=" + std::to_string(a)});
            written[{1, 14, a}] = a;
        }
    }
    written.insert(longWrite.begin(), longWrite.end());
    struct Case {
        std::string sim;
        Texts writes;
        const Memory* memory;  // the PLC's dump at the end; null: not checked
        int stopAfterMs;       // after it polls, which fails the run; 0: the run ends by itself
        long done;
    };
    const Case cases[] = {
        {"", writes, &written, 0, 10},
        // Replies at the pace of 9600 baud. A request of 100 words is longer on the line than
        // the turnaround; the 63 pieces take seconds.
        {"--baud-delay", {"--block-length", "100", "--write", longText}, &longWrite, 0, 1},
        {"--baud-delay", {"--write", "14:0=" + numbers(1, 2000)}, nullptr, 500, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sim);
        ScratchDir dir;
        Texts args{"--sim-options", c.sim + " --dump " + dir.path("plc.txt"), "--format", "json"};
        args.insert(args.end(), c.writes.begin(), c.writes.end());
        Process host(KORVAN_REF_HOST, args);
        const bool stopped = c.stopAfterMs > 0;
        if (stopped) {
            polling(host);
            std::this_thread::sleep_for(std::chrono::milliseconds(c.stopAfterMs));
        }
        EXPECT_EQ(host.finish(stopped ? SIGINT : 0), stopped ? 1 : 0) << host.err();
        EXPECT_EQ(host.err().find("1 write got no result") != std::string::npos, stopped);
        const J stats = lastOf(host.out(), "stats");
        EXPECT_EQ(stats.value("writes_done", -1), c.done);
        EXPECT_EQ(stats.value("writes_unanswered", -1), stopped ? 1 : 0);
        if (c.memory != nullptr) {
            EXPECT_EQ(readMemory(dir.path("plc.txt")), *c.memory);
        }
    }
}

// Flooded, the host keeps its memory and its time: it drains a bounded piece before each request,
// stops when asked or when its seconds are up, and captures a burst of megabytes in packets that
// tshark opens, every byte counted as dropped or taken for a reply.
TEST(RefHostHardening, AFloodingPeerNeitherHoldsTheHostNorBreaksItsCapture) {
    // Sanitizers keep freed memory back and add their own: the bound holds for plain builds.
    constexpr long kMostResidentKb = KORVAN_SANITIZED ? 1024 * 1024 : 64 * 1024;
    // A megabyte, then quiet until --seconds 1 ends the run; or no end, and SIGINT after 300 ms.
    for (const std::size_t burst : {std::size_t{1024 * 1024}, std::size_t{0}}) {
        SCOPED_TRACE(burst);
        const bool endless = burst == 0;
        ScratchDir dir;
        tools::Endpoint endpoint{"127.0.0.1", 0};
        const tools::UniqueFd listener = tools::listenTcp(endpoint);
        tools::UniqueFd line;  // open until the host has gone
        std::atomic<bool> done{false};
        std::thread peer([&] {
            pollfd p{listener.get(), POLLIN, 0};
            while (!done && poll(&p, 1, 10) != 1) {
            }
            line = tools::acceptTcp(listener.get());
            p = {line.get(), POLLOUT, 0};
            const std::vector<char> bytes(64 * 1024, 0x55);
            for (std::size_t sent = 0; !done && (endless || sent < burst);) {
                poll(&p, 1, 10);
                const std::size_t length =
                    endless ? bytes.size() : std::min(bytes.size(), burst - sent);
                const ssize_t n = send(line.get(), bytes.data(), length, MSG_NOSIGNAL);
                if (n < 0 && errno != EAGAIN) {
                    break;  // the host went
                }
                sent += static_cast<std::size_t>(std::max<ssize_t>(n, 0));
            }
        });
        Process host(KORVAN_REF_HOST,
                     {"--tcp", tools::describeEndpoint(endpoint), "--retries", "0", "--turnaround",
                      "50", "--format", "json", "--seconds", endless ? "60" : "1", "--pcap",
                      dir.path("host.pcap"), "14:0"});
        polling(host);
        std::this_thread::sleep_for(std::chrono::milliseconds(endless ? 300 : 0));
        const auto asked = Clock::now();
        EXPECT_EQ(host.finish(endless ? SIGINT : 0), 3) << host.err();
        EXPECT_LT(Clock::now() - asked, std::chrono::seconds(3));
        done = true;
        peer.join();
        const J stats = lastOf(host.out(), "stats");
        EXPECT_LT(stats.value("rss_kb_end", kMostResidentKb), kMostResidentKb);
        if (endless) {
            continue;
        }
        // Each request took at most a reply's length of the flood, 7 bytes; the rest was dropped.
        const long dropped = stats.value("bytes_dropped", 0L);
        EXPECT_LE(dropped, static_cast<long>(burst));
        EXPECT_GE(dropped + 7 * stats.value("exchanges", 0L), static_cast<long>(burst));
        std::size_t packets = 0;
        for (const Row& row : decode(dir.path("host.pcap"), {"kind"})) {
            packets += row[0] == "2";
        }
        EXPECT_GE(packets, burst / 65535);
    }
}

}  // namespace
