// What a host run counts, for the statistics printed at its end.
#ifndef KORVAN_TOOLS_RUN_STATS_H
#define KORVAN_TOOLS_RUN_STATS_H

#include <map>
#include <string>
#include <vector>

#include "variables.h"

namespace refhost {

struct RunStats {
    long exchanges = 0;  // requests sent and judged
    long good = 0;
    long retries = 0;               // bad replies whose request was offered again
    std::map<int, long> abandoned;  // by result code
    long scans = 0;
    double scanMsTotal = 0.0;
    double scanMsMax = 0.0;
    long writesDone = 0;
    long writesFailed = 0;
    long writesIssued = 0;      // host writes handed to SetRegisterData
    long writesUnanswered = 0;  // issued writes that never got a result
    long writesRepeated = 0;    // results beyond the first for one write
    long bytesDropped = 0;      // bytes received and thrown away: noise, late or surplus replies
    long rssKbWarm = 0;         // resident memory once warmed up, and at the end
    long rssKbEnd = 0;
    double cpuMs = 0.0;  // processor time of the polling thread, user and system
};

// One variable's values as the image holds them at the end of a scan.
struct VariableValues {
    const Variable* variable = nullptr;
    int station = 0;
    std::vector<long> values;
    std::string state;  // ok, off, waiting, or "failed CODE"
};

}  // namespace refhost

#endif
