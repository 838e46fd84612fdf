// Command-line parsing shared by the tools: `--name value`, `--name=value`, flags and
// positional arguments, and the number formats the options take.
#ifndef KORVAN_TOOLS_COMMAND_LINE_H
#define KORVAN_TOOLS_COMMAND_LINE_H

#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tools {

// A mistake in what the user typed: the tools print it with a hint and exit with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ParsedArgs {
    std::vector<std::pair<std::string, std::string>> options;  // in command-line order
    std::vector<std::string> positional;
};

// Splits argv by the known option names (without the leading dashes). Throws UsageError for an
// unknown option or a missing value.
ParsedArgs parseArgs(int argc, char** argv, const std::set<std::string>& withValue,
                     const std::set<std::string>& flags);

// One option of a tool: its name without the dashes, whether a value follows it, and what it
// sets in the tool's options.
template <typename Options>
struct Option {
    const char* name;
    bool takesValue;
    void (*apply)(Options& options, const std::string& value);
};

// Applies the command line's options to `options` in command-line order, each by its entry in
// `table`, and returns the positional arguments. Throws UsageError for an unknown option or a
// missing value.
template <typename Options>
std::vector<std::string> applyArgs(int argc, char** argv, const std::vector<Option<Options>>& table,
                                   Options& options) {
    std::set<std::string> withValue;
    std::set<std::string> flags;
    for (const Option<Options>& option : table) {
        (option.takesValue ? withValue : flags).insert(option.name);
    }
    ParsedArgs args = parseArgs(argc, argv, withValue, flags);
    for (const auto& [name, value] : args.options) {
        for (const Option<Options>& option : table) {
            if (name == option.name) {
                option.apply(options, value);
                break;
            }
        }
    }
    return std::move(args.positional);
}

// A decimal or 0x-prefixed integer within [min, max]; `what` names it in the error.
long parseInteger(const std::string& text, long min, long max, const std::string& what);
double parseFraction(const std::string& text, const std::string& what);
// A comma-separated list of integers within [min, max].
std::vector<long> parseIntegerList(const std::string& text, long min, long max,
                                   const std::string& what);
std::vector<std::string> splitText(const std::string& text, char separator);

}  // namespace tools

#endif
