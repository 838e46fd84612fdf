// korvan_ref_host: a command-line host for the driver. It does what a panel runtime does (loads
// the library, plans reads, polls the PLC over a serial line or TCP, writes values) and shows
// what happens, for commissioning a PLC link and for testing the driver end to end.
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "command_line.h"
#include "driver_library.h"
#include "host_options.h"
#include "image_values.h"
#include "link.h"
#include "poller.h"
#include "report.h"
#include "tool_main.h"

namespace {

constexpr int kExitNeverAnswered = 3;

// The driver is the judge of address texts: ask it before anything is sent.
void checkAddresses(const refhost::DriverApi& api, const refhost::HostOptions& options) {
    auto check = [&](int area, const std::string& address, const std::string& text) {
        if (api.addressOf(area, QString::fromStdString(address)) < 0) {
            throw tools::UsageError("bad variable text '" + text + "': '" + address +
                                    "' is not an address of area " + std::to_string(area));
        }
    };
    for (const refhost::Variable& v : options.variables) {
        check(v.area, v.address, v.name);
    }
    for (const refhost::Write& w : options.writes) {
        check(w.area, w.address, w.text);
    }
}

int run(const refhost::HostOptions& options) {
    refhost::DriverLibrary library(options.libraryPath.empty()
                                       ? refhost::besideThisProgram(KORVAN_LIBRARY_NAME)
                                       : options.libraryPath);
    const refhost::DriverApi& api = library.api();
    checkAddresses(api, options);
    // Before the link: a simulator started for it must be stopped whatever happens.
    const volatile std::sig_atomic_t& stop = tools::stopOnSignals();
    refhost::Link link(options);

    refhost::Report report(options.format, isatty(STDOUT_FILENO) != 0);
    ComInfo port;
    refhost::Poller poller(api, port, link, options, report);
    report.start(link.description());
    poller.run(stop);
    report.finish(poller.values(), poller.stats());
    if (!options.imageDump.empty()) {
        refhost::dumpImage(api, options.variables, options.settings, options.imageDump);
    }
    if (poller.stats().good == 0) {
        std::cerr << "korvan_ref_host: the PLC never answered" << std::endl;
        return kExitNeverAnswered;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::runTool("korvan_ref_host", [&] {
        const refhost::HostOptions options = refhost::parseHostOptions(argc, argv);
        if (options.help) {
            std::cout << refhost::kHostUsage;
            return 0;
        }
        if (options.variables.empty() && options.writes.empty()) {
            throw tools::UsageError("nothing to do: name variables to read or --write values");
        }
        return run(options);
    });
}
