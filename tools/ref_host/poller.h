// The host's polling loop: the driver's next request out on the link, the reply (or silence)
// back to the driver, result codes and callbacks counted, scans recognised and shown.
#ifndef KORVAN_TOOLS_POLLER_H
#define KORVAN_TOOLS_POLLER_H

#include <chrono>
#include <csignal>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "driver_library.h"
#include "host_options.h"
#include "link.h"
#include "report.h"
#include "run_stats.h"

namespace refhost {

class Poller {
public:
    // Hands the driver the port record, the callbacks, the station switches and the cyclic
    // variables. `port` must outlive the poller: the driver works in it. The driver calls the
    // callbacks on the polling thread, so a poller is made, run and destroyed on one thread, and
    // each thread runs one poller. `portIndex` names the port to the report.
    Poller(const DriverApi& api, ComInfo& port, Link& link, const HostOptions& options,
           Report& report, int portIndex);
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    // Polls until the scans or seconds of the options are done, `stop` is set, or (without
    // cyclic variables) every write has its result; then polls on, issuing nothing new, until
    // every write has its result, a time limit passes or the driver has nothing left to send,
    // and counts the writes left without a result. Throws tools::LinkClosed.
    void run(const volatile std::sig_atomic_t& stop);

    std::vector<VariableValues> values() const;
    const RunStats& stats() const { return stats_; }

private:
    using Clock = std::chrono::steady_clock;
    using BlockKey = std::tuple<int, int, int, int>;  // station, area, address, count

    static int onResult(int hostTag, int ownerId, int itemId, int status);
    static int onError(QList<RW_VAR>* list, int ownerId, int flag);

    void poll(const volatile std::sig_atomic_t& stop);
    void drainWrites(const volatile std::sig_atomic_t& stop);
    Protocol* nextRequest();
    // Whether the driver will call back for the write: only writes that go to the PLC, to a
    // station that is on, get a result.
    bool expectsResult(const Write& w) const;
    void issueWrites();
    void exchange(const Protocol& request);
    // Notes the cyclic read about to go out. A block already read in this scan means the read
    // list has come round: the scan ends, and `now` moves past the pause before the next one.
    // False when that was the last scan asked for.
    bool trackScan(const RW_VAR& read, Clock::time_point& now,
                   const volatile std::sig_atomic_t& stop);
    // Ends the scan at `now`.
    void finishScan(Clock::time_point now);
    bool scansDone() const { return options_.scans != 0 && stats_.scans >= options_.scans; }
    // Sleeps until `until`, the deadline of the run, or a stop request, whichever comes first;
    // returns the time it ends.
    Clock::time_point pause(Clock::time_point until, const volatile std::sig_atomic_t& stop) const;
    void reportWrites();
    std::string stateOf(int station) const;
    long elapsedMs() const;

    const DriverApi& api_;
    ComInfo& port_;
    Link& link_;
    const HostOptions& options_;
    Report& report_;
    int portIndex_;
    RunStats stats_;
    bool writesIssued_ = false;
    long lastWriteScan_ = -1;        // the scan whose writes were issued last
    std::set<int> unansweredItems_;  // items of the issued writes still without a result
    bool retryPending_ = false;
    bool lastWasNull_ = false;          // the driver's last answer was "nothing to send"
    bool driverIdle_ = false;           // and so was the one before
    bool lastGood_ = false;             // the last exchange's reply was good
    bool lineSettled_ = false;          // so were the two last ones
    bool timedOut_ = false;             // a frame of this exchange went unanswered in time
    std::vector<BlockKey> scanBlocks_;  // sorted: the blocks read in this scan
    QByteArray received_;               // the reply handed to the driver, its storage reused
    Clock::time_point started_ = Clock::now();
    Clock::time_point deadline_ = Clock::time_point::max();
    Clock::time_point scanStarted_ = Clock::now();
    std::map<int, int> lastCode_;                    // by station: the last final result code
    std::vector<std::pair<int, int>> writeResults_;  // item, status: from the callback
};

}  // namespace refhost

#endif
