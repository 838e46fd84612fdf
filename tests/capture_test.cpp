// Captures written by the reference host and the simulator (--pcap) over a pseudo-terminal, read
// back by tshark with the Lua dissector: the fields of both frame families, replies paired with
// their requests, damaged, missing and late replies as they came, and the capture of a killed
// program.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <vector>

#include "tool_processes.h"

namespace {

using Row = std::vector<std::string>;

// Enough for a loaded machine: a reply that arrives later counts as missing.
const std::string kTurnaround = "300";

// tshark's reading of `capture` with the dissector, both passes: a row per frame shown by
// `filter`, the fields in the order asked, several values of one field joined by commas.
std::vector<Row> decode(const std::string& capture, const std::vector<std::string>& fields,
                        const std::string& filter = "") {
    std::vector<std::string> args{"-2",     "-X",    "lua_script:" KORVAN_DISSECTOR,
                                  "-r",     capture, "-T",
                                  "fields", "-E",    "occurrence=a"};
    if (!filter.empty()) {
        args.insert(args.end(), {"-Y", filter});
    }
    for (const std::string& field : fields) {
        args.insert(args.end(), {"-e", field});
    }
    const tool_processes::ProgramRun run = tool_processes::runProgram(KORVAN_TSHARK, args);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::vector<Row> rows;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        Row row;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) {
            row.push_back(cell);
        }
        row.resize(fields.size());
        rows.push_back(row);
    }
    return rows;
}

// The pairing and direction of each frame, and its Info column.
const std::vector<std::string> kExchangeFields{
    "korvan.kind",       "korvan.direction",  "korvan.request_in", "korvan.reply_in",
    "korvan.crc.status", "korvan.sum.status", "korvan.time",       "_ws.col.Info"};
constexpr std::size_t kInfo = 7;

// Requests and replies alternate, each reply paired with the frame before it; the host sends
// requests and receives replies, the PLC the other way round.
void expectPairedExchanges(const std::vector<Row>& rows, bool hostSide) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i + 1));
        const bool request = i % 2 == 0;
        const std::string number = std::to_string(request ? i + 2 : i);
        EXPECT_EQ(rows[i][0], request ? "0" : "1");
        EXPECT_EQ(rows[i][1], request == hostSide ? "0" : "1");  // 0 sent, 1 received
        EXPECT_EQ(rows[i][request ? 3 : 2], number);
        EXPECT_EQ(rows[i][request ? 2 : 3], "");
        EXPECT_EQ(rows[i][4] + rows[i][5], "good");  // a CRC, or a remote request's sum
        EXPECT_EQ(rows[i][6].empty(), request);      // a reply's time since its request
    }
}

std::vector<std::string> column(const std::vector<Row>& rows, std::size_t index) {
    std::vector<std::string> values;
    for (const Row& row : rows) {
        values.push_back(row.at(index));
    }
    return values;
}

class Capture : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.valid()); }
    ScratchDir dir;
};

