// Finding a PLC's line settings: the host's --discover against a simulator that, like a real
// UART, takes a request sent at other settings than its own for garbage.
#include <cctype>
#include <sstream>

#include "tool_processes.h"

namespace {

using namespace tooltest;

// A simulator at 19200 baud, even parity, station 7 answers those settings and that station
// only, in both frame families; and it receives nothing at any other settings: it counts
// requests only from the tries at its own.
TEST(Discovery, FindsTheSimulatorsSettingsAndOnlyThose) {
    // clang-format off
    const std::tuple<Texts, int, Texts, int, int> cases[] = {
        // By baud rate, then parity, station and family: 19200 8E1 comes 25th and 26th.
        {{"--bauds", "9600,19200,38400", "--parities", "none,even", "--stop-bits-list", "1",
          "--stations", "6-8", "--families", "local,remote"},
         0, {"19200 8E1 local 7", "19200 8E1 remote 7"}, 36, 36},
        {{"--bauds", "19200,38400", "--parities", "none,even", "--stop-bits-list", "1",
          "--stations", "6-8", "--first"},
         0, {"19200 8E1 local 7"}, 9, 24},
        // Stop bits before parity: 8O2, 8E2, 8O1, 8E1.
        {{"--bauds", "19200", "--parities", "odd,even", "--stop-bits-list", "2,1", "--stations",
          "7", "--families", "local"},
         0, {"19200 8E1 local 7"}, 4, 4},
        {{"--bauds", "9600", "--parities", "even", "--stop-bits-list", "1", "--stations", "7",
          "--families", "remote"},
         3, {}, 1, 1},
    };
    // clang-format on
    Simulator sim({"--pty", "--baud", "19200", "--parity", "even", "--stations", "7"});
    for (const auto& [options, exitCode, found, tries, combinations] : cases) {
        SCOPED_TRACE(::testing::PrintToString(options));
        Texts args{"--device",  sim.endpoint, "--discover", "--turnaround",
                   kTurnaround, "--format",   "json"};
        args.insert(args.end(), options.begin(), options.end());
        Process host(KORVAN_REF_HOST, args);
        EXPECT_EQ(host.finish(), exitCode) << host.err();
        // Each combination that answered, in a word, and the summary.
        Texts answered;
        J summary;
        for (const J& o : jsonLines(host.out())) {
            if (o.contains("summary")) {
                summary = o["summary"];
                continue;
            }
            std::ostringstream line;
            line << o.value("baud", 0) << " " << o.value("data_bits", 0)
                 << static_cast<char>(std::toupper(o.value("parity", "?")[0]))
                 << o.value("stop_bits", 0) << " " << o.value("family", "?") << " "
                 << o.value("station", 0);
            answered.push_back(line.str());
            EXPECT_GE(o.value("reply_ms", -1.0), 0.0) << o;
        }
        EXPECT_EQ(answered, found);
        EXPECT_EQ(summary.value("tries", -1), tries);
        EXPECT_EQ(summary.value("combinations", -1), combinations);
        EXPECT_EQ(summary.value("answered", -1), static_cast<int>(found.size()));
        EXPECT_NE(host.err().find(exitCode == 0 ? "answered;" : "nothing answered;"),
                  std::string::npos)
            << host.err();
    }
    ASSERT_TRUE(sim.stop());
    // The tries at 19200 8E1: 6, 3, 1 and none; the bytes of the others discarded.
    const std::string summary = sim.err();
    EXPECT_NE(summary.find(": 10 requests, 4 replies, "), std::string::npos) << summary;
    EXPECT_EQ(summary.find(" 0 bytes discarded"), std::string::npos) << summary;
}

}  // namespace
