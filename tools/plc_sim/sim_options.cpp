#include "sim_options.h"

#include <iterator>

#include "command_line.h"
#include "plc_limits.h"

namespace plcsim {

namespace {

constexpr long kMaxDelayMs = 60000;
constexpr long kMaxGapMs = 10000;
constexpr long kMinGapMs = 1;
constexpr long kMaxCount = 1L << 30;
constexpr long kMaxIdleSeconds = 24 * 3600;

// AREA:ADDRESS[@STATION], a word of a word area.
Counter parseCounter(const std::string& text) {
    Counter c;
    std::string place = text;
    const std::size_t at = text.find('@');
    if (at != std::string::npos) {
        c.station = static_cast<int>(
            tools::parseInteger(text.substr(at + 1), 1, tools::kMaxStation, "station"));
        place.resize(at);
    }
    const std::vector<std::string> parts = tools::splitText(place, ':');
    if (parts.size() != 2) {
        throw tools::UsageError("--counter takes AREA:ADDRESS[@STATION], not '" + text + "'");
    }
    c.area =
        static_cast<int>(tools::parseInteger(parts[0], 0, tools::kMaxAreaWithCode, "counter area"));
    c.address = static_cast<std::uint32_t>(
        tools::parseInteger(parts[1], 0, tools::kMaxWordAddress, "counter address"));
    return c;
}

FillPattern parseFill(const std::string& text) {
    FillPattern fill;
    if (text == "ramp") {
        fill.ramp = true;
    } else if (text != "zero") {
        fill.constant = static_cast<std::uint16_t>(
            tools::parseInteger(text, 0, tools::kMaxWordValue, "--fill value"));
    }
    return fill;
}

std::set<int> parseStations(const std::string& text, const std::string& what) {
    std::set<int> stations;
    for (long s : tools::parseIntegerList(text, 1, tools::kMaxStation, what)) {
        stations.insert(static_cast<int>(s));
    }
    return stations;
}

}  // namespace

namespace {

using Rule = tools::Option<SimOptions>;

double fraction(const std::string& value, const char* what) {
    return tools::parseFraction(value, what);
}

constexpr char kUsageIntro[] = R"(Usage: korvan_plc_sim [options]

Behaves as one or more PLC stations on a pseudo-terminal, a serial device or a TCP port.
Prints where to connect on its first line ("pty /dev/pts/3", "serial /dev/ttyUSB0",
"tcp 127.0.0.1:5020") and runs until SIGINT or SIGTERM.
)";

}  // namespace

