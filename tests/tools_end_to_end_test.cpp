// The reference host and the PLC simulator as separate processes, over pseudo-terminals and TCP:
// the driver, loaded by the host, against a PLC that shares no code with it.
#include "tool_processes.h"

#include <algorithm>
#include <fstream>
#include <memory>

namespace {

using namespace tooltest;

// station area address value; area 2 word 2 holds bits 32..47.
constexpr char kMemory[] =
    "1 14 100 0x1234\n1 14 101 0xABCD\n1 2 2 0x0008\n1 2 3 0x8001\n1 14 10 0x0008\n"
    "1 14 12 0x0F00\n2 14 0 0x2222\n2 1 0 0x0005\n3 14 0 0x3333\n";

// One host run of two ports, then one of four, each a private copy of the driver on a thread of
// its own against a simulator of its own. Port 0 (a pseudo-terminal) and port 1 (TCP, remote
// frames) write words, bits and a bit of a word; port 2 also uses a station its PLC does not
// serve, which fails there alone; port 3's PLC holds its replies back by their line time. In two
// scans: the values read, writes done, exchanges abandoned, each port's image equal to its PLC's
// memory; the captures of ports 0 and 1 at both ends decode to the same exchanges, each reply
// paired with its request, and the first frame field by field.
TEST(ToolsEndToEnd, SeveralPortsInEitherFamilyReadWriteAndCapture) {
    struct Port {
        Texts sim;
        Texts host;  // options, writes and variables
        std::map<std::string, J> values;
        int writesDone;
        J abandoned;
        Texts writes, reads;  // Info of the writes' exchanges, and of one scan's reads
        Texts fields;         // of the first frame the host sent, and their values
        Row first;
        double minScanMs;  // the line time of a scan whose replies the simulator holds back
    };
    const J bits = J::array({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0});
    // clang-format off
    const Port ports[] = {
        {{"--pty", "--memory", "memory.txt"},
         {"--write", "14:200=0x5678,0x9ABC", "--write", "2:40=1", "--write", "29:12.1=1",
          "14:100:2", "2:35:20", "29:10.3", "14:200:2", "29:12.1"},
         {{"14:100:2", {0x1234, 0xABCD}}, {"29:10.3", {1}}, {"14:200:2", {0x5678, 0x9ABC}},
          {"2:35:20", bits}, {"29:12.1", {1}}},  // bits 35, 40 (written) and 48
         3, J::object(),
         // The bit-in-word write keeps the word's other bits.
         {"write words st=1 area 0x80 @200 x2: 0x5678 0x9abc", "reply st=1 write acknowledged",
          "write bits st=1 area 0x03 @40 x1: 1", "reply st=1 write acknowledged",
          "read words st=1 area 0x80 @12 x1", "reply st=1 2 bytes: 0x0f00",
          "write words st=1 area 0x80 @12 x1: 0x0f02", "reply st=1 write acknowledged"},
         {"read bits st=1 area 0x03 @32 x32", "reply st=1 4 bytes: 00010000100000001000000000000001",
          "read words st=1 area 0x80 @10 x3", "reply st=1 6 bytes: 0x0008 0x0000 0x0f02",
          "read words st=1 area 0x80 @100 x2", "reply st=1 4 bytes: 0x1234 0xabcd",
          "read words st=1 area 0x80 @200 x2", "reply st=1 4 bytes: 0x5678 0x9abc"},
         {"family", "station", "function", "area_code", "area", "address", "count",
          "payload_length", "word", "crc"},
         {"0", "1", "0x21", "0x80", "14", "200", "2", "4", "0x5678,0x9abc", "0x80d3"}, 0},
        {{"--tcp", "127.0.0.1:0", "--memory", "memory.txt"},
         {"--remote-mode", "--per-var-station", "--off", "3", "--write", "14:5@1=0xBEEF",
          "--write", "1:1@2=1", "--write", "29:20.15@2=1", "14:0@1", "14:0@2", "14:0@3", "14:5@1",
          "1:0:3@2", "29:20.15@2"},
         {{"14:0@2", {0x2222}}, {"14:5@1", {0xBEEF}}, {"1:0:3@2", {1, 1, 1}}, {"29:20.15@2", {1}},
          {"14:0@3", {{"values", {0}}, {"state", "off"}}}},  // never asked: the PLC holds 0x3333
         3, J::object(),
         {"remote write st=1 area 14 @5 x1: 0xbeef", "reply st=1 write acknowledged",
          "remote write st=2 area 1 @1 x1: 1", "reply st=2 write acknowledged",
          "remote write st=2 area 29 @20.15 x1: 1", "reply st=2 write acknowledged"},
         {"remote read st=1 area 14 @0 x6",
          "reply st=1 12 bytes: 0x0000 0x0000 0x0000 0x0000 0x0000 0xbeef",
          "remote read st=2 area 1 @0 x1", "reply st=2 2 bytes: 1110000000000000",
          "remote read st=2 area 14 @0 x21",
          "reply st=2 42 bytes: 0x2222 0x0000 0x0000 0x0000 0x0000 0x0000 0x0000 0x0000 ..."},
         {"family", "remote.length", "remote.owner", "remote.direction", "remote.port", "station",
          "area", "area_code", "address", "count", "remote.mark", "word", "sum"},
         {"1", "24", "1", "1", "1", "1", "14", "0x80", "5", "1", "0", "0xbeef", "0xdd"}, 0},
        {{"--tcp", "127.0.0.1:0", "--fill", "3000"},
         {"--per-var-station", "--retries", "0", "--write", "14:9@1=0x0909", "--write", "14:7@4=5",
          "14:100:2@1", "14:100:2@4"},
         {{"14:100:2@1", {3000, 3000}}, {"14:100:2@4", {{"values", {0, 0}}, {"state", "failed 41"}}}},
         // Abandoned: the unserved station's read in each scan, and its write (owner 1).
         1, {{"41", 2}, {"42", 1}}, {}, {}, {}, {}, 0},
        // Replies held back by their line time at 9600 baud: 10 + 9 characters of 10 bits each.
        {{"--pty", "--fill", "ramp", "--baud-delay"},
         {"--station", "2", "14:300:2", "14:400:2"},
         {{"14:300:2", {300, 301}}, {"14:400:2", {400, 401}}},
         0, J::object(), {}, {}, {}, {}, 2 * 19.0 * 10 / 9.6},
    };
    // clang-format on
    // Two ports, then four.
    for (const std::size_t count : {std::size_t{2}, std::size_t{4}}) {
        SCOPED_TRACE(std::to_string(count) + " ports");
        ScratchDir dir;
        std::ofstream(dir.path("memory.txt")) << kMemory;
        std::vector<std::unique_ptr<Simulator>> plcs;
        Texts args{"--image-dump", dir.path("image.txt"), "--pcap", dir.path("host.pcap")};
        args.insert(args.end(), {"--turnaround", kTurnaround, "--scans", "2", "--format", "json"});
        for (std::size_t i = 0; i < count; ++i) {
            const Port& port = ports[i];
            const std::string n = std::to_string(i);
            Texts sim = port.sim;
            sim.insert(sim.end(), {"--stations", "1,2,3", "--dump", dir.path("plc" + n + ".txt"),
                                   "--pcap", dir.path("plc-" + n + ".pcap")});
            std::replace(sim.begin(), sim.end(), std::string("memory.txt"), dir.path("memory.txt"));
            plcs.push_back(std::make_unique<Simulator>(sim));
            args.insert(args.end(), {"--port", n, sim[0] == "--pty" ? "--device" : "--tcp",
                                     plcs.back()->endpoint});
            args.insert(args.end(), port.host.begin(), port.host.end());
        }
        std::map<std::string, HostRun> runs;
        const HostRun run = runHost(args, &runs);
        for (const auto& plc : plcs) {
            ASSERT_TRUE(plc->stop());
        }
        // One port's failing station does not fail the run: every port did its scans.
        ASSERT_EQ(run.exitCode, 0) << run.errors;
        for (std::size_t i = 0; i < count; ++i) {
            const Port& port = ports[i];
            const std::string n = std::to_string(i);
            SCOPED_TRACE("port " + n);
            HostRun& r = runs[n];
            for (const auto& [name, v] : port.values) {
                EXPECT_EQ(r.scan[name]["values"], v.is_object() ? v["values"] : v) << name;
                EXPECT_EQ(r.scan[name]["state"], v.is_object() ? v["state"] : "ok") << name;
            }
            EXPECT_EQ(r.stats.value("writes_done", -1), port.writesDone);
            EXPECT_EQ(r.stats.value("abandoned", J()), port.abandoned);
            EXPECT_EQ(r.stats.value("retries", -1), 0);
            EXPECT_GE(r.stats.value("scan_ms_mean", 0.0), port.minScanMs);
            const Memory memory = readMemory(dir.path("plc" + n + ".txt"));
            // Every word of the image is the PLC's, but those of the station nobody serves.
            const Memory image = readMemory(dir.path("image-" + n + ".txt"));
            EXPECT_FALSE(image.empty());
            for (const auto& [key, value] : image) {
                const auto it = memory.find(key);
                EXPECT_TRUE(std::get<0>(key) == 4 || (it != memory.end() && it->second == value))
                    << "station " << std::get<0>(key) << " word " << std::get<2>(key);
            }
            if (port.writes.empty()) {
                continue;
            }
            Texts info = port.writes;
            info.insert(info.end(), port.reads.begin(), port.reads.end());
            info.insert(info.end(), port.reads.begin(), port.reads.end());
            const std::string hostCapture = dir.path("host-" + n + ".pcap");
            for (const std::string& capture : {hostCapture, dir.path("plc-" + n + ".pcap")}) {
                SCOPED_TRACE(capture);
                const std::vector<Row> rows =
                    decode(capture, {"kind", "direction", "request_in", "reply_in", "crc.status",
                                     "sum.status", "time", "_ws.col.Info"});
                ASSERT_EQ(rows.size(), info.size());
                // Requests and replies alternate, each reply paired with the frame before it; the
                // host sends requests and receives replies, the PLC the other way round.
                for (std::size_t f = 0; f < rows.size(); ++f) {
                    const bool request = f % 2 == 0;
                    EXPECT_EQ(rows[f][7], info[f]);
                    EXPECT_EQ(rows[f][0], request ? "0" : "1") << info[f];
                    EXPECT_EQ(rows[f][1], request == (capture == hostCapture) ? "0" : "1")
                        << info[f];
                    EXPECT_EQ(rows[f][2] + "/" + rows[f][3],
                              request ? "/" + std::to_string(f + 2) : std::to_string(f) + "/");
                    // A CRC, or a remote request's sum; a reply's time since its request.
                    EXPECT_EQ(rows[f][4] + rows[f][5], "good") << info[f];
                    EXPECT_EQ(rows[f][6].empty(), request) << info[f];
                }
            }
            const std::vector<Row> first = decode(hostCapture, port.fields, "frame.number == 1");
            EXPECT_EQ(first.empty() ? Row() : first[0], port.first);
        }
    }
}

// Two blocks read in three scans, with faults for the first requests: each failed reply is
// retried, the third failure in a row abandons the exchange (41: nothing came, 11: a bad CRC or
// station byte), and once the faults stop the values come. The host's capture shows each fault:
// the frames the filter finds, and the first one's kind, request_in and Info. A late reply passes
// for its retry's, whose own reply is dropped behind it, not taken for the next block's (retried
// once, unless the host was kept from the processor until the late reply was there).
TEST(ToolsEndToEnd, FaultsAreRetriedAbandonedRecoveredAndCaptured) {
    // faults, abandoned by code, least and most retries, filter, frames found, the first one
    // clang-format off
    const std::tuple<std::string, J, int, int, std::string, std::size_t, Row> cases[] = {
        {"--drop 1 --faults-for 6", {{"41", 2}}, 4, 4, "korvan.no_reply", 6,
         {"0", "", "read words st=1 area 0x80 @100 x2 [no reply]"}},
        {"--corrupt 1 --faults-for 3", {{"11", 1}}, 2, 2, "korvan.crc.status == \"bad\"", 3,
         {"1", "1", "reply st=161 4 bytes: 0x0064 0x0065 [bad CRC]"}},
        {"--misaddress 1 --faults-for 3", {{"11", 1}}, 2, 2, "korvan.station == 2", 3,
         {"1", "1", "reply st=2 4 bytes: 0x0064 0x0065"}},
        {"--delay 500 --faults-for 1", J::object(), 0, 1, "korvan.kind == 2", 1,
         {"2", "", "dropped 9 bytes: 01 20 04 00 64 00 65 7c 94 "
                   "(late reply st=1 4 bytes: 0x0064 0x0065)"}},
    };
    // clang-format on
    for (const auto& [faults, abandoned, minRetries, maxRetries, filter, shown, first] : cases) {
        SCOPED_TRACE(faults);
        ScratchDir dir;
        HostRun run = runHost({"--sim-options", "--fill ramp " + faults, "--turnaround",
                               kTurnaround, "--retries", "2", "--scans", "3", "--format", "json",
                               "--pcap", dir.path("host.pcap"), "14:100:2", "14:200:2"});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(run.stats.value("abandoned", J()), abandoned);
        EXPECT_GE(run.stats.value("retries", -1), minRetries);
        EXPECT_LE(run.stats.value("retries", -1), maxRetries);
        EXPECT_EQ(run.scan["14:100:2"]["values"], J::array({100, 101}));
        EXPECT_EQ(run.scan["14:200:2"]["values"], J::array({200, 201}));
        const std::vector<Row> rows =
            decode(dir.path("host.pcap"), {"kind", "request_in", "_ws.col.Info"}, filter);
        EXPECT_EQ(rows.size(), shown);
        EXPECT_EQ(rows.empty() ? Row() : rows[0], first);
    }
}

// Killed while polling, neither program leaves a capture that tshark cannot read to its end.
TEST(ToolsEndToEnd, ACaptureOfAKilledProgramOpens) {
    ScratchDir dir;
    const std::string host = dir.path("host.pcap"), plc = dir.path("plc.pcap");
    {
        Simulator sim({"--pty", "--pcap", plc});
        Process poller(KORVAN_REF_HOST, {"--device", sim.endpoint, "--seconds", "20", "--format",
                                         "csv", "--pcap", host, "14:0:100"});
        // Some dozens of frames first.
        waitFor(
            [&] {
                return std::filesystem::exists(host) && std::filesystem::file_size(host) >= 20000;
            },
            std::chrono::seconds(10));
        poller.finish(SIGKILL);
    }  // the simulator is killed too
    for (const std::string& capture : {host, plc}) {
        const std::vector<Row> rows = decode(capture, {"exchange"});
        ASSERT_GT(rows.size(), 20u) << capture;
        EXPECT_NE(rows.back()[0], "") << capture;
    }
}

}  // namespace
