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

const char* const kSimUsage = R"(Usage: korvan_plc_sim [options]

Behaves as one or more PLC stations on a pseudo-terminal, a serial device or a TCP port.
Prints where to connect on its first line ("pty /dev/pts/3", "serial /dev/ttyUSB0",
"tcp 127.0.0.1:5020") and runs until SIGINT or SIGTERM.

Transport (default: a new pseudo-terminal):
  --pty                   create a pseudo-terminal
  --device PATH           use a serial device
  --tcp [HOST:]PORT       listen on TCP (host 127.0.0.1 unless given; port 0: any free port),
                          one connection at a time; anyone who can reach the port can read
                          and write this PLC's memory
  --idle-timeout S        drop a TCP connection that sends nothing, or takes no reply, for S
                          seconds, so that the next one is served (default 60; 0: never)
  --baud N, --data-bits 5..8, --parity none|even|odd, --stop-bits 1|2
                          line settings (default 9600 8N1)
  --gap MS                quiet time that ends a frame on the line (default 50)
  --baud-delay            send each reply when it would have arrived on a real line at the
                          line settings: the request's and the reply's characters at --baud,
                          with their start, parity and stop bits (for a pseudo-terminal or TCP,
                          which deliver at once)

PLC:
  --stations LIST         station numbers served, e.g. 1,2,3 (default 1)
  --memory FILE           initial memory, lines of "station area address value"
  --fill zero|ramp|VALUE  value of words never written (ramp: each word's address)
  --counter AREA:ADDRESS[@STATION]
                          a word that counts up every 100 ms (repeatable)
  --dump FILE             write the memory to FILE on exit (same format as --memory)

Faults (replies only; fractions 0..1):
  --drop F, --corrupt F, --misaddress F
                          leave out, damage one byte of, or give another station number to
                          that fraction of replies
  --delay MS              hold every reply back
  --silent LIST           stations that never answer
  --seed N                seed of the fault draws (default 1)
  --faults-for N          only the first N requests see faults
  --faults-seconds S      only requests in the first S seconds after the first one see faults

  --trace                 print every request and reply in hexadecimal on stderr
  --pcap FILE             capture every frame received or sent, and bytes dropped, to FILE,
                          for Wireshark with tools/wireshark/korvan.lua
  --help                  this text
)";

namespace {

using Rule = tools::Option<SimOptions>;

double fraction(const std::string& value, const char* what) {
    return tools::parseFraction(value, what);
}

// Every option but the line settings, in the order of the help text.
const Rule kRules[] = {
    {"pty", false,
     [](SimOptions& o, const std::string&) { o.transport = Transport::PseudoTerminal; }},
    {"device", true,
     [](SimOptions& o, const std::string& v) {
         o.transport = Transport::SerialDevice;
         o.devicePath = v;
     }},
    {"tcp", true,
     [](SimOptions& o, const std::string& v) {
         o.transport = Transport::Tcp;
         o.endpoint = tools::parseEndpoint(v, o.endpoint.host);
     }},
    {"idle-timeout", true,
     [](SimOptions& o, const std::string& v) {
         o.idleSeconds =
             static_cast<int>(tools::parseInteger(v, 0, kMaxIdleSeconds, "--idle-timeout"));
     }},
    {"gap", true,
     [](SimOptions& o, const std::string& v) {
         o.gapMs = static_cast<int>(tools::parseInteger(v, kMinGapMs, kMaxGapMs, "--gap"));
     }},
    {"baud-delay", false, [](SimOptions& o, const std::string&) { o.baudDelay = true; }},
    {"stations", true,
     [](SimOptions& o, const std::string& v) { o.stations = parseStations(v, "--stations"); }},
    {"memory", true, [](SimOptions& o, const std::string& v) { o.memoryFile = v; }},
    {"fill", true, [](SimOptions& o, const std::string& v) { o.fill = parseFill(v); }},
    {"counter", true,
     [](SimOptions& o, const std::string& v) { o.counters.push_back(parseCounter(v)); }},
    {"dump", true, [](SimOptions& o, const std::string& v) { o.dumpFile = v; }},
    {"drop", true,
     [](SimOptions& o, const std::string& v) { o.faults.drop = fraction(v, "--drop"); }},
    {"corrupt", true,
     [](SimOptions& o, const std::string& v) { o.faults.corrupt = fraction(v, "--corrupt"); }},
    {"misaddress", true,
     [](SimOptions& o, const std::string& v) {
         o.faults.misaddress = fraction(v, "--misaddress");
     }},
    {"delay", true,
     [](SimOptions& o, const std::string& v) {
         o.faults.delayMs = static_cast<int>(tools::parseInteger(v, 0, kMaxDelayMs, "--delay"));
     }},
    {"silent", true,
     [](SimOptions& o, const std::string& v) {
         o.faults.silentStations = parseStations(v, "--silent");
     }},
    {"seed", true,
     [](SimOptions& o, const std::string& v) {
         o.faults.seed = static_cast<std::uint64_t>(tools::parseInteger(v, 0, kMaxCount, "--seed"));
     }},
    {"faults-for", true,
     [](SimOptions& o, const std::string& v) {
         o.faultsFor = tools::parseInteger(v, 1, kMaxCount, "--faults-for");
     }},
    {"faults-seconds", true,
     [](SimOptions& o, const std::string& v) {
         o.faultsSeconds =
             static_cast<double>(tools::parseInteger(v, 1, kMaxCount, "--faults-seconds"));
     }},
    {"trace", false, [](SimOptions& o, const std::string&) { o.trace = true; }},
    {"pcap", true, [](SimOptions& o, const std::string& v) { o.pcapFile = v; }},
    {"help", false, [](SimOptions& o, const std::string&) { o.help = true; }},
};

}  // namespace

SimOptions parseSimOptions(int argc, char** argv) {
    std::vector<Rule> rules = tools::lineOptions<SimOptions>();
    rules.insert(rules.end(), std::begin(kRules), std::end(kRules));
    SimOptions o;
    const std::vector<std::string> positional = tools::applyArgs(argc, argv, rules, o);
    if (!positional.empty()) {
        throw tools::UsageError("unexpected argument '" + positional.front() + "'");
    }
    return o;
}

}  // namespace plcsim
