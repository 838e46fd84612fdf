// The reference host and the PLC simulator as separate processes, over a pseudo-terminal and
// over TCP on loopback: the driver, loaded by the host, against a PLC that shares no code with
// it. The simulator's memory dump and the host's image dump are compared word for word.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tool_processes.h"

namespace {

// station area address value; area 2 word 2 holds bits 32..47.
constexpr char kMemory[] = R"(1 14 100 0x1234
1 14 101 0xABCD
1 2 2 0x0008
1 2 3 0x8001
1 14 10 0x0008
1 14 12 0x0F00
2 14 0 0x2222
2 1 0 0x0005
3 14 0 0x3333
)";

constexpr int kCode14 = 14;
constexpr int kArea1 = 1;
constexpr int kArea2 = 2;
// Enough for a loaded machine: a reply that arrives later counts as missing.
const std::string kTurnaround = "300";

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ToolsEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.valid());
        std::ofstream file(path("memory.txt"), std::ios::binary);
        ASSERT_TRUE(file.is_open());
        file << kMemory;
    }

    std::string path(const char* name) const { return dir.path(name); }

    std::vector<std::string> simulatorArgs(std::vector<std::string> transport) const {
        const std::vector<std::string> common{"--stations",       "1,2,3",  "--memory",
                                              path("memory.txt"), "--dump", path("plc.txt")};
        transport.insert(transport.end(), common.begin(), common.end());
        return transport;
    }

    // Every word of the driver's image equals the PLC's word; returns the PLC's memory.
    Memory expectImageMatchesPlc() {
        const Memory plc = readMemory(path("plc.txt"));
        const Memory image = readMemory(path("image.txt"));
        EXPECT_FALSE(image.empty());
        for (const auto& [key, value] : image) {
            const auto it = plc.find(key);
            EXPECT_TRUE(it != plc.end() && it->second == value)
                << "station " << std::get<0>(key) << " area " << std::get<1>(key) << " word "
                << std::get<2>(key) << ": image " << value;
        }
        return plc;
    }

    ScratchDir dir;
};

