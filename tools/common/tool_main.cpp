#include "tool_main.h"

#include <iostream>

#include "command_line.h"

namespace tools {

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int) {
    stopRequested = 1;
}

}  // namespace

const volatile std::sig_atomic_t& stopOnSignals() {
    struct sigaction action {};
    action.sa_handler = requestStop;  // without SA_RESTART: poll() returns at once
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return stopRequested;
}

int runTool(const char* name, const std::function<int()>& body) {
    try {
        return body();
    } catch (const UsageError& e) {
        std::cerr << name << ": " << e.what() << "\n(see " << name << " --help)\n";
        return kExitUsage;
    } catch (const std::exception& e) {
        std::cerr << name << ": " << e.what() << std::endl;
        return kExitError;
    }
}

}  // namespace tools
