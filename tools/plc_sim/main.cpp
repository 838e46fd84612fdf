// korvan_plc_sim: one or more simulated PLC stations on a pseudo-terminal, a serial device or
// a TCP port, for running and testing hosts without a PLC.
#include <sys/prctl.h>

#include <iostream>

#include "line_capture.h"
#include "plc_model.h"
#include "serial_line.h"
#include "sim_memory.h"
#include "sim_options.h"
#include "sim_server.h"
#include "tcp.h"
#include "tool_main.h"

namespace {

// The first line of output says where hosts connect; scripts wait for it.
void announce(const std::string& where) {
    std::cout << where << std::endl;
}

// A reply held for its line time waits a millisecond or two at the usual speeds; the default 50
// microseconds by which the kernel may end such a sleep late would add several percent to it.
constexpr unsigned long kLineTimeSlackNs = 1000;

void run(const plcsim::SimOptions& options) {
    if (options.baudDelay) {
        prctl(PR_SET_TIMERSLACK, kLineTimeSlackNs);
    }
    plcsim::PlcModel plc(options.stations);
    plc.setFaults(options.faults);
    plcsim::loadMemory(plc, options);
    // After the memory is loaded: the two may be one file.
    std::ofstream dump;
    if (!options.dumpFile.empty()) {
        dump = plcsim::openDump(options.dumpFile);
    }
    tools::LineCapture capture(options.pcapFile, tools::CaptureSide::Plc);
    plcsim::SimServer server(plc, options, capture, tools::stopOnSignals());

    switch (options.transport) {
        case plcsim::Transport::PseudoTerminal: {
            tools::PseudoTerminal pty = tools::openPseudoTerminal(options.line);
            // Read before a host can know the path and set its own.
            const tools::LineSettings ownLine = tools::lineSettingsOf(pty.master.get());
            announce("pty " + pty.path);
            server.serveLine(pty.master.get(), ownLine);
            break;
        }
        case plcsim::Transport::SerialDevice: {
            tools::UniqueFd fd = tools::openSerialDevice(options.devicePath, options.line);
            const tools::LineSettings ownLine = tools::lineSettingsOf(fd.get());
            announce("serial " + options.devicePath);
            server.serveLine(fd.get(), ownLine);
            break;
        }
        case plcsim::Transport::Tcp: {
            tools::Endpoint endpoint = options.endpoint;
            tools::UniqueFd listening = tools::listenTcp(endpoint);
            announce("tcp " + tools::describeEndpoint(endpoint));
            server.serveTcp(listening.get());
            break;
        }
    }

    if (!options.dumpFile.empty()) {
        plcsim::dumpMemory(plc, dump, options.dumpFile);
    }
    const plcsim::Stats& s = plc.stats();
    std::cerr << "korvan_plc_sim: " << s.requests << " requests, " << s.replies << " replies, "
              << s.ignored << " ignored, " << s.dropped << " dropped, " << s.corrupted
              << " corrupted, " << s.misaddressed << " misaddressed, " << server.discardedBytes()
              << " bytes discarded" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::runTool("korvan_plc_sim", [&] {
        const plcsim::SimOptions options = plcsim::parseSimOptions(argc, argv);
        if (options.help) {
            std::cout << plcsim::simUsage();
        } else {
            run(options);
        }
        return 0;
    });
}
