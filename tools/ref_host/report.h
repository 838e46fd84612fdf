// What a host run shows: the live table, or CSV or JSON lines for scripts, write results and
// the closing statistics.
#ifndef KORVAN_TOOLS_REPORT_H
#define KORVAN_TOOLS_REPORT_H

#include <chrono>
#include <string>
#include <vector>

#include "host_options.h"
#include "run_stats.h"

namespace refhost {

class Report {
public:
    // `terminal`: stdout is a terminal, so the table is redrawn in place.
    Report(Format format, bool terminal);

    void start(const std::string& link);
    // Whether scan() would show the rows of a scan ending now; reading them from the driver
    // can then be skipped (a table that is not on a terminal, or was redrawn lately).
    bool showsScan() const;
    void scan(long number, long elapsedMs, const std::vector<VariableValues>& rows);
    void writeResult(const std::string& write, bool done);
    // The last values (the table, where it was not shown live) and the statistics.
    void finish(const std::vector<VariableValues>& rows, const RunStats& stats);

private:
    void drawTable(const std::vector<VariableValues>& rows);

    Format format_;
    bool terminal_;
    int drawnLines_ = 0;
    std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace refhost

#endif
