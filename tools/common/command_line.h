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

// One entry of a tool's option table, which is both what the tool accepts and its help: an option
// by its name without the dashes, the placeholder of its value in the help (null for a flag),
// what it does, and what it sets in the tool's options. An entry without a name heads a group of
// options in the help; its text is the group's title.
template <typename Options>
struct Option {
    const char* name;
    const char* value;
    const char* help;
    void (*apply)(Options& options, const std::string& value);

    bool isHeading() const { return name == nullptr; }
    bool takesValue() const { return value != nullptr; }
};

template <typename Options>
Option<Options> heading(const char* title) {
    return {nullptr, nullptr, title, nullptr};
}

// The help's lines for one option, or for a group's title: the option and its value placeholder,
// then its text wrapped beside them.
std::string optionHelp(const char* name, const char* value, const char* help);
std::string headingHelp(const char* title);

// The options part of a tool's help, in the table's order.
template <typename Options>
std::string optionsHelp(const std::vector<Option<Options>>& table) {
    std::string text;
    for (const Option<Options>& option : table) {
        text += option.isHeading() ? headingHelp(option.help)
                                   : optionHelp(option.name, option.value, option.help);
    }
    return text;
}

// Applies the command line's options to `options` in command-line order, each by its entry in
// `table`, and returns the positional arguments. Throws UsageError for an unknown option or a
// missing value.
template <typename Options>
std::vector<Arg> parseArgs(int argc, char** argv, const std::vector<Option<Options>>& table) {
    std::set<std::string> withValue;
    std::set<std::string> flags;
    for (const Option<Options>& option : table) {
        if (!option.isHeading()) {
            (option.takesValue() ? withValue : flags).insert(option.name);
        }
    }
    return parseArgs(argc, argv, withValue, flags);
}

// Applies one option to `options` by its entry in `table`.
template <typename Options>
void applyArg(const std::vector<Option<Options>>& table, const Arg& arg, Options& options) {
    for (const Option<Options>& option : table) {
        if (!option.isHeading() && arg.name == option.name) {
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
// A plain decimal number (digits and at most one point) within [min, max].
double parseDecimal(const std::string& text, double min, double max, const std::string& what);
double parseFraction(const std::string& text, const std::string& what);
// A comma-separated list of integers within [min, max].
std::vector<long> parseIntegerList(const std::string& text, long min, long max,
                                   const std::string& what);
// The value of --seconds, how long a tool runs: a plain decimal number from 0.001 to a year.
// Throws UsageError.
double parseRunSeconds(const std::string& text);

// How a tool shows what it finds: a table, redrawn in place on a terminal, or a line per item in
// CSV or JSON, for scripts.
enum class OutputFormat { Table, Csv, Json };
// The value of --format: table, csv or json. Throws UsageError.
OutputFormat parseOutputFormat(const std::string& text);

// The path of a file a tool writes. "-" is refused: standard output carries the tool's own lines
// (the values, the endpoint a simulator prints first), and a capture library would take "-" for
// it.
std::string outputPath(const std::string& path, const std::string& option);
std::vector<std::string> splitText(const std::string& text, char separator);

}  // namespace tools

#endif
