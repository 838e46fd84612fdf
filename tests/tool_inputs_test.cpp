// What the two programs do with input they cannot use: numbers that are not plain decimal or
// 0x hex.
#include <optional>

#include "command_line.h"
#include "tcp.h"
#include "tool_processes.h"

namespace {

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

}  // namespace
