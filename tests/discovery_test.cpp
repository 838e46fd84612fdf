// Finding a PLC's line settings: the host's --discover against a simulator that, like a real
// UART, takes a request sent at other settings than its own for garbage.
#include <gtest/gtest.h>

#include "serial_line.h"
#include "tool_processes.h"

namespace {

using namespace tooltest;

// A pseudo-terminal pair shares one set of settings: what one end sets, the other reads, the
// parity included, which the pseudo-terminal itself does not keep. Each row changes every
// setting of the one before; 7 data bits read as the 8 a pseudo-terminal always carries.
TEST(Discovery, APseudoTerminalCarriesTheSettingsOneEndSetsToTheOther) {
    const auto line = [](int baud, int dataBits, char parity, int stopBits) {
        tools::LineSettings s;
        s.baud = baud;
        s.dataBits = dataBits;
        s.parity = parity;
        s.stopBits = stopBits;
        return s;
    };
    // set by the host's end, read at the simulator's
    const std::pair<tools::LineSettings, tools::LineSettings> cases[] = {
        {line(19200, 8, 'E', 1), line(19200, 8, 'E', 1)},
        {line(38400, 8, 'O', 2), line(38400, 8, 'O', 2)},
        {line(2400, 8, 'N', 1), line(2400, 8, 'N', 1)},
        {line(115200, 7, 'E', 2), line(115200, 8, 'E', 2)},
        {line(9600, 8, 'N', 1), line(9600, 8, 'N', 1)},
    };
    const tools::PseudoTerminal pty = tools::openPseudoTerminal(line(4800, 8, 'O', 1));
    EXPECT_EQ(tools::lineSettingsOf(pty.master.get()), line(4800, 8, 'O', 1));
    for (const auto& [set, read] : cases) {
        SCOPED_TRACE(tools::describeLine(set));
        const tools::UniqueFd host = tools::openSerialDevice(pty.path, set);
        EXPECT_EQ(tools::describeLine(tools::lineSettingsOf(pty.master.get())),
                  tools::describeLine(read));
    }
}

}  // namespace
