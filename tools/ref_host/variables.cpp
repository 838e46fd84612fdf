#include "variables.h"

#include <fstream>
#include <stdexcept>

#include "command_line.h"
#include "input_file.h"
#include "korvan_qa_qb_series_port.h"
#include "plc_limits.h"

namespace refhost {

namespace {

constexpr long kMaxCount = 65535;
constexpr long kMinWordValue = -0x8000;  // a signed word, sent as its two's complement
constexpr std::size_t kTagFields = 5;

// Splits off "@STATION" at the end of `text`.
int takeStation(std::string& text, const std::string& whole) {
    const std::size_t at = text.find('@');
    if (at == std::string::npos) {
        return kNoStation;
    }
    const std::string station = text.substr(at + 1);
    text.resize(at);
    return static_cast<int>(
        tools::parseInteger(station, 1, tools::kMaxStation, "the station of '" + whole + "'"));
}

int parseArea(const std::string& text, const std::string& whole) {
    return static_cast<int>(tools::parseInteger(text, korvan::kAreaFirstBit, korvan::kAreaBitOfWord,
                                                "the area of '" + whole + "'"));
}

std::string requireAddress(const std::string& text, const std::string& whole) {
    if (text.empty()) {
        throw tools::UsageError("'" + whole + "' has no address");
    }
    return text;
}

std::string trim(const std::string& s) {
    const std::size_t first = s.find_first_not_of(" \t\r");
    const std::size_t last = s.find_last_not_of(" \t\r");
    return first == std::string::npos ? std::string() : s.substr(first, last - first + 1);
}

}  // namespace

bool isWordArea(int area) {
    return area >= korvan::kAreaFirstWord && area <= korvan::kAreaLastWord;
}

Variable parseVariable(const std::string& text) {
    std::string rest = text;
    Variable v;
    v.name = text;
    v.station = takeStation(rest, text);
    const std::vector<std::string> parts = tools::splitText(rest, ':');
    if (parts.size() < 2 || parts.size() > 3) {
        throw tools::UsageError("a variable is AREA:ADDRESS[:COUNT][@STATION], not '" + text + "'");
    }
    v.area = parseArea(parts[0], text);
    v.address = requireAddress(parts[1], text);
    if (parts.size() == 3) {
        v.count = static_cast<int>(
            tools::parseInteger(parts[2], 1, kMaxCount, "the count of '" + text + "'"));
    }
    return v;
}

Write parseWrite(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw tools::UsageError("a write is AREA:ADDRESS[@STATION]=VALUE[,VALUE...], not '" + text +
                                "'");
    }
    std::string place = text.substr(0, equals);
    Write w;
    w.text = text;
    w.station = takeStation(place, text);
    const std::vector<std::string> parts = tools::splitText(place, ':');
    if (parts.size() != 2) {
        throw tools::UsageError("a write is AREA:ADDRESS[@STATION]=VALUE[,VALUE...], not '" + text +
                                "'");
    }
    w.area = parseArea(parts[0], text);
    w.address = requireAddress(parts[1], text);
    const bool word = isWordArea(w.area);
    w.values =
        tools::parseIntegerList(text.substr(equals + 1), word ? kMinWordValue : 0,
                                word ? tools::kMaxWordValue : 1, "a value of '" + text + "'");
    return w;
}

std::vector<Variable> readTagFile(const std::string& path) {
    std::ifstream in = tools::openInputFile(path);
    std::vector<Variable> variables;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = trim(line);
        if (line.empty() || line[0] == '#' || (number == 1 && line.rfind("name", 0) == 0)) {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number);
        std::vector<std::string> fields = tools::splitText(line, ',');
        if (fields.size() != kTagFields) {
            throw std::runtime_error(where + ": expected name,area,address,station,count");
        }
        for (std::string& f : fields) {
            f = trim(f);
        }
        Variable v;
        v.name = fields[0].empty() ? where : fields[0];
        try {
            v.area = parseArea(fields[1], where);
            v.address = requireAddress(fields[2], where);
            if (!fields[3].empty()) {
                v.station = static_cast<int>(tools::parseInteger(fields[3], 1, tools::kMaxStation,
                                                                 "the station at " + where));
            }
            if (!fields[4].empty()) {
                v.count = static_cast<int>(
                    tools::parseInteger(fields[4], 1, kMaxCount, "the count at " + where));
            }
        } catch (const tools::UsageError& e) {
            throw std::runtime_error(e.what());  // a bad file, not a bad command line
        }
        variables.push_back(v);
    }
    tools::checkReadToEnd(in, path);
    return variables;
}

}  // namespace refhost
