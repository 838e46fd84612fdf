// The simulator and the reference host as separate processes, for the end-to-end tests: every
// run is bounded in time, and a process still running when its test ends is killed.
#ifndef KORVAN_TESTS_TOOL_PROCESSES_H
#define KORVAN_TESTS_TOOL_PROCESSES_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "unique_fd.h"
#include "word_file.h"

extern char** environ;

constexpr int kRunTimeoutMs = 30000;
constexpr int kStartTimeoutMs = 5000;

using Memory = std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t>;

inline Memory readMemory(const std::string& path) {
    Memory memory;
    for (const tools::MemoryWord& w : tools::readWordFile(path)) {
        memory[w.key()] = w.value;
    }
    return memory;
}

namespace tool_processes {

using Clock = std::chrono::steady_clock;
// How often a run checks whether its process has ended while its pipes stay quiet.
constexpr int kExitPollMs = 20;

inline std::string joined(const std::vector<std::string>& args) {
    std::string text;
    for (const std::string& a : args) {
        text += (text.empty() ? "" : " ") + a;
    }
    return text;
}

// Both ends close on exec, so that a process started later holds neither; the read end does not
// block, so that one pass takes what is there.
inline bool openPipe(tools::UniqueFd& readEnd, tools::UniqueFd& writeEnd) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
    return fcntl(fds[0], F_SETFL, O_NONBLOCK) == 0;
}

// Appends all that `fd` holds now; false once the writers are gone (or on an error).
inline bool readAvailable(int fd, std::string* to) {
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            if (to != nullptr) {
                to->append(buffer, static_cast<std::size_t>(n));
            }
        } else if (n == 0) {
            return false;
        } else if (errno != EINTR) {
            return errno == EAGAIN || errno == EWOULDBLOCK;
        }
    }
}

// Starts `program` with the test's environment, no input, and `out` and `err` as its stdout and
// stderr (-1: the test's own). Returns its pid, or -1 after a failure naming the cause.
inline pid_t spawn(const char* program, const std::vector<std::string>& args, int out, int err) {
    std::vector<std::string> words{program};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (out >= 0) {
        posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    }
    if (err >= 0) {
        posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    }
    // A program gets the signal handling it would get from a shell, whatever the test runner's.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    const int error = posix_spawn(&pid, program, &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        ADD_FAILURE() << "cannot start " << program << ": " << std::strerror(error);
        return -1;
    }
    return pid;
}

inline pid_t reap(pid_t pid, int* status, int options) {
    pid_t r;
    do {
        r = waitpid(pid, status, options);
    } while (r < 0 && errno == EINTR);
    return r;
}

inline void killAndReap(pid_t pid) {
    kill(pid, SIGKILL);
    reap(pid, nullptr, 0);
}

// True when `pid` ended within `timeoutMs`, with its wait status in `status`.
inline bool waitForExit(pid_t pid, int* status, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const pid_t r = reap(pid, status, WNOHANG);
        if (r == pid || r < 0) {
            return r == pid;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kExitPollMs));
    }
}

inline int millisecondsUntil(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

}  // namespace tool_processes

// A simulator started for one test; `endpoint()` is its pseudo-terminal or TCP address.
class Simulator {
public:
    explicit Simulator(const std::vector<std::string>& args) {
        using namespace tool_processes;
        tools::UniqueFd writeEnd;
        if (!openPipe(output_, writeEnd)) {
            ADD_FAILURE() << "cannot make a pipe: " << std::strerror(errno);
            return;
        }
        // Its stderr stays the test's: what it reports is then in the test's output.
        pid_ = spawn(KORVAN_PLC_SIM, args, writeEnd.get(), -1);
        writeEnd.reset();
        if (pid_ < 0) {
            return;
        }
        std::string text;
        const auto deadline = Clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
        for (bool open = true; open && text.find('\n') == std::string::npos;) {
            pollfd p{output_.get(), POLLIN, 0};
            if (poll(&p, 1, millisecondsUntil(deadline)) == 0) {
                break;
            }
            open = readAvailable(output_.get(), &text);
        }
        endpoint_ = secondWord(text.substr(0, text.find('\n')));
        // The rest of its output is read and dropped, so that a full pipe never stops it.
        drain_ = std::thread([this] { drain(); });
    }
    ~Simulator() {
        if (pid_ > 0) {
            tool_processes::killAndReap(pid_);
        }
        stopDraining_ = true;
        if (drain_.joinable()) {
            drain_.join();
        }
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    std::string endpoint() const { return endpoint_; }

    // Stops it as SIGTERM does; true when it exited cleanly (its dump is then written).
    bool stop() {
        if (pid_ <= 0) {
            return false;
        }
        kill(pid_, SIGTERM);
        int status = 0;
        if (!tool_processes::waitForExit(pid_, &status, kStartTimeoutMs)) {
            return false;
        }
        pid_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    // "pty /dev/pts/5" gives "/dev/pts/5".
    static std::string secondWord(std::string line) {
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) {
            line.pop_back();
        }
        const std::size_t first = line.find_first_not_of(" \t\r\n\v\f");
        line.erase(0, first == std::string::npos ? line.size() : first);
        const std::size_t start = line.find(' ');
        if (start == std::string::npos) {
            return {};
        }
        return line.substr(start + 1, line.find(' ', start + 1) - (start + 1));
    }

    void drain() {
        // Bounded waits: a stray holder of the write end must not keep the test from ending.
        constexpr int kDrainPollMs = 100;
        while (!stopDraining_) {
            pollfd p{output_.get(), POLLIN, 0};
            if (poll(&p, 1, kDrainPollMs) > 0 && !tool_processes::readAvailable(p.fd, nullptr)) {
                return;
            }
        }
    }

    pid_t pid_ = -1;
    tools::UniqueFd output_;
    std::string endpoint_;
    std::atomic<bool> stopDraining_{false};
    std::thread drain_;
};

// What a host run printed with --format json: the last scan's rows by variable name, the
// write results and the statistics.
struct HostRun {
    int exitCode = -1;
    std::string errors;
    std::map<std::string, nlohmann::json> lastScan;
    std::map<std::string, std::string> writes;
    nlohmann::json stats = nlohmann::json::object();

