// What a discovery shows: its plan, progress and summary on stderr, and each combination that
// answered on stdout as it is found, as a table, CSV or JSON lines.
#ifndef KORVAN_TOOLS_DISCOVERY_REPORT_H
#define KORVAN_TOOLS_DISCOVERY_REPORT_H

#include <chrono>
#include <string>
#include <vector>

#include "discovery_options.h"
#include "host_options.h"

namespace refhost {

// How many tries a discovery makes, of how many values of each list, and their time when
// nothing answers.
struct DiscoveryPlan {
    std::size_t tries = 0;
    std::size_t bauds = 0;
    std::size_t parities = 0;
    std::size_t stopBits = 0;
    std::size_t stations = 0;
    std::size_t families = 0;
    double estimateSeconds = 0.0;
};

// "19200 8E1, station 7, local"
std::string describeTry(const Try& t);

class DiscoveryReport {
public:
    // `terminal`: stderr is a terminal, where the progress line is redrawn in place; elsewhere
    // a progress line is written now and then.
    DiscoveryReport(Format format, bool terminal) : format_(format), terminal_(terminal) {}

    // The plan on stderr, and the results' heading.
    void start(const std::string& place, const DiscoveryPlan& plan);
    // A try is about to be made, `heading` naming it; `answered` so far.
    void trying(const std::string& heading, std::size_t answered);
    void answered(const Try& t, double replyMs);
    // Trace lines of one try, on stderr together.
    void trace(const std::vector<std::string>& lines);
    // How many tries were made of how many, what answered and how long it took.
    void finish(std::size_t made, std::size_t total, std::size_t answered, double seconds);

private:
    using Clock = std::chrono::steady_clock;

    // Takes the progress line away before other output.
    void clearProgress();

    Format format_;
    bool terminal_;
    bool progressShown_ = false;  // on the terminal, the last line of stderr
    Clock::time_point lastProgress_ = Clock::now();
};

}  // namespace refhost

#endif
