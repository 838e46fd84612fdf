// The debug log: its time stamp (milliseconds without leading zeros under either Qt major, Qt 5's
// own "z" pads them to three digits), and what it refuses to write to.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "driver/debug_log.h"

namespace {

TEST(DebugLog, MillisecondsHaveNoLeadingZeros) {
    const QDate day(2026, 1, 2);
    for (const auto& [ms, stamp] : {std::make_pair(7, "2026.01.02.03:04:05.7"),
                                    std::make_pair(123, "2026.01.02.03:04:05.123"),
                                    std::make_pair(0, "2026.01.02.03:04:05.0")}) {
        EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(3, 4, 5, ms))),
                  QString::fromLatin1(stamp));
    }
}

std::string contents(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// The log's folder is every user's: whatever is at its path, the handler writes only to a regular
// file of its own user with no other name, never follows a link, waits for a FIFO's reader or
// raises SIGPIPE, and makes a file its user's alone. `make` prepares the path, `check` the outcome.
TEST(DebugLog, WritesOnlyARegularFileOfItsOwn) {
    char folder[] = "/tmp/korvan_log.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string dir = folder, log = dir + "/debug.log", other = dir + "/other";
    const bool root = geteuid() == 0;
    int reader = -1;  // a FIFO's reader

    const auto existing = [&] { std::ofstream(log) << "earlier\n"; };
    const auto aside = [&] { std::ofstream(other) << "kept\n"; };
    const auto appended = [&] {
        const std::string text = contents(log);
        EXPECT_EQ(text.rfind("earlier\n", 0), 0u) << text;
        EXPECT_EQ(text.size() - text.find(":one\n"), 5u) << text;
    };
    const auto untouched = [&] { EXPECT_EQ(contents(other), "kept\n"); };
    struct Case {
        const char* what;
        std::function<void()> make, check;
    };
    const Case cases[] = {
        {"a new file, its user's alone", [] {},
         [&] {
             struct stat st {};
             ASSERT_EQ(stat(log.c_str(), &st), 0);
             EXPECT_EQ(st.st_mode & 0777, 0600u);
             EXPECT_NE(contents(log).find(":one\n"), std::string::npos);
         }},
        {"an existing file", existing, appended},
        {"a link to another file", [&] { aside(), symlink(other.c_str(), log.c_str()); },
         untouched},
        {"a dangling link", [&] { symlink(other.c_str(), log.c_str()); },
         [&] { EXPECT_NE(access(other.c_str(), F_OK), 0); }},
        {"a second name of another file", [&] { aside(), link(other.c_str(), log.c_str()); },
         untouched},
        {"a FIFO nobody reads", [&] { mkfifo(log.c_str(), 0600); }, [] {}},
        {"a FIFO with a reader, who may go away at any time",
         [&] {
             mkfifo(log.c_str(), 0600);
             reader = open(log.c_str(), O_RDONLY | O_NONBLOCK);
         },
         [&] {
             char byte;
             EXPECT_LE(read(reader, &byte, 1), 0);
             close(reader);
         }},
        {"a directory", [&] { mkdir(log.c_str(), 0700); }, [] {}},
        {"a file of another user (made only when root)",
         [&] { existing(), chown(log.c_str(), 65534, 65534); },
         [&] { EXPECT_TRUE(!root || contents(log) == "earlier\n") << contents(log); }},
    };
    // A write to a FIFO whose reader has gone would end the process here.
    const auto previousPipe = std::signal(SIGPIPE, SIG_DFL);
    const mode_t previousMask = umask(0);  // the mode comes from the handler alone
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        c.make();
        appendDebugLogLine(log.c_str(), "one");
        c.check();
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            std::filesystem::remove_all(entry.path());
        }
    }
    umask(previousMask);
    std::signal(SIGPIPE, previousPipe);
    rmdir(folder);
}

}  // namespace
