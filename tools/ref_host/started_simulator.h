// The simulator the host starts for itself when it is given no port: korvan_plc_sim from the
// host's own directory, on a new pseudo-terminal.
#ifndef KORVAN_TOOLS_STARTED_SIMULATOR_H
#define KORVAN_TOOLS_STARTED_SIMULATOR_H

#include <sys/types.h>

#include <string>

namespace refhost {

class StartedSimulator {
public:
    // Starts the simulator with the given options (split at white space) and waits for it to
    // name its pseudo-terminal. Throws std::runtime_error.
    explicit StartedSimulator(const std::string& options);
    // Asks the simulator to stop and waits for it; kills it if it does not.
    ~StartedSimulator();
    // The same, and throws std::runtime_error unless the simulator exited cleanly: it reports
    // some failures (a dump it cannot write) only when it ends.
    void finish();
    StartedSimulator(const StartedSimulator&) = delete;
    StartedSimulator& operator=(const StartedSimulator&) = delete;

    const std::string& devicePath() const { return devicePath_; }

private:
    // Its wait status, 0 once it was stopped before.
    int stop();

    std::string program_;
    pid_t pid_ = -1;
    std::string devicePath_;
};

}  // namespace refhost

#endif
