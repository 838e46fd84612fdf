#include "host_options.h"

#include <algorithm>
#include <cstdlib>
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
constexpr char kPortNameCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";

}  // namespace

namespace {

int integer(const std::string& value, long min, long max, const char* what) {
    return static_cast<int>(tools::parseInteger(value, min, max, what));
}

using Rule = tools::Option<HostOptions>;

constexpr char kUsageIntro[] = R"(Usage: korvan_ref_host [options] VARIABLE...

Runs the driver the way a panel runtime does: loads the driver library, plans reads of the
variables, polls the PLC and shows the values. Without --device or --tcp it starts
korvan_plc_sim on a pseudo-terminal and talks to that.

Variables: AREA:ADDRESS[:COUNT][@STATION]
  14:100:2      two words of area 14 from address 100
  29:10.3       bit 3 of word 10 of area 14
  2:35:20@3     twenty bits of area 2 from bit 35, station 3 (with --per-var-station)
)";

constexpr char kUsageEnd[] = R"(
Exit status: 0 done, 1 error (library, port, connection, file, a write without a result), 2 bad
command line, 3 the PLC never answered. With several ports: 0 when every port was done, else 1
when any had an error, else 3. With --discover: 0 when a combination answered, 3 when none did.
)";

}  // namespace

std::vector<tools::Option<HostOptions>> hostOptionTable() {
    std::vector<Rule> table = {
        tools::heading<HostOptions>("Port"),
        {"device", "PATH", "serial device (or a simulator's pseudo-terminal)",
         [](HostOptions& o, const std::string& v) {
             o.port = PortKind::SerialDevice;
             o.devicePath = v;
         }},
        {"tcp", "HOST:PORT", "TCP connection instead of a serial line",
         [](HostOptions& o, const std::string& v) {
             o.port = PortKind::Tcp;
             o.endpoint = tools::parseEndpoint(v, "127.0.0.1");
         }},
    };
    const std::vector<Rule> line = tools::lineOptions<HostOptions>();
    table.insert(table.end(), line.begin(), line.end());
    const Rule rest[] = {
        {"turnaround", "MS",
         "time the PLC may take to answer, on top of the time the bytes take on the line "
         "(default 100)",
         [](HostOptions& o, const std::string& v) {
             o.turnaroundMs = integer(v, 0, kMaxTurnaroundMs, "--turnaround");
         }},
        {"sim-options", "TEXT", "options for the simulator started when no port is given",
         [](HostOptions& o, const std::string& v) { o.simulatorOptions = v; }},
        {"library", "PATH",
         "driver library (default: the one beside this program; a name without a slash is a "
         "file of the current folder)",
         [](HostOptions& o, const std::string& v) { o.libraryPath = v; }},

        tools::heading<HostOptions>("Port record"),
        {"station", "N", "default station (default 1)",
         [](HostOptions& o, const std::string& v) {
             o.settings.station = integer(v, 1, tools::kMaxStation, "--station");
         }},
        {"block-length", "N", "most words in one request, 1..100 (default 32)",
         [](HostOptions& o, const std::string& v) {
             o.settings.blockLength = integer(v, 1, kMaxBlockLength, "--block-length");
         }},
        {"retries", "N", "failed replies tolerated before an exchange is abandoned (default 2)",
         [](HostOptions& o, const std::string& v) {
             o.settings.retries = integer(v, 0, kMaxRetries, "--retries");
         }},
        {"write-mode", "N", "2: writes go to the PLC (default); other values: image only",
         [](HostOptions& o, const std::string& v) {
             o.settings.writeMode = integer(v, 0, 255, "--write-mode");
         }},
        {"remote-mode", nullptr, "use the remote frame family",
         [](HostOptions& o, const std::string&) { o.settings.remoteMode = true; }},
        {"per-var-station", nullptr, "each variable talks to its own station",
         [](HostOptions& o, const std::string&) { o.settings.perVarStation = true; }},
        {"off", "LIST", "stations switched off, e.g. 3 or 2,3",
         [](HostOptions& o, const std::string& v) {
             for (long station : tools::parseIntegerList(v, 1, tools::kMaxStation, "--off")) {
                 o.settings.offStations.push_back(static_cast<int>(station));
             }
         }},

        tools::heading<HostOptions>("Variables and writes"),
        {"tags", "FILE", "variables from a CSV file: name,area,address,station,count",
         [](HostOptions& o, const std::string& v) {
             for (const Variable& variable : readTagFile(v)) {
                 o.variables.push_back(variable);
             }
         }},
        {"write", "AREA:ADDRESS[@STATION]=VALUE[,VALUE...]",
         "a write, e.g. 14:100=0x1234 or 29:10.3=1 (repeatable). A run goes on until every "
         "write has its result, at most 10 s past its scans or seconds",
         [](HostOptions& o, const std::string& v) { o.writes.push_back(parseWrite(v)); }},
        {"write-at-scan", "N", "make the writes after N complete scans (default 0: at once)",
         [](HostOptions& o, const std::string& v) {
             o.writeAtScan = integer(v, 0, kMaxScans, "--write-at-scan");
         }},
        {"write-every-scan", nullptr,
         "make the writes again every scan, with values that change (soak runs)",
         [](HostOptions& o, const std::string&) { o.writeEveryScan = true; }},

        tools::heading<HostOptions>("Finding the line settings"),
        {"discover", nullptr,
         "instead of polling, read one word at every combination of the lists below and "
         "report each that answered; takes the port, --data-bits, --turnaround and the output "
         "options, no variables",
         [](HostOptions& o, const std::string&) { o.discovery.enabled = true; }},
        {"bauds", "LIST", "baud rates to try (default 9600,19200,38400,57600,115200,4800,2400)",
         [](HostOptions& o, const std::string& v) { o.discovery.bauds = parseBauds(v); }},
        {"parities", "LIST", "parities to try (default none,even,odd)",
         [](HostOptions& o, const std::string& v) { o.discovery.parities = parseParities(v); }},
        {"stop-bits-list", "LIST", "stop bits to try (default 1,2)",
         [](HostOptions& o, const std::string& v) { o.discovery.stopBits = parseStopBitsList(v); }},
        {"stations", "LIST", "stations to try, numbers and ranges such as 1-8 (default 1-32)",
         [](HostOptions& o, const std::string& v) { o.discovery.stations = parseStations(v); }},
        {"families", "LIST", "frame families to try (default local,remote)",
         [](HostOptions& o, const std::string& v) { o.discovery.families = parseFamilies(v); }},
        {"first", nullptr, "stop at the first combination that answers",
         [](HostOptions& o, const std::string&) { o.discovery.first = true; }},

        tools::heading<HostOptions>("Several ports"),
        // Handled by parseCommandLine itself: it starts a port.
        {"port", "NAME",
         "start a port named NAME: the options, variables and writes that follow belong to it, "
         "until the next --port; those given before the first --port apply to every port "
         "(--format and --help only there). Each port polls its own line with its own copy of "
         "the driver library, on a thread of its own; the output names the port, and a --pcap "
         "or --image-dump file given for every port gets its name (run.pcap becomes "
         "run-NAME.pcap)",
         nullptr},

        tools::heading<HostOptions>("Run and output"),
        {"cycle", "MS", "start a scan at most every MS milliseconds (default 0: back to back)",
         [](HostOptions& o, const std::string& v) {
             o.cycleMs = integer(v, 0, kMaxCycleMs, "--cycle");
         }},
        {"scans", "N", "stop after N complete scans (default: until Ctrl-C)",
         [](HostOptions& o, const std::string& v) {
             o.scans = tools::parseInteger(v, 1, kMaxScans, "--scans");
         }},
        {"seconds", "S", "stop after S seconds, 0.001 to a year (default: until Ctrl-C)",
         [](HostOptions& o, const std::string& v) { o.seconds = tools::parseRunSeconds(v); }},
        {"format", "table|csv|json", "live table (default), or one line per variable per scan",
         [](HostOptions& o, const std::string& v) { o.format = tools::parseOutputFormat(v); }},
        {"trace", nullptr, "every frame sent and received, decoded, and its result (on stderr)",
         [](HostOptions& o, const std::string&) { o.trace = true; }},
        {"pcap", "FILE",
         "capture every frame sent, received or dropped to FILE, for Wireshark with "
         "tools/wireshark/korvan.lua",
         [](HostOptions& o, const std::string& v) { o.pcapFile = tools::outputPath(v, "--pcap"); }},
        {"image-dump", "FILE",
         "on exit, write the driver's image of the variables' words in the simulator's memory "
         "file format",
         [](HostOptions& o, const std::string& v) {
             o.imageDump = tools::outputPath(v, "--image-dump");
         }},
        {"help", nullptr, "this text", [](HostOptions& o, const std::string&) { o.help = true; }},
    };
    table.insert(table.end(), std::begin(rest), std::end(rest));
    return table;
}

