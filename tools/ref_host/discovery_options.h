// What `korvan_ref_host --discover` tries, and which of the host's options go with it.
#ifndef KORVAN_TOOLS_DISCOVERY_OPTIONS_H
#define KORVAN_TOOLS_DISCOVERY_OPTIONS_H

#include <string>
#include <vector>

#include "command_line.h"
#include "line_capture.h"
#include "serial_line.h"

namespace refhost {

// Stations `first` to `last`.
std::vector<int> stationRange(int first, int last);
// What a discovery tries unless told: a longer scan costs a reply time per station and setting.
constexpr int kDefaultLastStation = 32;

// The combinations a discovery tries, each list in the order tried, the most common first.
struct DiscoveryOptions {
    bool enabled = false;
    bool first = false;  // stop at the first combination that answers
    std::vector<int> bauds{9600, 19200, 38400, 57600, 115200, 4800, 2400};
    std::vector<char> parities{'N', 'E', 'O'};
    std::vector<int> stopBits{1, 2};
    std::vector<int> stations = stationRange(1, kDefaultLastStation);
    std::vector<tools::FrameFamily> families{tools::FrameFamily::Local, tools::FrameFamily::Remote};
};

// One combination a discovery tries.
struct Try {
    tools::LineSettings line;
    int station = 1;
    tools::FrameFamily family = tools::FrameFamily::Local;
};

// The values of --bauds, --parities, --stop-bits-list, --stations (numbers and ranges A-B) and
// --families (local, remote): comma-separated, a repeated value tried once. Throw
// tools::UsageError.
std::vector<int> parseBauds(const std::string& text);
std::vector<char> parseParities(const std::string& text);
std::vector<int> parseStopBitsList(const std::string& text);
std::vector<int> parseStations(const std::string& text);
std::vector<tools::FrameFamily> parseFamilies(const std::string& text);

// Throws tools::UsageError for an option of `args` that has no meaning with --discover (a
// single line setting, station or family names its list option), for variables, or for a
// discovery option given without --discover.
void checkDiscoveryArgs(bool discover, const std::vector<tools::Arg>& args);

}  // namespace refhost

#endif
