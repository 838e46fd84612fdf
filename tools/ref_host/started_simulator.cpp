#include "started_simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "driver_library.h"
#include "unique_fd.h"

namespace refhost {

namespace {

constexpr char kSimulatorName[] = "korvan_plc_sim";
constexpr char kPtyPrefix[] = "pty ";
constexpr int kStartTimeoutMs = 5000;
constexpr auto kStopTimeout = std::chrono::seconds(3);
constexpr auto kStopPoll = std::chrono::milliseconds(10);

// The simulator's first line, "pty /dev/pts/N".
std::string readFirstLine(int fd) {
    std::string line;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
    char c = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, kStartTimeoutMs) <= 0) {
            continue;
        }
        if (::read(fd, &c, 1) != 1 || c == '\n') {
            break;
        }
        line += c;
    }
    return line;
}

bool failed(int status) {
    return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
}

std::string describeEnd(int status) {
    return WIFEXITED(status) ? "exited with status " + std::to_string(WEXITSTATUS(status))
                             : "was killed by signal " + std::to_string(WTERMSIG(status));
}

}  // namespace

StartedSimulator::StartedSimulator(const std::string& options)
    : program_(besideThisProgram(kSimulatorName)) {
    std::vector<std::string> words{program_, "--pty"};
    std::istringstream split(options);
    for (std::string word; split >> word;) {
        words.push_back(word);
    }
    std::vector<char*> argv;
    for (std::string& w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("cannot start the simulator: ") +
                                 std::strerror(errno));
    }
    tools::UniqueFd readEnd(out[0]);
    tools::UniqueFd writeEnd(out[1]);
    pid_ = fork();
    if (pid_ == 0) {
        // Its own process group: Ctrl-C on the terminal stops the host, which then stops it.
        setpgid(0, 0);
        dup2(writeEnd.get(), STDOUT_FILENO);
        execv(program_.c_str(), argv.data());
        _exit(127);
    }
    if (pid_ < 0) {
        throw std::runtime_error(std::string("cannot start the simulator: ") +
                                 std::strerror(errno));
    }
    writeEnd.reset();
    const std::string line = readFirstLine(readEnd.get());
    if (line.rfind(kPtyPrefix, 0) != 0) {
        const int status = stop();
        throw std::runtime_error("the simulator " + program_ + " did not start" +
                                 (failed(status) ? " (it " + describeEnd(status) + ")" : ""));
    }
    devicePath_ = line.substr(sizeof kPtyPrefix - 1);
}

StartedSimulator::~StartedSimulator() {
    stop();
}

void StartedSimulator::finish() {
    const int status = stop();
    if (failed(status)) {
        throw std::runtime_error("the simulator " + program_ + " " + describeEnd(status) +
                                 " at its end");
    }
}

int StartedSimulator::stop() {
    if (pid_ <= 0) {
        return 0;
    }
    int status = 0;
    kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(kStopPoll);
    }
    pid_ = -1;
    return status;
}

}  // namespace refhost
