// The tools as processes in a test: the reference host, the PLC simulator and tshark with the
// dissector, their output kept in memory, and a scratch folder for their files.
#ifndef KORVAN_TESTS_TOOL_PROCESSES_H
#define KORVAN_TESTS_TOOL_PROCESSES_H

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <chrono>
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

namespace tooltest {

using J = nlohmann::json;
using Texts = std::vector<std::string>;
using Row = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
constexpr auto kPoll = std::chrono::milliseconds(10);
// Enough for a loaded machine: a reply that arrives later counts as missing.
const std::string kTurnaround = "300";

// A program started with no input, its stdout and stderr in memory files (unlike pipes they
// never fill up and stop it); killed if still running when this goes.
class Process {
public:
    Process(const char* program, Texts args) {
        args.insert(args.begin(), program);
        std::vector<char*> argv;
        for (std::string& a : args) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        const tools::UniqueFd input(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if ((pid_ = fork()) == 0) {
            dup2(input.get(), STDIN_FILENO);
            dup2(out_.get(), STDOUT_FILENO);
            dup2(err_.get(), STDERR_FILENO);
            execv(program, argv.data());
            _exit(127);
        }
        EXPECT_GT(pid_, 0) << "cannot start " << program;
    }
    ~Process() { finish(SIGKILL); }

    // Sends `signal` (0: none) and waits for the end: the exit status, or -1 when it was killed.
    int finish(int signal = 0) {
        int status = -1;
        if (pid_ > 0) {
            kill(pid_, signal);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string out() const { return contents(out_.get()); }
    std::string err() const { return contents(err_.get()); }

private:
    // From the start, leaving alone the offset the program writes at.
    static std::string contents(int fd) {
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = pread(fd, buffer, sizeof buffer, off_t(text.size()))) > 0;) {
            text.append(buffer, static_cast<std::size_t>(n));
        }
        return text;
    }

    tools::UniqueFd out_{memfd_create("out", MFD_CLOEXEC)}, err_{memfd_create("err", MFD_CLOEXEC)};
    pid_t pid_ = -1;
};

// Waits until `done` holds, at most `limit`; whether it came to hold.
template <typename Done>
bool waitFor(Done done, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    for (const auto end = Clock::now() + limit; !done(); std::this_thread::sleep_for(kPoll)) {
        if (Clock::now() > end) {
            return false;
        }
    }
    return true;
}

// The lines of a program's output that are JSON objects, in order.
inline std::vector<J> jsonLines(const std::string& out) {
    std::vector<J> objects;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        J o = J::parse(line, nullptr, false);
        if (o.is_object()) {
            objects.push_back(std::move(o));
        }
    }
    return objects;
}

// The member `key` of the last JSON line that has one; an empty object when none has.
inline J lastOf(const std::string& out, const char* key) {
    J value = J::object();
    for (const J& o : jsonLines(out)) {
        value = o.contains(key) ? o[key] : value;
    }
    return value;
}

// A simulator for one test; `endpoint` is its pseudo-terminal or TCP address, the second word of
// its first line ("pty /dev/pts/5").
class Simulator : public Process {
public:
    explicit Simulator(const Texts& args) : Process(KORVAN_PLC_SIM, args) {
        waitFor([this] { return out().find('\n') != std::string::npos; });
        std::istringstream(out()) >> endpoint >> endpoint;
    }
    // Stops it as SIGTERM does; true when it exited cleanly, its dump written.
    bool stop() { return finish(SIGTERM) == 0; }

    std::string endpoint;
};

// What a host run printed with --format json: the last scan's row of each variable (an absent one
// reads as null, so that its comparison fails), and the statistics.
struct HostRun {
    int exitCode = -1;
    std::string errors;
    std::map<std::string, J> scan;
    J stats = J::object();
};

// Runs the host to its end; the lines naming a port go to that port's run in `ports`.
inline HostRun runHost(const Texts& args, std::map<std::string, HostRun>* ports = nullptr) {
    Process host(KORVAN_REF_HOST, args);
    HostRun run;
    run.exitCode = host.finish();
    run.errors = host.err();
    for (const J& o : jsonLines(host.out())) {
        HostRun& r = ports != nullptr && o.contains("port") ? (*ports)[o.value("port", "")] : run;
        if (o.contains("scan")) {
            r.scan[o.value("name", "")] = o;
        } else if (o.contains("stats") && o["stats"].is_object()) {
            r.stats = o["stats"];
        }
    }
    return run;
}

// A folder for a test's files under $TMPDIR (or /tmp), removed with them.
struct ScratchDir {
    const std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("korvan_tools." + std::to_string(getpid()));
    ScratchDir() { std::filesystem::create_directories(dir); }
    ~ScratchDir() { std::filesystem::remove_all(dir, ignored); }
    std::string path(const std::string& name) const { return dir / name; }
    std::error_code ignored;
};

// A simulator's memory dump or a host's image dump, by station, area and address.
using Memory = std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t>;
inline Memory readMemory(const std::string& path) {
    Memory memory;
    for (const tools::MemoryWord& w : tools::readWordFile(path)) {
        memory[w.key()] = w.value;
    }
    return memory;
}

// tshark's reading of `capture` with the dissector and tshark's `options`, both passes: a row per
// frame shown by `filter`, the fields in the order asked (korvan's without their prefix), several
// values of one field joined by commas.
inline std::vector<Row> decode(const std::string& capture, const Texts& fields,
                               const std::string& filter = "", const Texts& options = {}) {
    Texts args{"-2", "-X", "lua_script:" KORVAN_DISSECTOR, "-r", capture, "-Y", filter};
    args.insert(args.end(), {"-T", "fields", "-E", "occurrence=a"});
    args.insert(args.end(), options.begin(), options.end());
    for (const std::string& field : fields) {
        args.insert(args.end(), {"-e", (field[0] == '_' ? "" : "korvan.") + field});
    }
    Process tshark(KORVAN_TSHARK, args);
    EXPECT_EQ(tshark.finish(), 0) << tshark.err();
    std::vector<Row> rows;
    std::istringstream lines(tshark.out());
    for (std::string line; std::getline(lines, line);) {
        std::istringstream cells(line);
        rows.emplace_back();
        for (std::string cell; std::getline(cells, cell, '\t');) {
            rows.back().push_back(cell);
        }
        rows.back().resize(fields.size());
    }
    return rows;
}

}  // namespace tooltest

#endif
