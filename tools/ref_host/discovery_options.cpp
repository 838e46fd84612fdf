#include "discovery_options.h"

#include <algorithm>
#include <map>
#include <set>

#include "plc_limits.h"
#include "serial_line.h"

namespace refhost {

namespace {

// Options that only a discovery takes.
const std::set<std::string> kDiscoveryOnly = {"discover", "bauds",    "parities", "stop-bits-list",
                                              "stations", "families", "first"};
// The others a discovery takes: the line to scan, the driver, what the tries wait, the output.
const std::set<std::string> kAlsoTaken = {"device",    "sim-options", "library",
                                          "data-bits", "turnaround",  "format",
                                          "trace",     "pcap",        "help"};
// A single setting where a discovery takes a list.
const std::map<std::string, std::string> kListInstead = {{"baud", "bauds"},
                                                         {"parity", "parities"},
                                                         {"stop-bits", "stop-bits-list"},
                                                         {"station", "stations"},
                                                         {"remote-mode", "families"}};

template <typename T, typename Parse>
std::vector<T> parseList(const std::string& text, const Parse& parse) {
    std::vector<T> values;
    for (const std::string& item : tools::splitText(text, ',')) {
        for (const T& value : parse(item)) {
            if (std::find(values.begin(), values.end(), value) == values.end()) {
                values.push_back(value);
            }
        }
    }
    return values;
}

}  // namespace

std::vector<int> stationRange(int first, int last) {
    std::vector<int> stations;
    for (int s = first; s <= last; ++s) {
        stations.push_back(s);
    }
    return stations;
}

std::vector<int> parseBauds(const std::string& text) {
    return parseList<int>(text, [](const std::string& item) {
        tools::LineSettings line;
        tools::setBaud(line, item);
        return std::vector<int>{line.baud};
    });
}

std::vector<char> parseParities(const std::string& text) {
    return parseList<char>(text, [](const std::string& item) {
        const std::map<std::string, char> parities = {{"none", 'N'}, {"even", 'E'}, {"odd", 'O'}};
        const auto parity = parities.find(item);
        if (parity == parities.end()) {
            throw tools::UsageError("--parities takes none, even and odd, not '" + item + "'");
        }
        return std::vector<char>{parity->second};
    });
}

std::vector<int> parseStopBitsList(const std::string& text) {
    return parseList<int>(text, [](const std::string& item) {
        return std::vector<int>{
            static_cast<int>(tools::parseInteger(item, 1, 2, "--stop-bits-list"))};
    });
}

std::vector<int> parseStations(const std::string& text) {
    return parseList<int>(text, [](const std::string& item) {
        const std::size_t dash = item.find('-', 1);
        const auto station = [](const std::string& number) {
            return static_cast<int>(tools::parseInteger(number, 1, tools::kMaxStation, "station"));
        };
        if (dash == std::string::npos) {
            return std::vector<int>{station(item)};
        }
        const int from = station(item.substr(0, dash));
        const int to = station(item.substr(dash + 1));
        if (from > to) {
            throw tools::UsageError("--stations takes a range from low to high, not '" + item +
                                    "'");
        }
        return stationRange(from, to);
    });
}

std::vector<tools::FrameFamily> parseFamilies(const std::string& text) {
    return parseList<tools::FrameFamily>(text, [](const std::string& item) {
        if (item == "local") {
            return std::vector<tools::FrameFamily>{tools::FrameFamily::Local};
        }
        if (item == "remote") {
            return std::vector<tools::FrameFamily>{tools::FrameFamily::Remote};
        }
        throw tools::UsageError("--families takes local and remote, not '" + item + "'");
    });
}

void checkDiscoveryArgs(bool discover, const std::vector<tools::Arg>& args) {
    for (const tools::Arg& arg : args) {
        if (!discover) {
            if (kDiscoveryOnly.count(arg.name) != 0) {
                throw tools::UsageError("--" + arg.name + " goes with --discover");
            }
            continue;
        }
        if (arg.name.empty()) {
            throw tools::UsageError("--discover reads a word of its own: give no variables ('" +
                                    arg.value + "')");
        }
        if (kDiscoveryOnly.count(arg.name) != 0 || kAlsoTaken.count(arg.name) != 0) {
            continue;
        }
        const auto list = kListInstead.find(arg.name);
        throw tools::UsageError(
            "--" + arg.name + " does not go with --discover" +
            (list == kListInstead.end() ? "" : ": list what to try with --" + list->second));
    }
}

}  // namespace refhost
