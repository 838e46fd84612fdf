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
