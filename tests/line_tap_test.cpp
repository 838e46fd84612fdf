// The line tap as a process, listening to the reference host and the simulator through the
// relay's line (line_relay.h).
#include <algorithm>
#include <cctype>
#include <memory>

#include "line_relay.h"
#include "tool_processes.h"

using namespace tooltest;

// Each case runs the host to its end against a simulator through the relay, on one tap device or
// two, the tap listening with --format json; then the tap is stopped. Its capture holds the
// host's own frames one for one, shown as the host's are, its statistics count what the host
// counted, it drops the noise and nothing else, and writes nothing. Noise goes with a clean line
// alone: a damaged reply with noise behind it could not be told from noise.
TEST(LineTap, HearsWhatTheHostSentAndReceived) {
    constexpr char kBaud[] = "19200";
    struct Case {
        const char* what;
        bool apart;
        long noiseEvery;  // 0: the simulator's faults instead
        Texts host;       // options and variables
    };
    // clang-format off
    const Case cases[] = {
        {"local family, one device, noise", false, 3,
         {"--scans", "6", "--write", "14:200=0x1234,0x5678", "--write", "29:10.3=1", "14:100:2",
          "2:35:20", "14:200:2"}},
        {"remote family, two devices, noise", true, 3,
         {"--scans", "6", "--remote-mode", "--write", "14:200=0x1234", "14:100:2", "2:32:16",
          "14:200"}},
        {"local family, one device, faults", false, 0,
         {"--scans", "4", "--per-var-station", "--retries", "0", "14:100:2@1", "14:0@2",
          "2:0:16@1"}},
        {"remote family, two devices, faults", true, 0,
         {"--scans", "4", "--remote-mode", "--per-var-station", "--retries", "0", "14:100:2@1",
          "14:0@2", "2:0:16@1"}},
    };
    // clang-format on
    // Every frame's header and decoding: Source and Destination read as in the host's capture.
    const Texts fields{
        "kind",         "family", "exchange", "_ws.col.Source", "_ws.col.Destination",
        "_ws.col.Info", "crc",    "sum"};
    tools::LineSettings line;
    tools::setBaud(line, kBaud);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScratchDir dir;
        const bool faults = c.noiseEvery == 0;
        LineRelay relay(line, c.apart, c.noiseEvery);
        Texts simArgs{"--device", relay.plcPath(), "--baud", kBaud, "--fill", "ramp"};
        if (faults) {
            simArgs.insert(simArgs.end(), {"--stations", "1,2", "--corrupt", "0.15", "--drop",
                                           "0.15", "--silent", "2", "--seed", "3"});
        }
        Simulator plc(simArgs);

        Texts tapArgs = c.apart
                            ? Texts{"--requests", relay.tapPath(0), "--replies", relay.tapPath(1)}
                            : Texts{"--device", relay.tapPath(0)};
        tapArgs.insert(tapArgs.end(),
                       {"--baud", kBaud, "--format", "json", "--pcap", dir.path("tap.pcap")});
        Process tap(KORVAN_LINE_TAP, tapArgs);
        ASSERT_TRUE(waitFor([&] { return tap.err().find("listening") != std::string::npos; }))
            << tap.err();

        Texts hostArgs{"--device",  relay.hostPath(), "--baud", kBaud,    "--turnaround",
                       kTurnaround, "--format",       "json",   "--pcap", dir.path("host.pcap")};
        hostArgs.insert(hostArgs.end(), c.host.begin(), c.host.end());
        const HostRun host = runHost(hostArgs);
        EXPECT_EQ(host.exitCode, 0) << host.errors;
        ASSERT_TRUE(waitFor([&] { return relay.idle(); }));
        EXPECT_EQ(tap.finish(SIGTERM), 0) << tap.err();
        relay.stop();
        EXPECT_EQ(relay.tapWrote(), 0);

        // The tap's header says it received every frame; the noise is kept as dropped bytes.
        const std::vector<Row> hostFrames =
            decode(dir.path("host.pcap"), fields, "korvan.kind != 2");
        EXPECT_FALSE(hostFrames.empty());
        // A reply's header carries its request's family, which the reply's bytes do not tell.
        for (std::size_t f = 1; f < hostFrames.size(); ++f) {
            EXPECT_TRUE(hostFrames[f][0] != "1" || hostFrames[f][1] == hostFrames[f - 1][1]) << f;
        }
        Texts tapFields = fields;
        tapFields.insert(tapFields.end(), {"capture.side", "direction", "dropped"});
        std::vector<Row> tapFrames;
        long dropped = 0;
        for (Row& row : decode(dir.path("tap.pcap"), tapFields)) {
            EXPECT_EQ(Row(row.end() - 3, row.end() - 1), (Row{"2", "1"}));
            // tshark shows the dropped bytes in hexadecimal.
            dropped += std::count_if(row.back().begin(), row.back().end(), ::isxdigit) / 2;
            row.resize(fields.size());
            if (row[0] != "2") {
                tapFrames.push_back(row);
            }
        }
        EXPECT_EQ(tapFrames, hostFrames);
        EXPECT_EQ(dropped, relay.noiseBytes());

        // The statistics: the host's exchanges, good replies, and failed ones retried or given
        // up; a silent station's requests all missing their reply.
        const J s = lastOf(tap.out(), "stats");
        long failed = host.stats.value("retries", 0L);
        for (const auto& [code, count] : host.stats["abandoned"].items()) {
            failed += count.get<long>();
        }
        EXPECT_EQ(s.value("requests", -1L), host.stats.value("exchanges", 0L));
        const std::vector<J> lines = jsonLines(tap.out());
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](const J& o) { return o.contains("exchange"); }),
                  s.value("requests", -1L));
        EXPECT_EQ(s.value("replies", 0L) - s.value("bad", 0L), host.stats.value("good", -1L));
        EXPECT_EQ(s.value("bad", 0L) + s.value("missing", 0L), failed);
        EXPECT_EQ(s.value("bytes_dropped", -1L), relay.noiseBytes());
        if (faults) {
            EXPECT_GT(s.value("bad", 0L), 0);
            const J silent = s["stations"].value("2", J::object());
            EXPECT_GT(silent.value("requests", 0L), 0);
            EXPECT_EQ(silent.value("missing", -1L), silent.value("requests", 0L));
            EXPECT_EQ(silent.value("replies", -1L), 0);
        }
        EXPECT_GT(s.value("reply_ms_mean", 0.0), 0.0);
    }
}

// A line that goes away ends the run with the summary of what was heard.
TEST(LineTap, ALostLineEndsTheRunWithItsSummary) {
    auto relay = std::make_unique<LineRelay>(tools::LineSettings{});
    const std::string device = relay->tapPath(0);
    Process tap(KORVAN_LINE_TAP, {"--device", device});
    ASSERT_TRUE(waitFor([&] { return tap.err().find("listening") != std::string::npos; }));
    relay.reset();
    EXPECT_EQ(tap.finish(), 1);
    EXPECT_NE(tap.err().find("0 requests"), std::string::npos) << tap.err();
    EXPECT_NE(tap.err().find("lost the line: " + device), std::string::npos) << tap.err();
}
