// What a host run shows: the live table, or CSV or JSON lines for scripts, write results and
// the closing statistics. With several ports the pollers report from their own threads, and
// every row and line names its port.
#ifndef KORVAN_TOOLS_REPORT_H
#define KORVAN_TOOLS_REPORT_H

#include <mutex>
#include <string>
#include <vector>

#include "host_options.h"
#include "live_table.h"
#include "run_stats.h"

namespace refhost {

class Report {
public:
    // `ports`: the port names, or one empty name for a run without --port. `terminal`: stdout is
    // a terminal, so the table is redrawn in place.
    Report(Format format, bool terminal, std::vector<std::string> ports);

    void start(int port, const std::string& link);
    // Whether scan() would show the rows of a scan ending now; reading them from the driver
    // can then be skipped (a table that is not on a terminal, or was redrawn lately).
    bool showsScan() const;
    void scan(int port, long number, long elapsedMs, std::vector<VariableValues> rows);
    void writeResult(int port, const std::string& write, bool done);
    void error(int port, const std::string& what);
    // Trace lines of one exchange, on stderr together.
    void trace(int port, const std::vector<std::string>& lines);
    // The last values of every port (the table, where it was not shown live) and the statistics
    // of each port that ran.
    void finish(const std::vector<std::vector<VariableValues>>& rows,
                const std::vector<const RunStats*>& stats);

private:
    bool named() const { return !ports_.front().empty(); }
    // "port a: " before a message of port a, nothing without --port.
    std::string prefix(int port) const;
    void drawTable();
    void printStatsText(int port, const RunStats& s) const;
    void printStatsJson(int port, const RunStats& s) const;

    Format format_;
    tools::LiveTable table_;
    std::vector<std::string> ports_;
    mutable std::mutex mutex_;
    std::vector<std::vector<VariableValues>> rows_;  // by port: the last scan's
    bool headerShown_ = false;
};

}  // namespace refhost

#endif
