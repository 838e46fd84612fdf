// Serial lines: the line settings both tools take as options, and opening a serial device or a
// pseudo-terminal in raw mode with them. A pseudo-terminal carries bytes, not characters on a wire:
// it keeps 8 data bits without parity whatever it is asked, and refuses a second program's request
// for parity, so on one only the timing of the settings counts. It keeps the rest, and notes the
// parity asked for, so that the simulator can tell a host's settings from its own.
#ifndef KORVAN_TOOLS_SERIAL_LINE_H
#define KORVAN_TOOLS_SERIAL_LINE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "command_line.h"
#include "unique_fd.h"

namespace tools {

struct LineSettings {
    int baud = 9600;
    int dataBits = 8;
    char parity = 'N';  // N, E or O
    int stopBits = 1;

    bool operator==(const LineSettings& other) const {
        return baud == other.baud && dataBits == other.dataBits && parity == other.parity &&
               stopBits == other.stopBits;
    }
    bool operator!=(const LineSettings& other) const { return !(*this == other); }
};

// The values of --baud, --data-bits, --parity and --stop-bits. Throw UsageError.
void setBaud(LineSettings& line, const std::string& value);
void setDataBits(LineSettings& line, const std::string& value);
void setParity(LineSettings& line, const std::string& value);
void setStopBits(LineSettings& line, const std::string& value);

// Those four options, for a tool whose options hold its LineSettings as `line`.
template <typename Options>
std::vector<Option<Options>> lineOptions() {
    return {{"baud", "N", "line speed in bits per second (default 9600)",
             [](Options& o, const std::string& v) { setBaud(o.line, v); }},
            {"data-bits", "5..8", "data bits per character (default 8)",
             [](Options& o, const std::string& v) { setDataBits(o.line, v); }},
            {"parity", "none|even|odd", "parity bit (default none)",
             [](Options& o, const std::string& v) { setParity(o.line, v); }},
            {"stop-bits", "1|2", "stop bits (default 1)",
             [](Options& o, const std::string& v) { setStopBits(o.line, v); }}};
}
std::string describeLine(const LineSettings& line);  // "9600 8N1"

// Bits on the wire per character: start bit, data bits, parity bit, stop bits.
int bitsPerCharacter(const LineSettings& line);
// How long `bytes` characters take on the line at its speed.
std::chrono::nanoseconds lineTime(const LineSettings& line, std::size_t bytes);

// A tap opens its devices for reading alone: it never writes to the line.
enum class DeviceAccess { ReadWrite, ReadOnly };

// Opens a serial device (or a pseudo-terminal's device) for reading and writing without
// blocking and without making it the controlling terminal. Throws std::runtime_error.
UniqueFd openSerialDevice(const std::string& path, const LineSettings& line,
                          DeviceAccess access = DeviceAccess::ReadWrite);

// Raw mode with the given settings; throws std::runtime_error.
void configureLine(int fd, const LineSettings& line);
// The settings the line has now, as configureLine leaves them (baud 0: a speed it does not set).
// Both ends of a pseudo-terminal read the one set of settings either end made last. Throws
// std::runtime_error.
LineSettings lineSettingsOf(int fd);

struct PseudoTerminal {
    UniqueFd master;
    // Held open so that the master never sees a hang-up while no program has the device open.
    UniqueFd device;
    std::string path;
};

PseudoTerminal openPseudoTerminal(const LineSettings& line);

}  // namespace tools

#endif
