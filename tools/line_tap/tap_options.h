// What the line tap is told on its command line.
#ifndef KORVAN_TOOLS_TAP_OPTIONS_H
#define KORVAN_TOOLS_TAP_OPTIONS_H

#include <chrono>
#include <string>
#include <vector>

#include "command_line.h"
#include "serial_line.h"

namespace linetap {

struct TapOptions {
    std::string device;          // hears both directions
    std::string requestsDevice;  // or these two, one direction each
    std::string repliesDevice;
    tools::LineSettings line;
    int gapMs = 0;  // 0: from the line speed
    bool remoteMode = false;
    std::string pcapFile;  // empty: no capture
    tools::OutputFormat format = tools::OutputFormat::Table;
    double seconds = 0.0;  // 0: until stopped
    bool help = false;

    bool apart() const { return !requestsDevice.empty(); }
    // The quiet time that separates frames: --gap, or 3.5 characters at the line speed, at
    // least kLeastDefaultGap.
    std::chrono::microseconds gap() const;
};

// USB serial adapters hand on what they receive in bursts, up to 16 ms apart by default: a
// frame's bytes must not look apart.
constexpr std::chrono::milliseconds kLeastDefaultGap{20};

// What --help prints: the usage and the options from the option table.
std::string tapUsage();
// Every option the command line takes, in the order --help lists them.
std::vector<tools::Option<TapOptions>> tapOptionTable();

// Throws tools::UsageError.
TapOptions parseTapOptions(int argc, char** argv);

}  // namespace linetap

#endif
