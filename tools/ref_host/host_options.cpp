#include "host_options.h"

#include <iterator>

#include "command_line.h"
#include "plc_limits.h"
#include "serial_line.h"

namespace refhost {

namespace {

constexpr long kMaxBlockLength = 100;
constexpr long kMaxRetries = 100;
constexpr long kMaxTurnaroundMs = 60000;
constexpr long kMaxScans = 1L << 30;
constexpr long kMaxCycleMs = 3600000;

double parseSeconds(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value > 0.0)) {
        throw tools::UsageError("--seconds must be a positive number, not '" + text + "'");
    }
    return value;
}

Format parseFormat(const std::string& text) {
    if (text == "table") {
        return Format::Table;
    }
    if (text == "csv") {
        return Format::Csv;
    }
    if (text == "json") {
        return Format::Json;
    }
    throw tools::UsageError("--format must be table, csv or json, not '" + text + "'");
}

}  // namespace

const char* const kHostUsage = R"(Usage: korvan_ref_host [options] VARIABLE...

Runs the driver the way a panel runtime does: loads the driver library, plans reads of the
variables, polls the PLC and shows the values. Without --device or --tcp it starts
korvan_plc_sim on a pseudo-terminal and talks to that.

Variables: AREA:ADDRESS[:COUNT][@STATION]
  14:100:2      two words of area 14 from address 100
  29:10.3       bit 3 of word 10 of area 14
  2:35:20@3     twenty bits of area 2 from bit 35, station 3 (with --per-var-station)

Port:
  --device PATH           serial device (or a simulator's pseudo-terminal)
  --baud N, --data-bits 5..8, --parity none|even|odd, --stop-bits 1|2
                          line settings (default 9600 8N1)
  --tcp HOST:PORT         TCP connection instead of a serial line
  --turnaround MS         time the PLC may take to answer, on top of the time the bytes
                          take on the line (default 100)
  --sim-options TEXT      options for the simulator started when no port is given
  --library PATH          driver library (default: the one beside this program)

Port record:
  --station N             default station (default 1)
  --block-length N        most words in one request, 1..100 (default 32)
  --retries N             failed replies tolerated before an exchange is abandoned (default 2)
  --write-mode N          2: writes go to the PLC (default); other values: image only
  --remote-mode           use the remote frame family
  --per-var-station       each variable talks to its own station
  --off LIST              stations switched off, e.g. 3 or 2,3

Variables and writes:
  --tags FILE             variables from a CSV file: name,area,address,station,count
  --write AREA:ADDRESS[@STATION]=VALUE[,VALUE...]
                          a write, e.g. 14:100=0x1234 or 29:10.3=1 (repeatable)
  --write-at-scan N       make the writes after N complete scans (default 0: at once)
  --write-every-scan      make the writes again every scan, with values that change, and at
                          the end wait until every write has its result (soak runs)

Run and output:
  --cycle MS              start a scan at most every MS milliseconds (default 0: back to back)
  --scans N, --seconds S  stop after N complete scans or S seconds (default: until Ctrl-C)
  --format table|csv|json live table (default), or one line per variable per scan
  --trace                 every frame sent and received, decoded, and its result (on stderr)
  --pcap FILE             capture every frame sent, received or dropped to FILE, for
                          Wireshark with tools/wireshark/korvan.lua
  --image-dump FILE       on exit, write the driver's image of the variables' words in the
                          simulator's memory file format
  --help                  this text

Exit status: 0 done, 1 error (library, port, connection), 2 bad command line, 3 the PLC never
answered.
)";

namespace {

int integer(const std::string& value, long min, long max, const char* what) {
    return static_cast<int>(tools::parseInteger(value, min, max, what));
}

using Rule = tools::Option<HostOptions>;

// Every option but the line settings, in the order of the help text.
const Rule kRules[] = {
    {"device", true,
     [](HostOptions& o, const std::string& v) {
         o.port = PortKind::SerialDevice;
         o.devicePath = v;
     }},
    {"tcp", true,
     [](HostOptions& o, const std::string& v) {
         o.port = PortKind::Tcp;
         o.endpoint = tools::parseEndpoint(v, "127.0.0.1");
     }},
    {"turnaround", true,
     [](HostOptions& o, const std::string& v) {
         o.turnaroundMs = integer(v, 0, kMaxTurnaroundMs, "--turnaround");
     }},
    {"sim-options", true, [](HostOptions& o, const std::string& v) { o.simulatorOptions = v; }},
    {"library", true, [](HostOptions& o, const std::string& v) { o.libraryPath = v; }},
    {"station", true,
     [](HostOptions& o, const std::string& v) {
         o.settings.station = integer(v, 1, tools::kMaxStation, "--station");
     }},
    {"block-length", true,
     [](HostOptions& o, const std::string& v) {
         o.settings.blockLength = integer(v, 1, kMaxBlockLength, "--block-length");
     }},
    {"retries", true,
     [](HostOptions& o, const std::string& v) {
         o.settings.retries = integer(v, 0, kMaxRetries, "--retries");
     }},
    {"write-mode", true,
     [](HostOptions& o, const std::string& v) {
         o.settings.writeMode = integer(v, 0, 255, "--write-mode");
     }},
    {"remote-mode", false,
     [](HostOptions& o, const std::string&) { o.settings.remoteMode = true; }},
    {"per-var-station", false,
     [](HostOptions& o, const std::string&) { o.settings.perVarStation = true; }},
    {"off", true,
     [](HostOptions& o, const std::string& v) {
         for (long station : tools::parseIntegerList(v, 1, tools::kMaxStation, "--off")) {
             o.settings.offStations.push_back(static_cast<int>(station));
         }
     }},
    {"tags", true,
     [](HostOptions& o, const std::string& v) {
         for (const Variable& variable : readTagFile(v)) {
             o.variables.push_back(variable);
         }
     }},
    {"write", true,
     [](HostOptions& o, const std::string& v) { o.writes.push_back(parseWrite(v)); }},
    {"write-at-scan", true,
     [](HostOptions& o, const std::string& v) {
         o.writeAtScan = integer(v, 0, kMaxScans, "--write-at-scan");
     }},
    {"write-every-scan", false,
     [](HostOptions& o, const std::string&) { o.writeEveryScan = true; }},
    {"cycle", true,
     [](HostOptions& o, const std::string& v) {
         o.cycleMs = integer(v, 0, kMaxCycleMs, "--cycle");
     }},
    {"scans", true,
     [](HostOptions& o, const std::string& v) {
         o.scans = tools::parseInteger(v, 1, kMaxScans, "--scans");
     }},
    {"seconds", true, [](HostOptions& o, const std::string& v) { o.seconds = parseSeconds(v); }},
    {"format", true, [](HostOptions& o, const std::string& v) { o.format = parseFormat(v); }},
    {"trace", false, [](HostOptions& o, const std::string&) { o.trace = true; }},
    {"pcap", true, [](HostOptions& o, const std::string& v) { o.pcapFile = v; }},
    {"image-dump", true, [](HostOptions& o, const std::string& v) { o.imageDump = v; }},
    {"help", false, [](HostOptions& o, const std::string&) { o.help = true; }},
};

}  // namespace

HostOptions parseHostOptions(int argc, char** argv) {
    std::vector<Rule> rules = tools::lineOptions<HostOptions>();
    rules.insert(rules.end(), std::begin(kRules), std::end(kRules));
    HostOptions o;
    for (const std::string& text : tools::applyArgs(argc, argv, rules, o)) {
        o.variables.push_back(parseVariable(text));
    }
    return o;
}

}  // namespace refhost
