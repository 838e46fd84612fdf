#include "command_line.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace tools {

std::vector<Arg> parseArgs(int argc, char** argv, const std::set<std::string>& withValue,
                           const std::set<std::string>& flags) {
    std::vector<Arg> parsed;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.rfind("--", 0) != 0 || arg.size() == 2) {
            parsed.push_back({"", arg});
            continue;
        }
        std::string name = arg.substr(2);
        std::string value;
        const std::size_t equals = name.find('=');
        const bool inlineValue = equals != std::string::npos;
        if (inlineValue) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        if (flags.count(name) != 0 && !inlineValue) {
            parsed.push_back({name, ""});
        } else if (withValue.count(name) != 0) {
            if (!inlineValue) {
                if (i + 1 >= argc) {
                    throw UsageError("option --" + name + " needs a value");
                }
                value = argv[++i];
            }
            parsed.push_back({name, value});
        } else {
            throw UsageError("unknown option --" + name);
        }
    }
    return parsed;
}

namespace {

constexpr char kDecimalDigits[] = "0123456789";
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

// The text as a message shows it: a byte that is not printable, a NUL among them, as \xNN.
std::string shown(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F) {
            static constexpr char kHex[] = "0123456789ABCDEF";
            out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

// Written out rather than left to strtol's base 0, which reads a leading zero as octal (010 is
// 8, 08 an error) and stops at white space, a sign or a NUL that the field goes on after.
long parseInteger(const std::string& text, long min, long max, const std::string& what) {
    const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
    const bool hex = text.compare(sign, 2, "0x") == 0 || text.compare(sign, 2, "0X") == 0;
    const std::size_t digits = sign + (hex ? 2 : 0);
    const bool wellFormed =
        text.size() > digits &&
        text.find_first_not_of(hex ? kHexDigits : kDecimalDigits, digits) == std::string::npos;
    errno = 0;
    const long value = wellFormed ? std::strtol(text.c_str(), nullptr, hex ? 16 : 10) : 0;
    if (!wellFormed || errno != 0 || value < min || value > max) {
        throw UsageError(what + " must be a number from " + std::to_string(min) + " to " +
                         std::to_string(max) + " (decimal, or hexadecimal after 0x), not '" +
                         shown(text) + "'");
    }
    return value;
}

double parseDecimal(const std::string& text, double min, double max, const std::string& what) {
    const std::size_t point = text.find('.');
    const bool wellFormed =
        !text.empty() && text != "." &&
        text.find_first_not_of("0123456789.") == std::string::npos &&
        (point == std::string::npos || text.find('.', point + 1) == std::string::npos);
    const double value = wellFormed ? std::strtod(text.c_str(), nullptr) : 0.0;
    if (!wellFormed || !(value >= min && value <= max)) {
        std::ostringstream range;
        range.precision(15);
        range << min << " to " << max;
        throw UsageError(what + " must be a number from " + range.str() + ", not '" + shown(text) +
                         "'");
    }
    return value;
}

double parseFraction(const std::string& text, const std::string& what) {
    return parseDecimal(text, 0.0, 1.0, what);
}

namespace {

// A run of a millisecond to a year: less does nothing, and more is a slip of the finger that
// would also overflow the clock.
constexpr double kMinRunSeconds = 0.001;
constexpr double kMaxRunSeconds = 366.0 * 24 * 3600;

}  // namespace

double parseRunSeconds(const std::string& text) {
    return parseDecimal(text, kMinRunSeconds, kMaxRunSeconds, "--seconds");
}

OutputFormat parseOutputFormat(const std::string& text) {
    if (text == "table") {
        return OutputFormat::Table;
    }
    if (text == "csv") {
        return OutputFormat::Csv;
    }
    if (text == "json") {
        return OutputFormat::Json;
    }
    throw UsageError("--format must be table, csv or json, not '" + text + "'");
}

std::string outputPath(const std::string& path, const std::string& option) {
    if (path == "-") {
        throw UsageError(option + " takes a file name, not '-': standard output carries the " +
                         "program's own lines");
    }
    return path;
}

std::vector<std::string> splitText(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        parts.push_back(text.substr(start, at - start));
        if (at == std::string::npos) {
            return parts;
        }
        start = at + 1;
    }
}

std::vector<long> parseIntegerList(const std::string& text, long min, long max,
                                   const std::string& what) {
    std::vector<long> values;
    for (const std::string& part : splitText(text, ',')) {
        values.push_back(parseInteger(part, min, max, what));
    }
    return values;
}

namespace {

// Help lines are wrapped at this width; an option's text starts in this column.
constexpr std::size_t kHelpWidth = 100;
constexpr std::size_t kHelpTextColumn = 26;
constexpr char kHelpIndent[] = "  ";

// `words` filled into lines of the help's width from the text's column, after `lead` on the first
// line, or below it when `lead` reaches the column.
std::string wrapped(const std::string& lead, const std::string& words) {
    std::string text;
    std::string line = lead;
    if (line.size() + 1 > kHelpTextColumn) {
        text = line + '\n';
        line.clear();
    }
    line.resize(kHelpTextColumn, ' ');
    bool lineEmpty = true;
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        if (!lineEmpty && line.size() + 1 + word.size() > kHelpWidth) {
            text += line + '\n';
            line.assign(kHelpTextColumn, ' ');
            lineEmpty = true;
        }
        line += (lineEmpty ? "" : " ") + word;
        lineEmpty = false;
    }
    return text + line + '\n';
}

}  // namespace

std::string optionHelp(const char* name, const char* value, const char* help) {
    std::string lead = std::string(kHelpIndent) + "--" + name;
    if (value != nullptr) {
        lead += std::string(" ") + value;
    }
    return wrapped(lead, help);
}

std::string headingHelp(const char* title) {
    return std::string("\n") + title + ":\n";
}

}  // namespace tools