    // An absent row or member reads as empty, so that a missing value fails its comparison.
    nlohmann::json values(const std::string& name) const {
        const nlohmann::json& v = member(name, "values");
        return v.is_array() ? v : nlohmann::json::array();
    }
    std::string state(const std::string& name) const {
        const nlohmann::json& s = member(name, "state");
        return s.is_string() ? s.get<std::string>() : std::string();
    }
    // The write results in the order of the writes' texts.
    std::vector<std::string> writeResults() const {
        std::vector<std::string> results;
        for (const auto& [write, status] : writes) {
            results.push_back(status);
        }
        return results;
    }
    std::string writeResult(const std::string& write) const {
        const auto it = writes.find(write);
        return it == writes.end() ? std::string() : it->second;
    }
    // Abandoned exchanges by error code.
    nlohmann::json abandoned() const {
        const auto it = stats.find("abandoned");
        return it != stats.end() && it->is_object() ? *it : nlohmann::json::object();
    }

private:
    const nlohmann::json& member(const std::string& name, const char* key) const {
        static const nlohmann::json kNone;
        const auto row = lastScan.find(name);
        if (row == lastScan.end()) {
            return kNone;
        }
        const auto it = row->second.find(key);
        return it == row->second.end() ? kNone : *it;
    }
};

inline HostRun runHost(const std::vector<std::string>& args) {
    using namespace tool_processes;
    HostRun run;
    tools::UniqueFd out[2];
    tools::UniqueFd err[2];
    if (!openPipe(out[0], out[1]) || !openPipe(err[0], err[1])) {
        ADD_FAILURE() << "cannot make a pipe: " << std::strerror(errno);
        return run;
    }
    const pid_t pid = spawn(KORVAN_REF_HOST, args, out[1].get(), err[1].get());
    out[1].reset();
    err[1].reset();
    if (pid < 0) {
        return run;
    }

    // Both pipes are read as they fill, so that the host never waits on a full one. Its end, not
    // the pipes' end, ends the run: a simulator it started may still hold its stderr.
    std::string output;
    std::string errors;
    pollfd pipes[2] = {{out[0].get(), POLLIN, 0}, {err[0].get(), POLLIN, 0}};
    std::string* texts[2] = {&output, &errors};
    const auto deadline = Clock::now() + std::chrono::milliseconds(kRunTimeoutMs);
    int status = 0;
    for (;;) {
        if (reap(pid, &status, WNOHANG) == pid) {
            for (int i = 0; i < 2; ++i) {
                if (pipes[i].fd >= 0) {
                    readAvailable(pipes[i].fd, texts[i]);
                }
            }
            break;
        }
        const int left = millisecondsUntil(deadline);
        if (left == 0) {
            killAndReap(pid);
            ADD_FAILURE() << "the host did not finish: " << joined(args);
            return run;
        }
        // A closed pipe has a negative descriptor, which poll skips.
        if (poll(pipes, 2, std::min(left, kExitPollMs)) > 0) {
            for (int i = 0; i < 2; ++i) {
                if (pipes[i].revents != 0 && !readAvailable(pipes[i].fd, texts[i])) {
                    pipes[i].fd = -1;
                }
            }
        }
    }
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.errors = errors;

    const auto text = [](const nlohmann::json& o, const char* key) {
        const auto it = o.find(key);
        return it != o.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    for (std::size_t start = 0; start < output.size();) {
        const std::size_t end = std::min(output.find('\n', start), output.size());
        const nlohmann::json o =
            nlohmann::json::parse(output.begin() + start, output.begin() + end, nullptr, false);
        start = end + 1;
        if (!o.is_object()) {
            continue;
        }
        if (o.contains("scan")) {
            run.lastScan[text(o, "name")] = o;
        } else if (o.contains("write")) {
            run.writes[text(o, "write")] = text(o, "status");
        } else if (o.contains("stats")) {
            const nlohmann::json& stats = o["stats"];
            run.stats = stats.is_object() ? stats : nlohmann::json::object();
        }
    }
    return run;
}

inline nlohmann::json words(std::initializer_list<int> values) {
    nlohmann::json a = nlohmann::json::array();
    for (int v : values) {
        a.push_back(v);
    }
    return a;
}

#endif
