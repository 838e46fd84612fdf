// What the tools' main functions share: stopping cleanly on SIGINT and SIGTERM, and turning
// errors into a message and an exit status.
#ifndef KORVAN_TOOLS_TOOL_MAIN_H
#define KORVAN_TOOLS_TOOL_MAIN_H

#include <csignal>
#include <functional>

namespace tools {

constexpr int kExitError = 1;
constexpr int kExitUsage = 2;

// From now on SIGINT and SIGTERM set the returned flag and interrupt a waiting poll(); SIGPIPE
// is ignored, so a peer that hangs up shows as a closed link instead of ending the program.
const volatile std::sig_atomic_t& stopOnSignals();

// Runs `body` and returns its status. A UsageError is printed with a pointer to --help and
// gives kExitUsage; any other exception is printed and gives kExitError.
int runTool(const char* name, const std::function<int()>& body);

}  // namespace tools

#endif
