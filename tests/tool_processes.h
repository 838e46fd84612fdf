// The simulator and the reference host as separate processes, for the end-to-end tests: every
// run is bounded in time, and a process still running when its test ends is killed.
#ifndef KORVAN_TESTS_TOOL_PROCESSES_H
#define KORVAN_TESTS_TOOL_PROCESSES_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
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
// How often a wait checks again.
constexpr int kPollMs = 10;

inline std::string joined(const std::vector<std::string>& args) {
    std::string text;
    for (const std::string& a : args) {
        text += (text.empty() ? "" : " ") + a;
    }
    return text;
}

// An unnamed temporary file, for a program's output: unlike a pipe it never fills up and stops
// the program, and it is read whenever the test likes. Gone when closed.
inline tools::UniqueFd outputFile() {
    tools::UniqueFd fd;
    if (std::FILE* f = std::tmpfile()) {
        fd.reset(fcntl(fileno(f), F_DUPFD_CLOEXEC, 0));
        std::fclose(f);
    }
    return fd;
}

// What `fd` holds from its start (the offset the program writes at is left alone).
inline std::string contents(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = pread(fd, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

// Starts `program` with the test's environment, no input, and `out` and `err` as its stdout and
// stderr (-1: the test's own), with the signal handling a shell would give it. Returns its pid,
// or -1 after a failure naming the cause.
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

// True when `pid` ended within `timeoutMs`, with its wait status in `status`; otherwise it is
// killed when `killLate` says so.
inline bool waitForExit(pid_t pid, int* status, int timeoutMs, bool killLate) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        if (waitpid(pid, status, WNOHANG) == pid) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
    if (killLate) {
        kill(pid, SIGKILL);
        waitpid(pid, status, 0);
    }
    return false;
}

// What a program printed and how it ended (-1: killed, or not started).
struct ProgramRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs `program` to its end, at most kRunTimeoutMs.
inline ProgramRun runProgram(const char* program, const std::vector<std::string>& args) {
    ProgramRun run;
    const tools::UniqueFd out = outputFile();
    const tools::UniqueFd err = outputFile();
    const pid_t pid = spawn(program, args, out.get(), err.get());
    int status = 0;
    if (pid < 0) {
        return run;
    }
    if (!waitForExit(pid, &status, kRunTimeoutMs, true)) {
        ADD_FAILURE() << program << " did not finish: " << joined(args);
        return run;
    }
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = contents(out.get());
    run.err = contents(err.get());
    return run;
}

}  // namespace tool_processes

// A new folder for one test's files under $TMPDIR (or /tmp), removed with them.
class ScratchDir {
public:
    ScratchDir() {
        const char* tmp = std::getenv("TMPDIR");
        const std::filesystem::path base = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
        std::string pattern = (base / "korvan_tools_test.XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << pattern << ": " << std::strerror(errno);
            return;
        }
        dir_ = pattern;
    }
    ~ScratchDir() {
        if (!dir_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(dir_, ignored);
        }
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    bool valid() const { return !dir_.empty(); }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }

private:
    std::string dir_;
};

// A simulator started for one test; `endpoint()` is its pseudo-terminal or TCP address, the
// second word of its first line ("pty /dev/pts/5"). Its stderr stays the test's.
class Simulator {
public:
    explicit Simulator(const std::vector<std::string>& args)
        : output_(tool_processes::outputFile()),
          pid_(tool_processes::spawn(KORVAN_PLC_SIM, args, output_.get(), -1)) {
        const auto deadline =
            tool_processes::Clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
        std::string text;
        while (pid_ > 0 &&
               (text = tool_processes::contents(output_.get())).find('\n') == std::string::npos) {
            if (tool_processes::Clock::now() >= deadline) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(tool_processes::kPollMs));
        }
        std::istringstream line(text.substr(0, text.find('\n')));
        std::string kind;
        line >> kind >> endpoint_;
    }
    ~Simulator() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
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
        if (!tool_processes::waitForExit(pid_, &status, kStartTimeoutMs, false)) {
            return false;
        }
        pid_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    tools::UniqueFd output_;
    pid_t pid_;
    std::string endpoint_;
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
    HostRun run;
    const tool_processes::ProgramRun program = tool_processes::runProgram(KORVAN_REF_HOST, args);
    run.exitCode = program.exitCode;
    run.errors = program.err;

    std::istringstream lines(program.out);
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json o = nlohmann::json::parse(line, nullptr, false);
        if (!o.is_object()) {
            continue;
        }
        if (o.contains("scan")) {
            run.lastScan[o.value("name", "")] = o;
        } else if (o.contains("write")) {
            run.writes[o.value("write", "")] = o.value("status", "");
        } else if (o.contains("stats") && o["stats"].is_object()) {
            run.stats = o["stats"];
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