TEST_F(ToolsEndToEnd, ReadsAndWritesOverAPseudoTerminal) {
    Simulator plc(simulatorArgs({"--pty"}));
    ASSERT_TRUE(startsWith(plc.endpoint(), "/dev/")) << "no pseudo-terminal";
    const HostRun run = runHost({"--device",        plc.endpoint(), "--turnaround",
                                 kTurnaround,       "--scans",      "3",
                                 "--format",        "json",         "--image-dump",
                                 path("image.txt"), "--write",      "14:200=0x5678,0x9ABC",
                                 "--write",         "2:40=1",       "--write",
                                 "29:12.1=1",       "14:100:2",     "2:35:20",
                                 "29:10.3",         "14:200:2",     "29:12.1"});
    ASSERT_TRUE(plc.stop());
    ASSERT_EQ(run.exitCode, 0) << run.errors;

    EXPECT_EQ(run.values("14:100:2"), words({0x1234, 0xABCD}));
    const nlohmann::json bits = words({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(run.values("2:35:20"), bits);  // bits 35, 40 (written) and 48
    EXPECT_EQ(run.values("29:10.3"), words({1}));
    EXPECT_EQ(run.values("14:200:2"), words({0x5678, 0x9ABC}));
    EXPECT_EQ(run.values("29:12.1"), words({1}));
    EXPECT_EQ(run.writes.size(), 3u);
    EXPECT_EQ(run.writeResults(), std::vector<std::string>({"done", "done", "done"}));
    EXPECT_EQ(run.stats.value("scans", 0), 3);

    const Memory memory = expectImageMatchesPlc();
    EXPECT_EQ(memory.at({1, kCode14, 200}), 0x5678);
    EXPECT_EQ(memory.at({1, kCode14, 201}), 0x9ABC);
    EXPECT_EQ(memory.at({1, kArea2, 2}), 0x0108);    // bit 40 set beside bit 35
    EXPECT_EQ(memory.at({1, kCode14, 12}), 0x0F02);  // bit-in-word: the other bits kept
}

TEST_F(ToolsEndToEnd, RemoteFramesOverTcpToSeveralStationsWithOneSwitchedOff) {
    Simulator plc(simulatorArgs({"--tcp", "127.0.0.1:0"}));
    ASSERT_TRUE(startsWith(plc.endpoint(), "127.0.0.1:")) << "no TCP port";
    const HostRun run = runHost({"--tcp",         plc.endpoint(),
                                 "--turnaround",  kTurnaround,
                                 "--remote-mode", "--per-var-station",
                                 "--off",         "3",
                                 "--scans",       "2",
                                 "--format",      "json",
                                 "--image-dump",  path("image.txt"),
                                 "--write",       "14:5@1=0xBEEF",
                                 "--write",       "1:1@2=1",
                                 "--write",       "29:20.15@2=1",
                                 "14:0@1",        "14:0@2",
                                 "14:0@3",        "14:5@1",
                                 "1:0:3@2",       "29:20.15@2"});
    ASSERT_TRUE(plc.stop());
    ASSERT_EQ(run.exitCode, 0) << run.errors;

    EXPECT_EQ(run.values("14:0@2"), words({0x2222}));
    EXPECT_EQ(run.state("14:0@2"), "ok");
    EXPECT_EQ(run.values("14:0@3"), words({0}));  // never asked: the PLC holds 0x3333
    EXPECT_EQ(run.state("14:0@3"), "off");
    EXPECT_EQ(run.values("14:5@1"), words({0xBEEF}));
    EXPECT_EQ(run.values("1:0:3@2"), words({1, 1, 1}));
    EXPECT_EQ(run.values("29:20.15@2"), words({1}));
    EXPECT_EQ(run.writeResults(), std::vector<std::string>({"done", "done", "done"}));

    const Memory memory = expectImageMatchesPlc();
    EXPECT_EQ(memory.at({1, kCode14, 5}), 0xBEEF);
    EXPECT_EQ(memory.at({2, kArea1, 0}), 0x0007);
    EXPECT_EQ(memory.at({2, kCode14, 20}), 0x8000);
}

// Faults for the first requests only: each failed reply is retried, the third failure in a row
// abandons the exchange with the code of its cause, and once the faults stop the values come.
TEST_F(ToolsEndToEnd, FaultsAreRetriedThenAbandonedThenRecovered) {
    struct Case {
        const char* faults;
        const char* code;
        int abandoned;
    };
    const Case cases[] = {
        {"--drop 1 --faults-for 6", "41", 2},        // nothing received, cyclic read (owner 0)
        {"--corrupt 1 --faults-for 3", "11", 1},     // CRC fails
        {"--misaddress 1 --faults-for 3", "11", 1},  // station byte differs
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.faults);
        const HostRun run = runHost({"--sim-options", std::string("--fill ramp ") + c.faults,
                                     "--turnaround", kTurnaround, "--retries", "2", "--scans", "3",
                                     "--format", "json", "14:100:2"});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(run.abandoned(), nlohmann::json::object({{c.code, c.abandoned}}));
        EXPECT_EQ(run.stats.value("retries", 0), 2 * c.abandoned);
        EXPECT_EQ(run.values("14:100:2"), words({100, 101}));
        EXPECT_EQ(run.state("14:100:2"), "ok");
    }
}

// The first reply comes after its timeout, while the host waits for the retry's: the reply to
// the retry, equal to it, must not then be taken for the next block's, which has the same
// station and length.
TEST_F(ToolsEndToEnd, ALateReplyIsNotTakenForTheNextRequests) {
    const HostRun run = runHost({"--sim-options", "--fill ramp --delay 500 --faults-for 1",
                                 "--turnaround", kTurnaround, "--retries", "2", "--scans", "3",
                                 "--format", "json", "14:100:2", "14:200:2"});
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_EQ(run.values("14:100:2"), words({100, 101}));
    EXPECT_EQ(run.values("14:200:2"), words({200, 201}));
    // Once, unless the host was kept from the processor so long that the late reply was there
    // when it looked.
    EXPECT_LE(run.stats.value("retries", 0), 1);
    EXPECT_TRUE(run.abandoned().empty());
}

// With --baud-delay the simulator answers when a real line would have carried the request and
// the reply: a scan of one 2-word read (10 bytes out, 9 back) takes at least their line time at
// the simulator's settings, and not much longer. The host takes the same settings, as a host on a
// real line does.
TEST_F(ToolsEndToEnd, BaudDelayHoldsEachReplyForItsLineTime) {
    struct Case {
        std::vector<std::string> line;
        int bitsPerCharacter;  // start, data, parity and stop bits
        int baud;
    };
    const Case cases[] = {
        {{"--baud", "9600"}, 10, 9600},
        {{"--baud", "4800", "--data-bits", "7", "--parity", "even", "--stop-bits", "2"}, 11, 4800},
    };
    constexpr int kExchangeBytes = 10 + 9;
    constexpr double kLooseFactor = 1.5;
    constexpr double kPrintedTo = 0.05;  // the host prints milliseconds to one decimal
    for (const Case& c : cases) {
        std::string sim = "--fill ramp --baud-delay";
        for (const std::string& word : c.line) {
            sim += " " + word;
        }
        SCOPED_TRACE(sim);
        std::vector<std::string> args = c.line;
        for (const std::string& word :
             {std::string("--sim-options"), sim, std::string("--turnaround"), kTurnaround,
              std::string("--scans"), std::string("8"), std::string("--format"),
              std::string("json"), std::string("14:100:2")}) {
            args.push_back(word);
        }
        const HostRun run = runHost(args);
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(run.values("14:100:2"), words({100, 101}));
        EXPECT_EQ(run.stats.value("retries", -1), 0);
        const double lineMs = kExchangeBytes * c.bitsPerCharacter * 1000.0 / c.baud;
        const double scanMs = run.stats.value("scan_ms_mean", 0.0);
        EXPECT_GE(scanMs, lineMs - kPrintedTo);
        EXPECT_LT(scanMs, kLooseFactor * lineMs);
    }
}

TEST_F(ToolsEndToEnd, ASilentStationFailsWhileTheOthersAnswer) {
    const HostRun run =
        runHost({"--sim-options", "--stations 1,2 --silent 2 --fill ramp", "--turnaround",
                 kTurnaround, "--retries", "1", "--per-var-station", "--scans", "2", "--format",
                 "json", "--write", "14:7@2=5", "14:100@1", "14:100@2"});
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_EQ(run.values("14:100@1"), words({100}));
    EXPECT_EQ(run.state("14:100@1"), "ok");
    EXPECT_EQ(run.state("14:100@2"), "failed 41");
    EXPECT_EQ(run.writeResult("14:7@2=5"), "failed");
    EXPECT_EQ(run.abandoned().value("42", 0), 1);  // the write, owner 1
    EXPECT_EQ(run.abandoned().value("41", 0), 2);  // one read of station 2 per scan
}

TEST_F(ToolsEndToEnd, ReportsErrorsAndAPlcThatNeverAnswers) {
    HostRun run = runHost({"--device", "/dev/no-such-line", "14:0"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(contains(run.errors, "cannot open serial device /dev/no-such-line")) << run.errors;

    run = runHost({"--tcp", "127.0.0.1:1", "14:0"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(contains(run.errors, "Connection refused")) << run.errors;

    // Built against the other Qt major: refused before it is loaded.
    run = runHost({"--library", KORVAN_OTHER_QT_DRIVER, "14:0"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(contains(run.errors, "must share one Qt major")) << run.errors;

    run = runHost({"14:12x"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(contains(run.errors, "bad variable text '14:12x'")) << run.errors;

    run = runHost({"--sim-options", "--silent 1", "--retries", "0", "--turnaround", "50", "--scans",
                   "2", "--format", "json", "14:0"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(contains(run.errors, "the PLC never answered")) << run.errors;
}

}  // namespace