namespace {

// Options that belong to the whole run, not to one port.
bool isRunOption(const std::string& name) {
    return name == "format" || name == "help";
}

std::string checkedPortName(const std::string& name, const std::vector<HostOptions>& ports) {
    if (name.empty() || name.find_first_not_of(kPortNameCharacters) != std::string::npos) {
        throw tools::UsageError("--port needs a name of letters, digits, '-' and '_', not '" +
                                name + "'");
    }
    for (const HostOptions& port : ports) {
        if (port.portName == name) {
            throw tools::UsageError("two ports named '" + name + "'");
        }
    }
    return name;
}

// A file named once for every port gets the port's name before its extension: run.pcap becomes
// run-a.pcap for port a.
std::string forPort(const std::string& file, const std::string& port) {
    const std::size_t slash = file.rfind('/');
    const std::size_t dot = file.rfind('.');
    const bool extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return extension ? file.substr(0, dot) + "-" + port + file.substr(dot) : file + "-" + port;
}

}  // namespace

// Options before the first --port apply to every port; each --port NAME starts a port that
// takes the options, variables and writes that follow it, until the next --port.
CommandLine parseCommandLine(int argc, char** argv) {
    const std::vector<Rule> rules = hostOptionTable();
    CommandLine line;
    HostOptions common;
    const std::vector<tools::Arg> args = tools::parseArgs(argc, argv, rules);
    checkDiscoveryArgs(std::any_of(args.begin(), args.end(),
                                   [](const tools::Arg& arg) { return arg.name == "discover"; }),
                       args);
    for (const tools::Arg& arg : args) {
        HostOptions& target = line.ports.empty() ? common : line.ports.back();
        if (arg.name == "port") {
            HostOptions port = common;
            port.portName = checkedPortName(arg.value, line.ports);
            line.ports.push_back(port);
        } else if (arg.name.empty()) {
            target.variables.push_back(parseVariable(arg.value));
        } else if (!line.ports.empty() && isRunOption(arg.name)) {
            throw tools::UsageError("--" + arg.name +
                                    " is for the whole run: give it before the first --port");
        } else {
            tools::applyArg(rules, arg, target);
        }
    }
    line.help = common.help;
    line.namedPorts = !line.ports.empty();
    if (!line.namedPorts) {
        line.ports.push_back(common);
        return line;
    }
    for (HostOptions& port : line.ports) {
        if (port.pcapFile == common.pcapFile && !port.pcapFile.empty()) {
            port.pcapFile = forPort(common.pcapFile, port.portName);
        }
        if (port.imageDump == common.imageDump && !port.imageDump.empty()) {
            port.imageDump = forPort(common.imageDump, port.portName);
        }
    }
    return line;
}

std::string hostUsage() {
    return kUsageIntro + tools::optionsHelp(hostOptionTable()) + kUsageEnd;
}

}  // namespace refhost
