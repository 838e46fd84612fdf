// The reference host serving several ports at once, as a runtime with several lines does: each
// port a private copy of the driver and a thread of its own, against a simulator of its own
// (pseudo-terminals and TCP alike), each with its own memory, stations and faults.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tool_processes.h"

namespace {

constexpr int kCode14 = 14;
constexpr int kWrittenWord = 200;

// The host's JSON lines of each port, by the port they name.
std::map<std::string, HostRun> runPorts(const std::vector<std::string>& args) {
    const tool_processes::ProgramRun program = tool_processes::runProgram(KORVAN_REF_HOST, args);
    std::map<std::string, HostRun> runs;
    std::istringstream lines(program.out);
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json o = nlohmann::json::parse(line, nullptr, false);
        if (!o.is_object() || !o.contains("port")) {
            continue;
        }
        HostRun& run = runs[o.value("port", "")];
        if (o.contains("scan")) {
            run.lastScan[o.value("name", "")] = o;
        } else if (o.contains("write")) {
            run.writes[o.value("write", "")] = o.value("status", "");
        } else if (o.contains("stats")) {
            run.stats = o["stats"];
        }
    }
    for (auto& [port, run] : runs) {
        run.exitCode = program.exitCode;
        run.errors = program.err;
    }
    return runs;
}

// Port i: a PLC of stations 1 and i + 1 whose words hold 1000 * (i + 1), on a pseudo-terminal
// for even i and TCP for odd i. Every port writes word 200 of station 1, each its own value, and
// reads words 100 and 101 of its own station; the last port also reads a station its PLC does
// not serve, whose exchanges fail.
void runSeveralPorts(int ports) {
    ScratchDir dir;
    ASSERT_TRUE(dir.valid());
    std::vector<std::unique_ptr<Simulator>> plcs;
    std::vector<std::string> args{"--format",     "json", "--scans",      "3",
                                  "--turnaround", "300",  "--image-dump", dir.path("image.txt")};
    const auto name = [](int i) { return "p" + std::to_string(i); };
    const auto read = [](int station) { return "14:100:2@" + std::to_string(station); };
    for (int i = 0; i < ports; ++i) {
        const std::string station = std::to_string(i + 1);
        std::vector<std::string> sim{"--pty"};
        if (i % 2 != 0) {
            sim = {"--tcp", "127.0.0.1:0"};
        }
        for (const std::string& word :
             {std::string("--stations"), "1," + station, std::string("--fill"),
              std::to_string(1000 * (i + 1)), std::string("--dump"), dir.path(name(i) + ".txt")}) {
            sim.push_back(word);
        }
        plcs.push_back(std::make_unique<Simulator>(sim));
        ASSERT_FALSE(plcs.back()->endpoint().empty()) << name(i);
        for (const std::string& word :
             {std::string("--port"), name(i), std::string(i % 2 == 0 ? "--device" : "--tcp"),
              plcs.back()->endpoint(), std::string("--per-var-station"), std::string("--retries"),
              std::string("0"), std::string("--write"),
              "14:" + std::to_string(kWrittenWord) + "@1=" + std::to_string(i + 7), read(i + 1)}) {
            args.push_back(word);
        }
        if (i == ports - 1) {
            args.push_back(read(i + 2));
        }
    }
    const std::map<std::string, HostRun> runs = runPorts(args);
    for (const auto& plc : plcs) {
        ASSERT_TRUE(plc->stop());
    }

    ASSERT_EQ(static_cast<int>(runs.size()), ports);
    // One port's failing station does not fail the run: every port did its scans.
    EXPECT_EQ(runs.begin()->second.exitCode, 0) << runs.begin()->second.errors;
    for (int i = 0; i < ports; ++i) {
        SCOPED_TRACE("port " + name(i));
        const HostRun& run = runs.at(name(i));
        const int fill = 1000 * (i + 1);
        EXPECT_EQ(run.values(read(i + 1)), words({fill, fill}));
        EXPECT_EQ(run.writeResults(), std::vector<std::string>({"done"}));
        EXPECT_EQ(run.stats.value("retries", -1), 0);
        if (i == ports - 1) {
            EXPECT_EQ(run.state(read(i + 2)), "failed 41");
        } else {
            EXPECT_EQ(run.abandoned(), nlohmann::json::object()) << "a fault of another port";
        }
        // Its write went to its own PLC alone, and its image is that PLC's memory.
        const Memory plc = readMemory(dir.path(name(i) + ".txt"));
        EXPECT_EQ(plc.at({1, kCode14, kWrittenWord}), i + 7);
        const Memory image = readMemory(dir.path("image-" + name(i) + ".txt"));
        EXPECT_FALSE(image.empty());
        for (const auto& [key, value] : image) {
            if (std::get<0>(key) == i + 2) {
                continue;  // the station nobody serves: never read, so not in the image's truth
            }
            const auto it = plc.find(key);
            EXPECT_TRUE(it != plc.end() && it->second == value)
                << "station " << std::get<0>(key) << " word " << std::get<2>(key);
        }
    }
}

}  // namespace

TEST(SeveralPorts, TwoPortsEachTalkToTheirOwnPlc) {
    runSeveralPorts(2);
}

TEST(SeveralPorts, FourPortsAndAFaultOnOneOfThem) {
    runSeveralPorts(4);
}
