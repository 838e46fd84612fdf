// What the masters of the wire comparison share: their command line, and the timed loop of
// exchanges.
//
//   PROGRAM DEVICE seconds=S | exchanges=N
//
// With seconds=S the loop runs for S seconds; with exchanges=N it runs N exchanges without
// looking at the clock, for counting instructions under callgrind (korvan_master_loop is the
// function to collect in). Prints "exchanges N seconds S per_second R failed F".
#ifndef KORVAN_BENCH_WIRE_MASTER_LOOP_H
#define KORVAN_BENCH_WIRE_MASTER_LOOP_H

#include <functional>
#include <string>

namespace wire {

struct MasterRun {
    std::string device;
    double seconds = 0;  // 0: run `exchanges` exchanges
    long exchanges = 0;
};

// Throws std::invalid_argument on a bad command line.
MasterRun parseMasterRun(int argc, char** argv);

// Runs `exchange` (true: a good reply came) as the run says and prints the figures; returns
// non-zero when an exchange failed.
int timeExchanges(const MasterRun& run, const std::function<bool()>& exchange);

}  // namespace wire

#endif
