// Each tool's --help is made from its option table, which is also what its command line takes:
// every option of the table is listed at the start of a line with its value's placeholder, under
// its group's title, no line is wider than a terminal, and nothing else is listed as an option.
// The tools' page in docs/ describes every option too.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "host_options.h"
#include "sim_options.h"
#include "tap_options.h"

namespace {

constexpr std::size_t kWidestLine = 100;

template <typename Options>
void expectEveryOption(const std::string& help, const std::vector<tools::Option<Options>>& table) {
    std::ostringstream text;
    text << std::ifstream(KORVAN_TOOLS_PAGE).rdbuf();
    const std::string page = text.str();
    ASSERT_FALSE(page.empty()) << KORVAN_TOOLS_PAGE;
    std::size_t options = 0;
    for (const tools::Option<Options>& option : table) {
        if (option.isHeading()) {
            EXPECT_NE(help.find(std::string("\n") + option.help + ":\n"), std::string::npos)
                << option.help;
            continue;
        }
        ++options;
        EXPECT_NE(page.find(std::string("`--") + option.name), std::string::npos)
            << "--" << option.name << " is missing from " << KORVAN_TOOLS_PAGE;
        const std::string lead = std::string("\n  --") + option.name +
                                 (option.takesValue() ? std::string(" ") + option.value : "");
        EXPECT_TRUE(help.find(lead + ' ') != std::string::npos ||
                    help.find(lead + '\n') != std::string::npos)
            << lead;
    }
    std::istringstream lines(help);
    std::size_t listed = 0;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), kWidestLine) << line;
        listed += line.rfind("  --", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(listed, options);
}

TEST(ToolHelp, ListsEveryOptionOfTheTable) {
    expectEveryOption(refhost::hostUsage(), refhost::hostOptionTable());
    expectEveryOption(plcsim::simUsage(), plcsim::simOptionTable());
    expectEveryOption(linetap::tapUsage(), linetap::tapOptionTable());
}

}  // namespace
