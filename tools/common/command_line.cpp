#include "command_line.h"

#include <cerrno>
#include <cstdlib>

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

long parseInteger(const std::string& text, long min, long max, const std::string& what) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0 || value < min || value > max) {
        throw UsageError(what + " must be a number from " + std::to_string(min) + " to " +
                         std::to_string(max) + ", not '" + text + "'");
    }
    return value;
}

double parseFraction(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= 0.0 && value <= 1.0)) {
        throw UsageError(what + " must be a fraction from 0 to 1, not '" + text + "'");
    }
    return value;
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

}  // namespace tools
