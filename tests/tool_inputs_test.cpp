// What the two programs do with input they cannot use: numbers that are not plain decimal or
// 0x hex, files that are not regular files, a driver library named without a folder, a dump
// file that cannot be written.
#include <sys/stat.h>

#include <fstream>
#include <optional>

#include "command_line.h"
#include "tcp.h"
#include "tool_processes.h"

namespace {

using namespace tooltest;

TEST(ToolInputs, NumbersAreDecimalUnlessHexAndUseTheirWholeField) {
    // text, its value from -100 to 65535 (none: refused)
    const std::pair<std::string, std::optional<long>> integers[] = {
        {"010", 10},
        {"08", 8},
        {"0502", 502},
        {"0x1F", 31},
        {"0X1f", 31},
        {"-0x10", -16},
        {"-7", -7},
        {"65535", 65535},
        {"65536", {}},
        {"-101", {}},
        {"0x10000", {}},
        {{"1\0", 2}, {}},
        {" 1", {}},
        {"1 ", {}},
        {"+1", {}},
        {"", {}},
        {"-", {}},
        {"0x", {}},
        {"0x-1", {}},
        {"1e3", {}},
        {"0b1", {}},
        {"0o7", {}},
        {"99999999999999999999", {}},
    };
    for (const auto& [text, value] : integers) {
        SCOPED_TRACE("'" + text + "'");
        if (value) {
            EXPECT_EQ(tools::parseInteger(text, -100, 65535, "n"), *value);
        } else {
            EXPECT_THROW(tools::parseInteger(text, -100, 65535, "n"), tools::UsageError);
        }
    }
    // A NUL byte is shown, not cut off at.
    try {
        tools::parseInteger({"1\0", 2}, 0, 9, "--station");
        ADD_FAILURE();
    } catch (const tools::UsageError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "--station must be a number from 0 to 9 (decimal, or hexadecimal after 0x), "
                  "not '1\\x00'");
    }
    const std::pair<std::string, std::optional<double>> fractions[] = {
        {"0.25", 0.25}, {"1", 1.0},  {"0", 0.0},   {"1.5", {}},        {" 0.5", {}},
        {"0.5 ", {}},   {"nan", {}}, {"1e-1", {}}, {{"0.5\0", 4}, {}}, {"", {}},
    };
    for (const auto& [text, value] : fractions) {
        SCOPED_TRACE("'" + text + "'");
        if (value) {
            EXPECT_EQ(tools::parseFraction(text, "f"), *value);
        } else {
            EXPECT_THROW(tools::parseFraction(text, "f"), tools::UsageError);
        }
    }
    EXPECT_EQ(tools::parseEndpoint("127.0.0.1:0502", "").port, 502);
}

// Each case runs the program in a scratch folder (with the environment given) under a time
// limit, which gives status 124 to a program that hangs; the message must appear on its stderr,
// and with --format json the variables named must show the values given.
TEST(ToolInputs, ExitStatusAndMessageOfEachBadInput) {
    ScratchDir dir;
    std::filesystem::create_directory(dir.path("folder"));
    ASSERT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
    std::ofstream(dir.path("nul.txt")) << std::string("1 14 5\0 7\n", 10);
    std::ofstream(dir.path("nul.csv")) << std::string("v,14,100,1\0,1\n", 14);
    // Everything ten, and a leading zero on it: a station, addresses and values.
    std::ofstream(dir.path("ten.txt")) << "010 14 010 08\n010 14 011 0x0B\n010 14 012 012\n";
    std::ofstream(dir.path("ten.csv")) << "v,14,010,010,2\n";
    // A bare library name: this Qt's driver in the folder the host runs in, the other Qt's
    // under the same name on the loader's path, where loading it would fail (or crash).
    std::filesystem::create_directory(dir.path("lib"));
    std::filesystem::copy_file(KORVAN_DRIVER_LIBRARY, dir.path("libdriver.so"));
    std::filesystem::copy_file(KORVAN_OTHER_QT_DRIVER, dir.path("lib/libdriver.so"));
    const std::string onLoaderPath = "LD_LIBRARY_PATH=" + dir.path("lib");
    const std::string sim = KORVAN_PLC_SIM, host = KORVAN_REF_HOST;
    const std::string number = " must be a number from ";
    struct Case {
        Texts environment;
        std::string program;
        Texts args;
        int exitCode;
        std::string message;
        std::map<std::string, J> values;
    };
    // clang-format off
    const Case cases[] = {
        {{}, sim, {"--memory", "folder"}, 1, "folder is not a regular file", {}},
        {{}, sim, {"--memory", "/dev/zero"}, 1, "/dev/zero is not a regular file", {}},
        {{}, sim, {"--memory", "nul.txt"}, 1,
         "nul.txt:1: address" + number + "0 to 16777215 (decimal, or hexadecimal after 0x), "
         "not '5\\x00'", {}},
        {{}, sim, {"--dump", "folder"}, 1, "cannot write the dump file folder: Is a directory", {}},
        {{}, sim, {"--dump", "none/plc.txt"}, 1,
         "cannot write the dump file none/plc.txt: No such file or directory", {}},
        {{}, sim, {"--drop", " 0.5"}, 2, "--drop must be a fraction from 0 to 1, not ' 0.5'", {}},
        {{}, host, {"--tags", "folder", "14:0"}, 1, "folder is not a regular file", {}},
        {{}, host, {"--tags", "nul.csv", "14:0"}, 1, "the station at nul.csv:1" + number, {}},
        {{}, host, {"--library", "/dev/zero", "14:0"}, 1, "/dev/zero is not a regular file", {}},
        {{}, host, {"--library", "fifo", "14:0"}, 1, "./fifo is not a regular file", {}},
        {{}, host, {"--sim-options", "--stations 010 --memory ten.txt", "--station", "010",
                    "--per-var-station", "--tags", "ten.csv", "14:12", "--scans", "1",
                    "--format", "json"}, 0, "", {{"v", {8, 11}}, {"14:12", {12}}}},
        {{onLoaderPath}, host, {"--library", "libdriver.so", "--sim-options", "--fill 5",
                                "--scans", "1", "--format", "json", "14:0"}, 0, "",
         {{"14:0", {5}}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.program.substr(c.program.rfind('/') + 1) + " " + c.args[0] + " " +
                     c.args[1]);
        Texts args{"-C", dir.dir};
        args.insert(args.end(), c.environment.begin(), c.environment.end());
        args.insert(args.end(), {"timeout", "-k", "5", "20", c.program});
        args.insert(args.end(), c.args.begin(), c.args.end());
        Process run("/usr/bin/env", args);
        EXPECT_EQ(run.finish(), c.exitCode);
        const std::string out = run.out(), err = run.err();
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        std::map<std::string, J> values;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            const J o = J::parse(line, nullptr, false);
            if (o.contains("values")) {
                values[o.value("name", "")] = o["values"];
            }
        }
        EXPECT_EQ(values, c.values) << out << err;
    }
}

}  // namespace
