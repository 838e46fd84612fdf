#include "master_loop.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

// The function callgrind collects in: `count` exchanges and nothing else. Returns the failures.
extern "C" __attribute__((noinline)) long korvan_master_loop(const std::function<bool()>& exchange,
                                                             long count) {
    long failed = 0;
    for (long i = 0; i < count; ++i) {
        failed += exchange() ? 0 : 1;
    }
    return failed;
}

namespace wire {

namespace {

using Clock = std::chrono::steady_clock;

// Exchanges between looks at the clock, so that reading it costs next to nothing.
constexpr long kClockEvery = 16;

}  // namespace

MasterRun parseMasterRun(int argc, char** argv) {
    const std::string usage = std::string("usage: ") + argv[0] + " DEVICE seconds=S|exchanges=N";
    if (argc != 3) {
        throw std::invalid_argument(usage);
    }
    MasterRun run;
    run.device = argv[1];
    const std::string what = argv[2];
    if (what.rfind("seconds=", 0) == 0) {
        run.seconds = std::stod(what.substr(8));
    } else if (what.rfind("exchanges=", 0) == 0) {
        run.exchanges = std::stol(what.substr(10));
    } else {
        throw std::invalid_argument(usage);
    }
    return run;
}

int timeExchanges(const MasterRun& run, const std::function<bool()>& exchange) {
    long failed = korvan_master_loop(exchange, 1);  // sets things up; neither timed nor counted
    long exchanges = 0;
    const Clock::time_point start = Clock::now();
    Clock::time_point now = start;
    if (run.seconds > 0) {
        const auto end = start + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(run.seconds));
        while (now < end) {
            failed += korvan_master_loop(exchange, kClockEvery);
            exchanges += kClockEvery;
            now = Clock::now();
        }
    } else {
        failed += korvan_master_loop(exchange, run.exchanges);
        exchanges = run.exchanges;
        now = Clock::now();
    }
    const double seconds = std::chrono::duration<double>(now - start).count();
    std::printf("exchanges %ld seconds %.3f per_second %.0f failed %ld\n", exchanges, seconds,
                static_cast<double>(exchanges) / seconds, failed);
    return failed == 0 ? 0 : 1;
}

}  // namespace wire