// One scan with writes, from both ends of a pseudo-terminal: the two captures decode to the same
// exchanges, and the first request's fields are read right.
TEST_F(Capture, BothEndsDecodeTheSameExchangesInEitherFamily) {
    struct Case {
        std::vector<std::string> options;
        std::vector<std::string> info;
        std::vector<std::string> fields;  // of the first request
        Row values;
    };
    const Case cases[] = {
        {{"--write", "14:200=0x1234", "--write", "2:40=1", "--write", "29:10.0=1", "14:100:2",
          "2:32:20"},
         {"write words st=1 area 0x80 @200 x1: 0x1234", "reply st=1 write acknowledged",
          "write bits st=1 area 0x03 @40 x1: 1", "reply st=1 write acknowledged",
          "read words st=1 area 0x80 @10 x1", "reply st=1 2 bytes: 0x000a",
          "write words st=1 area 0x80 @10 x1: 0x000b", "reply st=1 write acknowledged",
          "read bits st=1 area 0x03 @32 x32",
          "reply st=1 4 bytes: 01000000100000001100000000000000",
          "read words st=1 area 0x80 @100 x2", "reply st=1 4 bytes: 0x0064 0x0065"},
         {"korvan.family", "korvan.station", "korvan.function", "korvan.area_code", "korvan.area",
          "korvan.address", "korvan.count", "korvan.payload_length", "korvan.word", "korvan.crc"},
         {"0", "1", "0x21", "0x80", "14", "200", "1", "2", "0x1234", "0x728e"}},
        {{"--remote-mode", "--write", "14:5=0xBEEF", "--write", "29:20.15=1", "14:100:2", "2:16:3"},
         {"remote write st=1 area 14 @5 x1: 0xbeef", "reply st=1 write acknowledged",
          "remote write st=1 area 29 @20.15 x1: 1", "reply st=1 write acknowledged",
          "remote read st=1 area 2 @1 x1", "reply st=1 2 bytes: 1000000000000000",
          "remote read st=1 area 14 @100 x2", "reply st=1 4 bytes: 0x0064 0x0065"},
         {"korvan.family", "korvan.remote.length", "korvan.remote.owner", "korvan.remote.direction",
          "korvan.remote.port", "korvan.station", "korvan.area", "korvan.area_code",
          "korvan.address", "korvan.count", "korvan.remote.mark", "korvan.word", "korvan.sum"},
         {"1", "24", "1", "1", "1", "1", "14", "0x80", "5", "1", "0", "0xbeef", "0xdd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options.front());
        const std::string hostCapture = dir.path("host.pcap");
        const std::string plcCapture = dir.path("plc.pcap");
        Simulator plc({"--pty", "--fill", "ramp", "--pcap", plcCapture});
        std::vector<std::string> args{
            "--device", plc.endpoint(), "--turnaround", kTurnaround, "--scans",
            "1",        "--format",     "json",         "--pcap",    hostCapture};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const HostRun run = runHost(args);
        ASSERT_TRUE(plc.stop());
        ASSERT_EQ(run.exitCode, 0) << run.errors;

        std::vector<std::string> fields = kExchangeFields;
        fields.insert(fields.end(), c.fields.begin(), c.fields.end());
        for (const std::string& capture : {hostCapture, plcCapture}) {
            SCOPED_TRACE(capture);
            const std::vector<Row> rows = decode(capture, fields);
            ASSERT_FALSE(rows.empty());
            EXPECT_EQ(column(rows, kInfo), c.info);
            expectPairedExchanges(rows, capture == hostCapture);
            EXPECT_EQ(Row(rows[0].begin() + kExchangeFields.size(), rows[0].end()), c.values);
        }
    }
}

// Faults for the first request only: what the host received is what its capture shows.
TEST_F(Capture, DamagedMissingAndLateRepliesAreShownAsTheyCame) {
    struct Case {
        const char* faults;
        const char* filter;  // finds the one frame that shows the fault
        Row row;             // kind, request_in, Info
    };
    const Case cases[] = {
        {"--corrupt 1",
         "korvan.crc.status == \"bad\"",
         {"1", "1", "reply st=161 4 bytes: 0x0064 0x0065 [bad CRC]"}},  // station byte hit
        {"--drop 1", "korvan.no_reply", {"0", "", "read words st=1 area 0x80 @100 x2 [no reply]"}},
        // The late reply passes for its retry's; the retry's own comes behind it and is dropped.
        {"--delay 500",
         "korvan.kind == 2",
         {"2", "",
          "dropped 9 bytes: 01 20 04 00 64 00 65 7c 94 (late reply st=1 4 bytes: "
          "0x0064 0x0065)"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.faults);
        const std::string capture = dir.path("host.pcap");
        const HostRun run = runHost(
            {"--sim-options", std::string("--fill ramp --faults-for 1 ") + c.faults, "--turnaround",
             kTurnaround, "--scans", "2", "--format", "json", "--pcap", capture, "14:100:2"});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(decode(capture, {"korvan.kind", "korvan.request_in", "_ws.col.Info"}, c.filter),
                  std::vector<Row>{c.row});
    }
}

// Killed in the middle of polling, neither program leaves a capture that tshark cannot read to
// its last frame.
TEST_F(Capture, ACaptureOfAKilledProgramOpens) {
    const std::string hostCapture = dir.path("host.pcap");
    const std::string plcCapture = dir.path("plc.pcap");
    {
        const tools::UniqueFd output = tool_processes::outputFile();
        Simulator plc({"--pty", "--pcap", plcCapture});
        const pid_t host =
            tool_processes::spawn(KORVAN_REF_HOST,
                                  {"--device", plc.endpoint(), "--seconds", "20", "--format", "csv",
                                   "--pcap", hostCapture, "14:0:100"},
                                  output.get(), output.get());
        ASSERT_GT(host, 0);
        // Some dozens of frames, then both are killed (the simulator as it goes out of scope).
        constexpr off_t kEnoughBytes = 20000;
        struct stat file {};
        const auto deadline = tool_processes::Clock::now() + std::chrono::seconds(10);
        while ((stat(hostCapture.c_str(), &file) != 0 || file.st_size < kEnoughBytes) &&
               tool_processes::Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(tool_processes::kPollMs));
        }
        kill(host, SIGKILL);
        waitpid(host, nullptr, 0);
    }
    for (const std::string& capture : {hostCapture, plcCapture}) {
        SCOPED_TRACE(capture);
        const std::vector<Row> rows = decode(capture, {"korvan.exchange", "_ws.col.Info"});
        ASSERT_GT(rows.size(), 20u);
        EXPECT_NE(rows.back()[0], "");
    }
}

}  // namespace