std::vector<tools::Option<SimOptions>> simOptionTable() {
    std::vector<Rule> table = {
        tools::heading<SimOptions>("Transport (default: a new pseudo-terminal)"),
        {"pty", nullptr, "create a pseudo-terminal",
         [](SimOptions& o, const std::string&) { o.transport = Transport::PseudoTerminal; }},
        {"device", "PATH", "use a serial device",
         [](SimOptions& o, const std::string& v) {
             o.transport = Transport::SerialDevice;
             o.devicePath = v;
         }},
        {"tcp", "[HOST:]PORT",
         "listen on TCP (host 127.0.0.1 unless given; port 0: any free port), one connection at "
         "a time; anyone who can reach the port can read and write this PLC's memory",
         [](SimOptions& o, const std::string& v) {
             o.transport = Transport::Tcp;
             o.endpoint = tools::parseEndpoint(v, o.endpoint.host);
         }},
        {"idle-timeout", "S",
         "drop a TCP connection that sends nothing, or takes no reply, for S seconds, so that "
         "the next one is served (default 60; 0: never)",
         [](SimOptions& o, const std::string& v) {
             o.idleSeconds =
                 static_cast<int>(tools::parseInteger(v, 0, kMaxIdleSeconds, "--idle-timeout"));
         }},
    };
    const std::vector<Rule> line = tools::lineOptions<SimOptions>();
    table.insert(table.end(), line.begin(), line.end());
    const Rule rest[] = {
        {"gap", "MS", "quiet time that ends a frame on the line (default 50)",
         [](SimOptions& o, const std::string& v) {
             o.gapMs = static_cast<int>(tools::parseInteger(v, kMinGapMs, kMaxGapMs, "--gap"));
         }},
        {"baud-delay", nullptr,
         "send each reply when it would have arrived on a real line at the line settings: the "
         "request's and the reply's characters at --baud, with their start, parity and stop "
         "bits (for a pseudo-terminal or TCP, which deliver at once)",
         [](SimOptions& o, const std::string&) { o.baudDelay = true; }},

        tools::heading<SimOptions>("PLC"),
        {"stations", "LIST", "station numbers served, e.g. 1,2,3 (default 1)",
         [](SimOptions& o, const std::string& v) { o.stations = parseStations(v, "--stations"); }},
        {"memory", "FILE", "initial memory, lines of \"station area address value\"",
         [](SimOptions& o, const std::string& v) { o.memoryFile = v; }},
        {"fill", "zero|ramp|VALUE", "value of words never written (ramp: each word's address)",
         [](SimOptions& o, const std::string& v) { o.fill = parseFill(v); }},
        {"counter", "AREA:ADDRESS[@STATION]", "a word that counts up every 100 ms (repeatable)",
         [](SimOptions& o, const std::string& v) { o.counters.push_back(parseCounter(v)); }},
        {"dump", "FILE", "write the memory to FILE on exit (same format as --memory)",
         [](SimOptions& o, const std::string& v) { o.dumpFile = tools::outputPath(v, "--dump"); }},

        tools::heading<SimOptions>("Faults (replies only)"),
        {"drop", "F", "leave out that fraction (0..1) of replies",
         [](SimOptions& o, const std::string& v) { o.faults.drop = fraction(v, "--drop"); }},
        {"corrupt", "F", "damage one byte of that fraction (0..1) of replies",
         [](SimOptions& o, const std::string& v) { o.faults.corrupt = fraction(v, "--corrupt"); }},
        {"misaddress", "F", "give another station number to that fraction (0..1) of replies",
         [](SimOptions& o, const std::string& v) {
             o.faults.misaddress = fraction(v, "--misaddress");
         }},
        {"delay", "MS", "hold every reply back",
         [](SimOptions& o, const std::string& v) {
             o.faults.delayMs = static_cast<int>(tools::parseInteger(v, 0, kMaxDelayMs, "--delay"));
         }},
        {"silent", "LIST", "stations that never answer",
         [](SimOptions& o, const std::string& v) {
             o.faults.silentStations = parseStations(v, "--silent");
         }},
        {"seed", "N", "seed of the fault draws (default 1)",
         [](SimOptions& o, const std::string& v) {
             o.faults.seed =
                 static_cast<std::uint64_t>(tools::parseInteger(v, 0, kMaxCount, "--seed"));
         }},
        {"faults-for", "N", "only the first N requests see faults",
         [](SimOptions& o, const std::string& v) {
             o.faultsFor = tools::parseInteger(v, 1, kMaxCount, "--faults-for");
         }},
        {"faults-seconds", "S",
         "only requests in the first S seconds after the first one see faults",
         [](SimOptions& o, const std::string& v) {
             o.faultsSeconds =
                 static_cast<double>(tools::parseInteger(v, 1, kMaxCount, "--faults-seconds"));
         }},

        tools::heading<SimOptions>("Output"),
        {"trace", nullptr, "print every request and reply in hexadecimal on stderr",
         [](SimOptions& o, const std::string&) { o.trace = true; }},
        {"pcap", "FILE",
         "capture every frame received or sent, and bytes dropped, to FILE, for Wireshark with "
         "tools/wireshark/korvan.lua",
         [](SimOptions& o, const std::string& v) { o.pcapFile = tools::outputPath(v, "--pcap"); }},
        {"help", nullptr, "this text", [](SimOptions& o, const std::string&) { o.help = true; }},
    };
    table.insert(table.end(), std::begin(rest), std::end(rest));
    return table;
}

std::string simUsage() {
    return kUsageIntro + tools::optionsHelp(simOptionTable());
}

SimOptions parseSimOptions(int argc, char** argv) {
    SimOptions o;
    const std::vector<std::string> positional = tools::applyArgs(argc, argv, simOptionTable(), o);
    if (!positional.empty()) {
        throw tools::UsageError("unexpected argument '" + positional.front() + "'");
    }
    return o;
}

}  // namespace plcsim
