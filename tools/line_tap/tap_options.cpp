#include "tap_options.h"

#include <algorithm>
#include <iterator>

namespace linetap {

namespace {

constexpr long kMinGapMs = 1;
constexpr long kMaxGapMs = 10000;
// Serial buses commonly take a pause of 3.5 characters for the end of a frame.
constexpr int kGapHalfCharacters = 7;

using Rule = tools::Option<TapOptions>;

constexpr char kUsageIntro[] = R"(Usage: korvan_line_tap --device PATH [options]
       korvan_line_tap --requests PATH --replies PATH [options]

Listens to a PLC line and never writes to it. Recovers the frames of both directions and both
frame families, pairs each request with its reply, counts them per station and captures them
for Wireshark. Runs until SIGINT or SIGTERM (or --seconds), then prints a summary.
)";

constexpr char kUsageEnd[] = R"(
Exit status: 0 done, 1 error (a device that cannot be opened or went away, a capture file that
cannot be written), 2 bad command line.
)";

}  // namespace

std::chrono::microseconds TapOptions::gap() const {
    if (gapMs != 0) {
        return std::chrono::milliseconds(gapMs);
    }
    const auto characters = tools::lineTime(line, kGapHalfCharacters) / 2;
    return std::max(std::chrono::duration_cast<std::chrono::microseconds>(characters),
                    std::chrono::microseconds(kLeastDefaultGap));
}

std::vector<tools::Option<TapOptions>> tapOptionTable() {
    std::vector<Rule> table = {
        tools::heading<TapOptions>("Line"),
        {"device", "PATH",
         "a serial device that hears both directions, as an RS-485 adapter on a two-wire bus",
         [](TapOptions& o, const std::string& v) { o.device = v; }},
        {"requests", "PATH",
         "with --replies: a serial device that hears the host's requests alone, as one adapter "
         "of an RS-232 tap cable",
         [](TapOptions& o, const std::string& v) { o.requestsDevice = v; }},
        {"replies", "PATH", "with --requests: a serial device that hears the PLC's replies alone",
         [](TapOptions& o, const std::string& v) { o.repliesDevice = v; }},
    };
    const std::vector<Rule> line = tools::lineOptions<TapOptions>();
    table.insert(table.end(), line.begin(), line.end());
    const Rule rest[] = {
        {"gap", "MS",
         "quiet time between characters that separates frames (default: 3.5 characters at "
         "the line speed, at least 20)",
         [](TapOptions& o, const std::string& v) {
             o.gapMs = static_cast<int>(tools::parseInteger(v, kMinGapMs, kMaxGapMs, "--gap"));
         }},

        tools::heading<TapOptions>("Frames"),
        {"remote-mode", nullptr,
         "requests are of the remote frame family only (default: each request's family is told "
         "by its check value)",
         [](TapOptions& o, const std::string&) { o.remoteMode = true; }},

        tools::heading<TapOptions>("Output"),
        {"pcap", "FILE",
         "capture every frame, and the bytes that fit none, to FILE, for Wireshark with "
         "tools/wireshark/korvan.lua",
         [](TapOptions& o, const std::string& v) { o.pcapFile = tools::outputPath(v, "--pcap"); }},
        {"format", "table|csv|json",
         "a live table of the stations, or a line per exchange (default table)",
         [](TapOptions& o, const std::string& v) { o.format = tools::parseOutputFormat(v); }},
        {"seconds", "S", "stop after S seconds, 0.001 to a year (default: until Ctrl-C)",
         [](TapOptions& o, const std::string& v) { o.seconds = tools::parseRunSeconds(v); }},
        {"help", nullptr, "this text", [](TapOptions& o, const std::string&) { o.help = true; }},
    };
    table.insert(table.end(), std::begin(rest), std::end(rest));
    return table;
}

std::string tapUsage() {
    return kUsageIntro + tools::optionsHelp(tapOptionTable()) + kUsageEnd;
}

TapOptions parseTapOptions(int argc, char** argv) {
    TapOptions o;
    const std::vector<std::string> positional = tools::applyArgs(argc, argv, tapOptionTable(), o);
    if (!positional.empty()) {
        throw tools::UsageError("unexpected argument '" + positional.front() + "'");
    }
    if (o.help) {
        return o;
    }
    if (o.requestsDevice.empty() != o.repliesDevice.empty()) {
        throw tools::UsageError(
            "--requests and --replies go together: one device for each "
            "direction");
    }
    if (o.device.empty() == o.requestsDevice.empty()) {
        throw tools::UsageError(o.device.empty()
                                    ? "name the line: --device PATH, or --requests PATH and "
                                      "--replies PATH"
                                    : "--device hears both directions: give it, or --requests "
                                      "and --replies, not both");
    }
    return o;
}

}  // namespace linetap
