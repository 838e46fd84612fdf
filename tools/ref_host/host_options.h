// What the reference host is told on its command line.
#ifndef KORVAN_TOOLS_HOST_OPTIONS_H
#define KORVAN_TOOLS_HOST_OPTIONS_H

#include <string>
#include <vector>

#include "command_line.h"
#include "discovery_options.h"
#include "korvan_qa_qb_series_port.h"
#include "serial_line.h"
#include "tcp.h"
#include "variables.h"

namespace refhost {

using Format = tools::OutputFormat;
enum class PortKind { StartedSimulator, SerialDevice, Tcp };

// The port record's settings.
struct PortSettings {
    int station = 1;
    int blockLength = 32;
    int retries = 2;
    int writeMode = korvan::kWriteToPlc;  // anything else: writes go to the image only
    bool remoteMode = false;
    bool perVarStation = false;
    std::vector<int> offStations;
};

// One port's run: its line, its port record, its variables and writes, and how long it polls.
struct HostOptions {
    std::string portName;     // empty without --port
    std::string libraryPath;  // empty: the library beside the program
    PortKind port = PortKind::StartedSimulator;
    std::string devicePath;
    tools::Endpoint endpoint;
    tools::LineSettings line;
    std::string simulatorOptions;  // for the simulator started when no port is given
    int turnaroundMs = 100;
    PortSettings settings;
    std::vector<Variable> variables;
    std::vector<Write> writes;
    int writeAtScan = 0;
    bool writeEveryScan = false;  // repeat the writes every scan, for soak runs
    int cycleMs = 0;              // least time from one scan's start to the next; 0: back to back
    long scans = 0;               // 0: no bound
    double seconds = 0.0;         // 0: no bound
    Format format = Format::Table;
    bool trace = false;
    std::string pcapFile;  // empty: no capture
    std::string imageDump;
    DiscoveryOptions discovery;
    bool help = false;
};

// The whole command line: one port without --port, or the ports it names.
struct CommandLine {
    bool help = false;
    bool namedPorts = false;  // --port was given: the output names each line's port
    std::vector<HostOptions> ports;
};

// What --help prints: the usage, the options from the option table, the exit status.
std::string hostUsage();
// Every option the command line takes, in the order --help lists them.
std::vector<tools::Option<HostOptions>> hostOptionTable();

// Throws tools::UsageError.
CommandLine parseCommandLine(int argc, char** argv);

}  // namespace refhost

#endif
