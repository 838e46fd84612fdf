// korvan_ref_host: a command-line host for the driver. It does what a panel runtime does (loads
// the library, plans reads, polls the PLC over a serial line or TCP, writes values) and shows
// what happens, for commissioning a PLC link and for testing the driver end to end. Given
// several ports, it serves each as a runtime would: a private copy of the library and a polling
// thread per port.
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <thread>

#include "address_check.h"
#include "command_line.h"
#include "discovery.h"
#include "driver_library.h"
#include "host_options.h"
#include "image_values.h"
#include "link.h"
#include "poller.h"
#include "report.h"
#include "tool_main.h"

namespace {

constexpr int kExitNeverAnswered = 3;

std::string libraryPath(const refhost::HostOptions& options) {
    return options.libraryPath.empty() ? refhost::besideThisProgram(KORVAN_LIBRARY_NAME)
                                       : options.libraryPath;
}

// One port: its copy of the driver and its line, opened before polling starts, then its run.
struct PortRun {
    const refhost::HostOptions* options = nullptr;
    std::unique_ptr<refhost::DriverLibrary> library;
    std::unique_ptr<refhost::Link> link;
    ComInfo record;
    bool ran = false;
    refhost::RunStats stats;
    std::vector<refhost::VariableValues> rows;
    int status = tools::kExitError;
};

// Polls one port to its end on the calling thread and keeps what the report needs of it.
void poll(PortRun& run, refhost::Report& report, int index,
          const volatile std::sig_atomic_t& stop) {
    const refhost::HostOptions& options = *run.options;
    const refhost::DriverApi& api = run.library->api();
    refhost::Poller poller(api, run.record, *run.link, options, report, index);
    poller.run(stop);
    run.rows = poller.values();
    run.stats = poller.stats();
    run.ran = true;
    if (!options.imageDump.empty()) {
        refhost::dumpImage(api, options.variables, options.settings, options.imageDump);
    }
    run.link->stopSimulator();
    if (run.stats.writesUnanswered > 0) {
        run.status = tools::kExitError;
    } else {
        run.status = run.stats.good == 0 ? kExitNeverAnswered : 0;
    }
}

// Every port of the command line. A port that cannot start or whose line fails ends alone; the
// others go on. The status is 0 when every port was done, else 1 when any had an error, else 3.
int runPorts(const refhost::CommandLine& line) {
    const std::vector<refhost::HostOptions>& ports = line.ports;
    std::vector<std::string> names;
    for (const refhost::HostOptions& port : ports) {
        names.push_back(port.portName);
    }
    refhost::Report report(ports.front().format, isatty(STDOUT_FILENO) != 0, names);
    std::vector<PortRun> runs(ports.size());
    std::vector<std::unique_ptr<refhost::LibraryCopies>> copies;
    // Before the links: a simulator started for one must be stopped whatever happens.
    const volatile std::sig_atomic_t& stop = tools::stopOnSignals();
    for (std::size_t i = 0; i < ports.size(); ++i) {
        PortRun& run = runs[i];
        run.options = &ports[i];
        try {
            std::string path = libraryPath(ports[i]);
            if (line.namedPorts) {
                copies.push_back(std::make_unique<refhost::LibraryCopies>(path));
                path = copies.back()->copyFor(ports[i].portName);
            }
            run.library = std::make_unique<refhost::DriverLibrary>(path);
            refhost::checkAddresses(run.library->api(), ports[i]);
            // Output files are made before the line opens: one that cannot be written ends
            // the port before it polls, not after.
            if (!ports[i].imageDump.empty()) {
                refhost::createImageDump(ports[i].imageDump);
            }
            run.link = std::make_unique<refhost::Link>(ports[i]);
            report.start(static_cast<int>(i), run.link->description());
        } catch (const tools::UsageError&) {
            throw;  // the command line is wrong for every port
        } catch (const std::exception& e) {
            report.error(static_cast<int>(i), e.what());
            run.link.reset();
        }
    }
    const auto pollPort = [&](std::size_t i) {
        try {
            poll(runs[i], report, static_cast<int>(i), stop);
        } catch (const std::exception& e) {
            report.error(static_cast<int>(i), e.what());
        }
    };
    // Every port but the first on a thread of its own; the first on this one, so that a run of
    // one port stays a process of one thread, whose system calls cost less.
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < runs.size(); ++i) {
        if (runs[i].link != nullptr) {
            threads.emplace_back(pollPort, i);
        }
    }
    if (runs.front().link != nullptr) {
        pollPort(0);
    }
    for (std::thread& t : threads) {
        t.join();
    }

    std::vector<std::vector<refhost::VariableValues>> rows;
    std::vector<const refhost::RunStats*> stats;
    for (const PortRun& run : runs) {
        rows.push_back(run.rows);
        stats.push_back(run.ran ? &run.stats : nullptr);
    }
    report.finish(rows, stats);
    int status = 0;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const long unanswered = runs[i].stats.writesUnanswered;
        if (unanswered > 0) {
            report.error(static_cast<int>(i), std::to_string(unanswered) +
                                                  (unanswered == 1 ? " write" : " writes") +
                                                  " got no result");
        }
        if (runs[i].status == kExitNeverAnswered) {
            report.error(static_cast<int>(i), "the PLC never answered");
        }
        if (runs[i].status == tools::kExitError) {
            status = tools::kExitError;
        } else if (status == 0) {
            status = runs[i].status;
        }
    }
    return status;
}

// A discovery on the one line of the command line.
int runDiscovery(const refhost::HostOptions& options) {
    const volatile std::sig_atomic_t& stop = tools::stopOnSignals();
    refhost::DriverLibrary library(libraryPath(options));
    refhost::Link link(options);
    const int status = refhost::discover(library.api(), link, options, stop);
    link.stopSimulator();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::runTool("korvan_ref_host", [&] {
        const refhost::CommandLine line = refhost::parseCommandLine(argc, argv);
        if (line.help) {
            std::cout << refhost::hostUsage();
            return 0;
        }
        if (line.ports.front().discovery.enabled) {
            return runDiscovery(line.ports.front());
        }
        for (const refhost::HostOptions& port : line.ports) {
            if (port.variables.empty() && port.writes.empty()) {
                throw tools::UsageError(std::string("nothing to do") +
                                        (port.portName.empty() ? "" : " on port " + port.portName) +
                                        ": name variables to read or --write values");
            }
        }
        return runPorts(line);
    });
}
