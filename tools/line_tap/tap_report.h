// What a tap run shows: a table of the stations, redrawn while it runs, or a CSV or JSON line
// per exchange for scripts; and the summary at the end.
#ifndef KORVAN_TOOLS_TAP_REPORT_H
#define KORVAN_TOOLS_TAP_REPORT_H

#include <string>
#include <vector>

#include "command_line.h"
#include "exchanges.h"
#include "live_table.h"

namespace linetap {

class TapReport {
public:
    // `terminal`: stdout is a terminal, so the table is redrawn in place. Times of the line
    // formats count from `start`.
    TapReport(tools::OutputFormat format, bool terminal, Clock::time_point start);

    // The first line on stderr: what the tap listens to; and the CSV heading.
    void listening(const std::string& what) const;
    // A line each, in CSV or JSON.
    void show(const std::vector<Exchange>& done);
    // The table, on a terminal at most ten times a second.
    void refresh(const Exchanges& exchanges);
    // The last table, the summary on stderr and, with JSON, the statistics as the last line.
    void finish(const Exchanges& exchanges);

private:
    void drawTable(const Exchanges& exchanges);

    tools::OutputFormat format_;
    tools::LiveTable table_;
    Clock::time_point start_;
};

}  // namespace linetap

#endif
