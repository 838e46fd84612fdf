// How long a host read waits while the polling thread runs. The polling thread holds the image's
// lock only while it stores one reply, so a one-word GetRegisterData should never take longer
// than it takes alone plus one exchange (which contains the store): that is what "never blocked
// longer than one exchange's store" means here.
//
// Prints, in nanoseconds, percentiles of: one 100-word read exchange alone (its store is the
// longest lock hold polling makes), a one-word host read alone, and the same read while another
// thread polls 100-word reads back to back. Each sample is timed with steady_clock; the clock's
// own cost (median of back-to-back readings) is subtracted.
//
//   korvan_host_read_latency [SAMPLES]   prints "key value" lines
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "base/Communication_Protocol.h"
#include "exchange_cases.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDefaultSamples = 200000;

double nanoseconds(Clock::duration d) {
    return std::chrono::duration<double, std::nano>(d).count();
}

// Sorted durations of `samples` runs of `op`, less the clock's own cost.
std::vector<double> timed(int samples, double clockCost, const std::function<void()>& op) {
    std::vector<double> ns(static_cast<std::size_t>(samples));
    for (double& n : ns) {
        const Clock::time_point start = Clock::now();
        op();
        n = std::max(0.0, nanoseconds(Clock::now() - start) - clockCost);
    }
    std::sort(ns.begin(), ns.end());
    return ns;
}

double percentile(const std::vector<double>& sorted, double p) {
    const auto at = static_cast<std::size_t>(p / 100.0 * static_cast<double>(sorted.size() - 1));
    return sorted[at];
}

void print(const char* name, const std::vector<double>& sorted) {
    std::printf("%s_p50 %.0f\n%s_p99 %.0f\n%s_p99.9 %.0f\n%s_max %.0f\n", name,
                percentile(sorted, 50), name, percentile(sorted, 99), name,
                percentile(sorted, 99.9), name, sorted.back());
}

}  // namespace

int main(int argc, char** argv) {
    const int samples = argc > 1 ? std::atoi(argv[1]) : kDefaultSamples;
    const std::vector<double> clock = timed(samples, 0, [] {});
    const double clockCost = percentile(clock, 50);

    bench::ExchangeCase polling = bench::ExchangeCase::read(100);
    const std::vector<double> exchange = timed(samples, clockCost, [&] { polling.once(); });

    const QString address = QString::fromLatin1("150");  // inside the words the polling stores
    QByteArray out;
    const auto read = [&] { GetRegisterData(QString(), bench::kWordArea, address, 1, &out, 1); };
    const std::vector<double> alone = timed(samples, clockCost, read);

    std::atomic<bool> stop{false};
    std::atomic<long> exchanges{0};
    std::thread poller([&] {
        while (!stop.load(std::memory_order_relaxed)) {
            polling.once();
            exchanges.fetch_add(1, std::memory_order_relaxed);
        }
    });
    while (exchanges.load() == 0) {
        std::this_thread::yield();
    }
    const std::vector<double> whilePolling = timed(samples, clockCost, read);
    stop = true;
    poller.join();

    std::printf("clock_ns %.0f\n", clockCost);
    print("exchange100", exchange);
    print("read_alone", alone);
    print("read_polling", whilePolling);
    std::printf("exchanges_during %ld\n", exchanges.load());
    return 0;
}
