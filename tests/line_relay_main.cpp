// korvan_line_relay: the tests' serial line (line_relay.h) on its own, to try the line tap on
// this machine. Prints the device of each end and of the tap, then copies until SIGINT or
// SIGTERM; exits 1 if a tap wrote to its device.
#include <iostream>

#include "command_line.h"
#include "line_relay.h"
#include "tool_main.h"

namespace {

struct RelayOptions {
    tools::LineSettings line;
    bool apart = false;
    long noiseEvery = 0;
    bool help = false;
};

std::vector<tools::Option<RelayOptions>> relayOptionTable() {
    std::vector<tools::Option<RelayOptions>> table = tools::lineOptions<RelayOptions>();
    table.insert(
        table.end(),
        {{"apart", nullptr, "two tap devices: the requests on one, the replies on the other",
          [](RelayOptions& o, const std::string&) { o.apart = true; }},
         {"noise-every", "N", "three noise bytes to the tap at the start and after every N replies",
          [](RelayOptions& o, const std::string& v) {
              o.noiseEvery = tools::parseInteger(v, 1, 1000000, "--noise-every");
          }},
         {"help", nullptr, "this text",
          [](RelayOptions& o, const std::string&) { o.help = true; }}});
    return table;
}

constexpr auto kCheckStopEvery = std::chrono::milliseconds(100);

}  // namespace

int main(int argc, char** argv) {
    return tools::runTool("korvan_line_relay", [&] {
        RelayOptions options;
        const auto table = relayOptionTable();
        if (!tools::applyArgs(argc, argv, table, options).empty()) {
            throw tools::UsageError("this program takes options only");
        }
        if (options.help) {
            std::cout << "Usage: korvan_line_relay [options]\n" << tools::optionsHelp(table);
            return 0;
        }
        const volatile std::sig_atomic_t& stop = tools::stopOnSignals();
        tooltest::LineRelay relay(options.line, options.apart, options.noiseEvery);
        std::cout << "host " << relay.hostPath() << "\nplc " << relay.plcPath() << '\n'
                  << (options.apart ? "requests " : "tap ") << relay.tapPath(0) << '\n'
                  << (options.apart ? "replies " + relay.tapPath(1) + '\n' : "") << std::flush;
        while (!stop) {
            std::this_thread::sleep_for(kCheckStopEvery);
        }
        relay.stop();
        std::cerr << "korvan_line_relay: " << relay.noiseBytes() << " noise bytes sent, "
                  << relay.tapWrote() << " bytes written by a tap" << std::endl;
        return relay.tapWrote() == 0 ? 0 : tools::kExitError;
    });
}
