// Serial lines: the line settings both tools take as options, and opening a serial device or a
// pseudo-terminal in raw mode with them. A pseudo-terminal ignores the speed but takes the rest.
#ifndef KORVAN_TOOLS_SERIAL_LINE_H
#define KORVAN_TOOLS_SERIAL_LINE_H

#include <set>
#include <string>

#include "unique_fd.h"

namespace tools {

struct LineSettings {
    int baud = 9600;
    int dataBits = 8;
    char parity = 'N';  // N, E or O
    int stopBits = 1;
};

// Option names (without dashes) that takeLineOption understands; each takes a value.
const std::set<std::string>& lineOptionNames();
// Applies --baud, --data-bits, --parity or --stop-bits; false when `name` is none of them.
bool takeLineOption(LineSettings& line, const std::string& name, const std::string& value);
std::string describeLine(const LineSettings& line);  // "9600 8N1"

// Bits on the wire per character: start bit, data bits, parity bit, stop bits.
int bitsPerCharacter(const LineSettings& line);

// Opens a serial device (or a pseudo-terminal's device) for reading and writing without
// blocking and without making it the controlling terminal. Throws std::runtime_error.
UniqueFd openSerialDevice(const std::string& path, const LineSettings& line);

// Raw mode with the given settings; throws std::runtime_error.
void configureLine(int fd, const LineSettings& line);

struct PseudoTerminal {
    UniqueFd master;
    // Held open so that the master never sees a hang-up while no program has the device open.
    UniqueFd device;
    std::string path;
};

PseudoTerminal openPseudoTerminal(const LineSettings& line);

}  // namespace tools

#endif
