// What the tools do with input they cannot use, from the command line, files and TCP peers that
// would hold the simulator.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <optional>

#include "byte_io.h"
#include "command_line.h"
#include "frame_bytes.h"
#include "tcp.h"
#include "tool_processes.h"

namespace {

using namespace tooltest;
using std::chrono::milliseconds;
using std::chrono::seconds;
using namespace testframes;

// Each text's value from `parse`, or none when it is refused.
template <typename Value, typename Parse>
void expectValues(const std::vector<std::pair<std::string, std::optional<Value>>>& cases,
                  Parse parse) {
    for (const auto& [text, value] : cases) {
        SCOPED_TRACE("'" + text + "'");
        if (value) {
            EXPECT_EQ(parse(text), *value);
        } else {
            EXPECT_THROW(parse(text), tools::UsageError);
        }
    }
}

TEST(ToolInputs, NumbersAreDecimalUnlessHexAndUseTheirWholeField) {
    // clang-format off
    const std::vector<std::pair<std::string, std::optional<long>>> integers = {
        {"010", 10}, {"08", 8}, {"0502", 502}, {"0x1F", 31}, {"0X1f", 31}, {"-0x10", -16},
        {"-7", -7}, {"65535", 65535}, {"65536", {}}, {"-101", {}}, {"0x10000", {}},
        {{"1\0", 2}, {}}, {" 1", {}}, {"1 ", {}}, {"+1", {}}, {"", {}}, {"-", {}}, {"0x", {}},
        {"0x-1", {}}, {"1e3", {}}, {"0b1", {}}, {"0o7", {}}, {"99999999999999999999", {}}};
    const std::vector<std::pair<std::string, std::optional<double>>> fractions = {
        {"0.25", 0.25}, {"1", 1.0}, {"0", 0.0}, {"1.5", {}}, {" 0.5", {}}, {"0.5 ", {}},
        {"nan", {}}, {"1e-1", {}}, {{"0.5\0", 4}, {}}, {"", {}}};
    // clang-format on
    expectValues(integers,
                 [](const std::string& t) { return tools::parseInteger(t, -100, 65535, "n"); });
    expectValues(fractions, [](const std::string& t) { return tools::parseFraction(t, "f"); });
    EXPECT_EQ(tools::parseEndpoint("127.0.0.1:0502", "").port, 502);
}

// Each case runs a program in a scratch folder under a time limit (status 124: it hung): its output
// holds the message, its JSON lines the values given, and it fails on bad input (status 1 or 2)
// before it polls.
TEST(ToolInputs, ExitStatusAndMessageOfEachBadInput) {
    ScratchDir dir;
    std::filesystem::create_directory(dir.path("folder"));
    ASSERT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
    std::ofstream(dir.path("nul.txt")) << std::string("1 14 5\0 7\n", 10);
    std::ofstream(dir.path("nul.csv")) << std::string("v,14,100,1\0,1\n", 14);
    // Everything ten, and a leading zero on it: a station, addresses and values.
    std::ofstream(dir.path("ten.txt")) << "010 14 010 08\n010 14 011 0x0B\n010 14 012 012\n";
    std::ofstream(dir.path("ten.csv")) << "v,14,010,010,2\n";
    std::ofstream(dir.path("area29.txt")) << "1 28 0 1\n1 29 0 1\n";  // 29 has no code of its own
    // An escape sequence, a bell and a byte that is not UTF-8.
    const std::string name = "a\x1b[31mb\x07\xff";
    std::ofstream(dir.path("names.csv")) << name << ",14,100,,1\n";
    // A bare library name: this Qt's driver in the folder the programs run in, the other Qt's
    // under the same name on the loader's path, where loading it would fail (or crash).
    std::filesystem::create_directory(dir.path("lib"));
    std::filesystem::copy_file(KORVAN_DRIVER_LIBRARY, dir.path("libdriver.so"));
    std::filesystem::copy_file(KORVAN_OTHER_QT_DRIVER, dir.path("lib/libdriver.so"));
    const std::string sim = KORVAN_PLC_SIM, host = KORVAN_REF_HOST, tap = KORVAN_LINE_TAP;
    const std::string number = " must be a number from ", beyond = " reaches beyond ";
    struct Case {
        std::string program;
        Texts args;
        int exitCode;
        std::string message;
        std::map<std::string, J> values = {};
    };
    // clang-format off
    const Case cases[] = {
        {sim, {"--memory", "folder"}, 1, "folder is not a regular file"},
        {sim, {"--memory", "/dev/zero"}, 1, "/dev/zero is not a regular file"},
        {sim, {"--memory", "nul.txt"}, 1,
         "nul.txt:1: address" + number + "0 to 16777215 (decimal, or hexadecimal after 0x), "
         "not '5\\x00'"},
        {sim, {"--memory", "area29.txt"}, 1, "area29.txt:2: area" + number + "0 to 28 ("},
        {sim, {"--dump", "folder"}, 1, "cannot write the dump file folder: Is a directory"},
        {sim, {"--dump", "none/plc.txt"}, 1,
         "cannot write the dump file none/plc.txt: No such file or directory"},
        {sim, {"--idle-timeout", "-1"}, 2, "--idle-timeout" + number + "0 to 86400"},
        {sim, {"--drop", " 0.5"}, 2, "--drop must be a number from 0 to 1, not ' 0.5'"},
        {sim, {"--pcap", "-"}, 2, "--pcap takes a file name, not '-'"},
        {host, {"--tags", "folder", "14:0"}, 1, "folder is not a regular file"},
        {host, {"--tags", "nul.csv", "14:0"}, 1, "the station at nul.csv:1" + number},
        {host, {"--library", "/dev/zero", "14:0"}, 1, "/dev/zero is not a regular file"},
        {host, {"--library", "fifo", "14:0"}, 1, "./fifo is not a regular file"},
        {host, {"--library", KORVAN_OTHER_QT_DRIVER, "14:0"}, 1, "must share one Qt major"},
        {host, {"--device", "/dev/nothing", "14:0"}, 1, "cannot open serial device /dev/nothing"},
        {host, {"--tcp", "127.0.0.1:1", "14:0"}, 1, "Connection refused"},
        {host, {"14:12x"}, 2, "bad variable text '14:12x'"},
        {host, {"--sim-options", "--silent 1", "--retries", "0", "--turnaround", "50", "--scans",
                "2", "14:0"}, 3, "the PLC never answered"},
        {host, {"--seconds", "inf", "14:0"}, 2, "--seconds must be a number from 0.001"},
        {host, {"--seconds", "1e10", "14:0"}, 2, "--seconds must be a number from 0.001"},
        {host, {"--seconds", "1e-9", "14:0"}, 2, "--seconds must be a number from 0.001"},
        // A local frame carries 24 bits of address: in bits for bit areas, the word for area 29.
        {host, {"14:16777216"}, 2, "'14:16777216'" + beyond + "16777215"},
        {host, {"14:16777215:2"}, 2, "'14:16777215:2'" + beyond + "16777215"},
        {host, {"2:16777215:2"}, 2, "'2:16777215:2'" + beyond + "16777215"},
        {host, {"0:100000000"}, 2, "'0:100000000'" + beyond + "77777777"},
        {host, {"29:16777216.0"}, 2, "'29:16777216.0'" + beyond + "16777215.15"},
        {host, {"--write", "14:16777215=1,2"}, 2, "'14:16777215=1,2'" + beyond + "16777215"},
        {host, {"--remote-mode", "14:2147483647:2"}, 2, beyond + "2147483647"},
        {host, {"--pcap", "-", "14:0"}, 2, "--pcap takes a file name, not '-'"},
        {host, {"--image-dump", "-", "14:0"}, 2, "--image-dump takes a file name, not '-'"},
        {host, {"--image-dump", "none/image.txt", "14:0"}, 1,
         "cannot write the image dump none/image.txt: No such file or directory"},
        // The simulator is the judge of its own options; the host tells that it failed.
        {host, {"--sim-options", "--dump none/plc.txt", "--scans", "1", "14:0"}, 1, "none/plc.txt"},
        // A discovery takes its settings as lists, and nothing a discovery has no use for.
        {host, {"--discover", "14:0"}, 2, "--discover reads a word of its own: give no variables"},
        {host, {"--discover", "--baud", "19200"}, 2,
         "--baud does not go with --discover: list what to try with --bauds"},
        {host, {"--discover", "--remote-mode"}, 2,
         "--remote-mode does not go with --discover: list what to try with --families"},
        {host, {"--discover", "--scans", "3"}, 2, "--scans does not go with --discover"},
        {host, {"--discover", "--tcp", "127.0.0.1:1"}, 2, "--tcp does not go with --discover"},
        {host, {"--discover", "--port", "a"}, 2, "--port does not go with --discover"},
        {host, {"--first", "14:0"}, 2, "--first goes with --discover"},
        {host, {"--discover", "--stations", "9-3"}, 2, "--stations takes a range from low to high"},
        {host, {"--discover", "--stations", "1-256"}, 2, "station must be a number from 1 to 255"},
        {host, {"--discover", "--stations", "1,,2"}, 2, "station must be a number from 1 to 255"},
        {host, {"--discover", "--bauds", "9600,9601"}, 2, "baud rate 9601 is not one of"},
        {host, {"--discover", "--parities", "mark"}, 2, "--parities takes none, even and odd, not"},
        {host, {"--discover", "--stop-bits-list", "3"}, 2, "--stop-bits-list" + number + "1 to 2"},
        {host, {"--discover", "--families", "serial"}, 2, "--families takes local and remote, not"},
        {tap, {}, 2, "name the line: --device PATH, or --requests PATH and --replies PATH"},
        {tap, {"--device", "/dev/null", "--requests", "a", "--replies", "b"}, 2, "not both"},
        {tap, {"--requests", "/dev/null"}, 2, "--requests and --replies go together"},
        {tap, {"--device", "/dev/null", "--gap", "0"}, 2, "--gap must be a number from 1 to 10000"},
        {tap, {"--device", "/dev/null", "--format", "xml"}, 2, "--format must be table, csv or"},
        {tap, {"--device", "/dev/null", "--pcap", "-"}, 2, "--pcap takes a file name"},
        {tap, {"--device", "/dev/no-such-line"}, 1, "cannot open serial device /dev/no-such-line"},
        {tap, {"--device", "/dev/null"}, 1, "/dev/null is not a serial device"},
        {tap, {"--device", "/dev/null", "--pcap", "none/p.pcap"}, 1, "cannot write capture file"},
        // Values that are used: numbers with a leading zero are decimal.
        {host, {"--sim-options", "--stations 010 --memory ten.txt", "--station", "010", "--tags",
                "ten.csv", "--per-var-station", "14:12", "--scans", "1", "--format", "json"}, 0, "",
         {{"v", {8, 11}}, {"14:12", {12}}}},
        // The last address of a local frame, in a word area, an octal bit area and area 29.
        {host, {"--sim-options", "--fill 0x8000", "--scans", "1", "--format", "json", "14:16777215",
                "0:77777777", "29:16777215.15"}, 0, "",
         {{"14:16777215", {0x8000}}, {"0:77777777", {1}}, {"29:16777215.15", {1}}}},
        {host, {"--library", "libdriver.so", "--sim-options", "--fill 5", "--scans", "1",
                "--format", "json", "14:0"}, 0, "", {{"14:0", {5}}}},
        // Names shown escaped in the table and in JSON, quoted in CSV.
        {host, {"--tags", "names.csv", "--sim-options", "--fill 7", "--scans", "1", "--format",
                "table"}, 0, "a\\x1b[31mb\\x07\\xff"},
        {host, {"--tags", "names.csv", "--sim-options", "--fill 7", "--scans", "1", "--format",
                "csv"}, 0, ",\"" + name + "\",1,14,100,7,ok\n"},
        {host, {"--tags", "names.csv", "--sim-options", "--fill 7", "--scans", "1", "--format",
                "json"}, 0, "", {{"a\x1b[31mb\x07\xef\xbf\xbd", {7}}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        Texts args{"-C", dir.dir,  "LD_LIBRARY_PATH=" + dir.path("lib"), "timeout", "-k", "5",
                   "20", c.program};
        args.insert(args.end(), c.args.begin(), c.args.end());
        Process run("/usr/bin/env", args);
        EXPECT_EQ(run.finish(), c.exitCode);
        const std::string out = run.out(), err = run.err();
        EXPECT_NE((err + out).find(c.message), std::string::npos) << err << out;
        // A terminal is never sent an escape, but as a CSV field's own bytes.
        const bool csv = std::count(c.args.begin(), c.args.end(), "csv") != 0;
        EXPECT_TRUE(csv || out.find('\x1b') == std::string::npos) << out;
        const bool refused = c.exitCode == 1 || c.exitCode == 2;
        EXPECT_FALSE(refused && err.find("polling") != std::string::npos) << err;
        std::map<std::string, J> values;
        for (const J& o : jsonLines(out)) {
            if (o.contains("values")) {
                values[o.value("name", "")] = o["values"];
            }
        }
        EXPECT_EQ(values, c.values) << out << err;
    }
}

tools::UniqueFd connectTo(const std::string& endpoint) {
    return tools::connectTcp(tools::parseEndpoint(endpoint, ""), 1000);
}

// Sends all of `bytes` unless the other end takes none for `limit`; false then.
bool sendWithin(int fd, const Bytes& bytes, milliseconds limit) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t n =
            send(fd, bytes.data() + sent, bytes.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        pollfd p{fd, POLLOUT, 0};
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
        } else if (poll(&p, 1, static_cast<int>(limit.count())) != 1) {
            return false;
        }
    }
    return true;
}

// Requests of 100 words each, sent and never read, until the simulator has stopped taking
// them for half a second: it is then stuck writing replies nobody reads.
void sendWithoutReading(int fd) {
    const Bytes requests = joined(std::vector<Bytes>(100, localFrame(1, 100, 100)));
    while (sendWithin(fd, requests, milliseconds(500))) {
    }
}

// Whether a read of words 100 and 101 sent behind `before` gets the reply of --fill ramp within
// `limit`.
bool answersRead(int fd, milliseconds limit, Bytes before = {}) {
    const Bytes read = localFrame(1, 100, 2), reply = bytesOf("01 20 04 00 64 00 65 7C 94");
    before.insert(before.end(), read.begin(), read.end());
    Bytes got, beyond;
    return sendWithin(fd, before, seconds(5)) &&
           (tools::readFor(fd, reply.size(), static_cast<int>(limit.count()), got, beyond),
            got == reply);
}

// One connection is served at a time, but none holds the simulator for longer than the idle
// timeout: one that sends nothing, then one that sends requests and never reads, are each
// dropped after a second, and the next is served. A read of 65,535 words gets no answer, and a
// megabyte of noise (bytes that start long frames by either family's length byte: 0xFF for a
// remote frame, 0x21 for a local write) delays the request behind it by little.
TEST(ToolInputs, NoPeerHoldsTheSimulatorPastTheIdleTimeout) {
    Simulator sim({"--tcp", "127.0.0.1:0", "--fill", "ramp", "--idle-timeout", "1"});
    ASSERT_FALSE(sim.endpoint.empty()) << sim.err();
    {
        const tools::UniqueFd silent = connectTo(sim.endpoint);
        const tools::UniqueFd next = connectTo(sim.endpoint);
        const auto start = Clock::now();
        EXPECT_TRUE(answersRead(next.get(), seconds(5)));
        EXPECT_GE(Clock::now() - start, milliseconds(900));  // only once the first was dropped
        char byte;
        EXPECT_EQ(recv(silent.get(), &byte, 1, MSG_DONTWAIT), 0);  // closed
    }
    {
        const tools::UniqueFd deaf = connectTo(sim.endpoint);
        sendWithoutReading(deaf.get());
        EXPECT_TRUE(answersRead(connectTo(sim.endpoint).get(), seconds(5)));
    }
    Bytes noise = localFrame(1, 0, 0xFFFF);
    noise.resize(noise.size() + (1 << 19), 0xFF);
    noise.resize(noise.size() + (1 << 19), 0x21);
    // A fraction of a second; minutes before each start was checked once in constant time.
    EXPECT_TRUE(answersRead(connectTo(sim.endpoint).get(), seconds(10), noise));
    EXPECT_TRUE(sim.stop());
}

// Asked to stop while it holds a reply back or cannot write one, the simulator stops within a
// second. If it does not, the client closes its end after five, which lets it go on.
TEST(ToolInputs, TheSimulatorStopsAtOnceWhateverItWaitsFor) {
    for (const bool deaf : {false, true}) {
        SCOPED_TRACE(deaf ? "not read" : "held back");
        Simulator sim(
            {"--tcp", "127.0.0.1:0", deaf ? "--idle-timeout" : "--delay", deaf ? "0" : "10000"});
        ASSERT_FALSE(sim.endpoint.empty()) << sim.err();
        tools::UniqueFd fd = connectTo(sim.endpoint);
        if (deaf) {
            sendWithoutReading(fd.get());
        } else {
            sendWithin(fd.get(), localFrame(1, 100, 2), seconds(1));
            std::this_thread::sleep_for(milliseconds(200));
        }
        const auto start = Clock::now();
        std::future<int> exited =
            std::async(std::launch::async, [&sim] { return sim.finish(SIGTERM); });
        if (exited.wait_for(seconds(5)) != std::future_status::ready) {
            fd.reset();
        }
        EXPECT_EQ(exited.get(), 0);
        EXPECT_LT(Clock::now() - start, milliseconds(1500));
    }
}

}  // namespace
