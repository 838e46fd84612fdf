// What the simulator is told on its command line.
#ifndef KORVAN_TOOLS_SIM_OPTIONS_H
#define KORVAN_TOOLS_SIM_OPTIONS_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "plc_model.h"
#include "serial_line.h"
#include "tcp.h"

namespace plcsim {

enum class Transport { PseudoTerminal, SerialDevice, Tcp };

// A word that counts up by itself, so that a host has values that change.
struct Counter {
    int station = 1;
    int area = 14;
    std::uint32_t address = 0;
};

// Words that were never written: 0, a constant, or each word's own address ("ramp").
struct FillPattern {
    bool ramp = false;
    std::uint16_t constant = 0;
};

struct SimOptions {
    Transport transport = Transport::PseudoTerminal;
    std::string devicePath;
    tools::LineSettings line;
    tools::Endpoint endpoint{"127.0.0.1", 0};
    std::set<int> stations{1};
    Faults faults;
    long faultsFor = 0;        // requests that see faults; 0: every request
    double faultsSeconds = 0;  // seconds from the first request that see faults; 0: no limit
    std::string memoryFile;
    FillPattern fill;
    std::vector<Counter> counters;
    std::string dumpFile;
    int gapMs = 50;
    // A TCP peer that sends nothing, or takes no reply, for this long is dropped, so that the
    // next one is served; a reply no one takes on a line is dropped. 0: never.
    int idleSeconds = 60;
    bool baudDelay = false;  // replies held back by the line time of the request and the reply
    bool trace = false;
    std::string pcapFile;  // empty: no capture
    bool help = false;
};

// What --help prints: the usage and the options from the option table.
std::string simUsage();
// Every option the command line takes, in the order --help lists them.
std::vector<tools::Option<SimOptions>> simOptionTable();

// Throws tools::UsageError.
SimOptions parseSimOptions(int argc, char** argv);

}  // namespace plcsim

#endif
