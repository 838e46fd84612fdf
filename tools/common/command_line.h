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

// One argument: an option by its name (without the dashes) and its value (empty for a flag), or
// a positional argument, whose name is empty.
struct Arg {
    std::string name;
    std::string value;
};

// Splits argv by the known option names, keeping the command line's order. Throws UsageError for
// an unknown option or a missing value.
std::vector<Arg> parseArgs(int argc, char** argv, const std::set<std::string>& withValue,
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
std::vector<Arg> parseArgs(int argc, char** argv, const std::vector<Option<Options>>& table) {
    std::set<std::string> withValue;
    std::set<std::string> flags;
    for (const Option<Options>& option : table) {
        (option.takesValue ? withValue : flags).insert(option.name);
    }
    return parseArgs(argc, argv, withValue, flags);
}

// Applies one option to `options` by its entry in `table`.
template <typename Options>
void applyArg(const std::vector<Option<Options>>& table, const Arg& arg, Options& options) {
    for (const Option<Options>& option : table) {
        if (arg.name == option.name) {
            option.apply(options, arg.value);
            return;
        }
    }
}

template <typename Options>
std::vector<std::string> applyArgs(int argc, char** argv, const std::vector<Option<Options>>& table,
                                   Options& options) {
    std::vector<std::string> positional;
    for (const Arg& arg : parseArgs(argc, argv, table)) {
        if (arg.name.empty()) {
            positional.push_back(arg.value);
        } else {
            applyArg(table, arg, options);
        }
    }
    return positional;
}

// An integer within [min, max], decimal (a leading zero changes nothing) or hexadecimal after
// 0x, with an optional '-' first and nothing else: no white space, no '+', no NUL byte. `what`
// names it in the error.
long parseInteger(const std::string& text, long min, long max, const std::string& what);
// A number from 0 to 1 in plain decimal digits, e.g. 0.25.
double parseFraction(const std::string& text, const std::string& what);
// A comma-separated list of integers within [min, max].
std::vector<long> parseIntegerList(const std::string& text, long min, long max,
                                   const std::string& what);
std::vector<std::string> splitText(const std::string& text, char separator);

}  // namespace tools

#endif
