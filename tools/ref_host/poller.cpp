#include "poller.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <thread>

#include "frame_trace.h"
#include "hex_text.h"
#include "image_values.h"

namespace refhost {

namespace {

constexpr int kWriteOwner = 1;  // the writes' owner: their abandon codes are 12, 42, 72
constexpr auto kIdleWait = std::chrono::milliseconds(100);
constexpr auto kDrainLimit = std::chrono::seconds(10);
constexpr long kWarmScans = 20;  // scans after which memory should stay flat

long residentKb() {
    std::ifstream status("/proc/self/status");
    std::string key;
    long kb = 0;
    while (status >> key) {
        if (key == "VmRSS:") {
            status >> kb;
            break;
        }
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return kb;
}

// Processor time of the calling thread so far.
double threadCpuMs() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    const auto ms = [](const timeval& t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// The callbacks' way back: they carry no context of ours, but run on the polling thread.
thread_local Poller* activePoller = nullptr;

bool isGood(int code) {
    return code == korvan::kResultGood || code == korvan::kResultRemoteGood;
}

// The write's values, changed by `round` so that repeated writes are told apart: words count up,
// bits flip every round.
QByteArray writeValues(const Write& w, long round) {
    QByteArray bytes;
    for (long v : w.values) {
        if (isWordArea(w.area)) {
            v += round;
            bytes.append(static_cast<char>(v & 0xFF));
            bytes.append(static_cast<char>((v >> 8) & 0xFF));
        } else {
            bytes.append(static_cast<char>((v != 0) != (round % 2 != 0) ? 1 : 0));
        }
    }
    return bytes;
}

}  // namespace

Poller::Poller(const DriverApi& api, ComInfo& port, Link& link, const HostOptions& options,
               Report& report, int portIndex)
    : api_(api),
      port_(port),
      link_(link),
      options_(options),
      report_(report),
      portIndex_(portIndex) {
    const PortSettings& s = options.settings;
    port_.maxUnits = s.blockLength;
    port_.defaultStation = s.station;
    port_.retryLimit = s.retries;
    port_.perVarStation = s.perVarStation ? 1 : 0;
    port_.remoteMode = s.remoteMode ? 1 : 0;
    port_.portId = kHostPortId;
    port_.writeMode = s.writeMode;
    port_.hostTag = kHostTag;
    api_.setComInfo(&port_);
    activePoller = this;
    api_.registerCallbacks(onResult, onError);
    for (int station : s.offStations) {
        api_.enableStation(station, korvan::kStationOff);
    }
    QList<HOSTVAR> cyclic;
    for (const Variable& v : options.variables) {
        HOSTVAR h;
        h.area = static_cast<quint8>(v.area);
        h.station = static_cast<quint8>(stationOf(v, s));
        h.addressText = QString::fromStdString(v.address);
        h.nameText = QString::fromStdString(v.name);
        h.count = v.count;
        cyclic.append(h);
    }
    api_.planReads(&cyclic);
}

Poller::~Poller() {
    api_.registerCallbacks(nullptr, nullptr);
    api_.setComInfo(nullptr);
    activePoller = nullptr;
}

int Poller::onResult(int, int ownerId, int itemId, int status) {
    if (activePoller != nullptr && ownerId == kWriteOwner) {
        activePoller->writeResults_.emplace_back(itemId, status);
    }
    return 0;
}

int Poller::onError(QList<RW_VAR>*, int ownerId, int) {
    if (activePoller != nullptr && activePoller->options_.trace) {
        activePoller->report_.trace(activePoller->portIndex_,
                                    {"  error callback: owner " + std::to_string(ownerId)});
    }
    return 0;
}

void Poller::run(const volatile std::sig_atomic_t& stop) {
    const double cpuAtStart = threadCpuMs();
    poll(stop);
    drainWrites(stop);
    stats_.cpuMs = threadCpuMs() - cpuAtStart;
    stats_.rssKbEnd = residentKb();
    stats_.bytesDropped = link_.bytesDropped();
}

void Poller::drainWrites(const volatile std::sig_atomic_t& stop) {
    const auto until = Clock::now() + kDrainLimit;
    while (!stop && !unansweredItems_.empty() && Clock::now() < until) {
        if (Protocol* request = nextRequest()) {
            exchange(*request);
        } else if (driverIdle_) {
            break;
        }
    }
    stats_.writesUnanswered = static_cast<long>(unansweredItems_.size());
}

// The scheduler ends each burst of writes with one null, which starts the bursts again; a second
// in a row means that it holds nothing more to send.
Protocol* Poller::nextRequest() {
    Protocol* request = api_.nextRequest();
    driverIdle_ = request == nullptr && lastWasNull_;
    lastWasNull_ = request == nullptr;
    return request;
}

void Poller::poll(const volatile std::sig_atomic_t& stop) {
    if (options_.seconds > 0.0) {
        deadline_ = started_ + std::chrono::duration_cast<Clock::duration>(
                                   std::chrono::duration<double>(options_.seconds));
    }
    const bool cyclic = !options_.variables.empty();
    const auto cycle = std::chrono::milliseconds(options_.cycleMs);
    for (Clock::time_point now = Clock::now(); !stop && now < deadline_; now = Clock::now()) {
        const bool writesDue =
            !writesIssued_ || (options_.writeEveryScan && lastWriteScan_ != stats_.scans);
        if (writesDue && stats_.scans >= options_.writeAtScan) {
            issueWrites();
        }
        Protocol* request = nextRequest();
        if (request == nullptr) {
            if (!cyclic && writesIssued_) {
                if (unansweredItems_.empty() || driverIdle_) {
                    return;  // every write has its result, or none can come
                }
                continue;  // the end of a burst of writes
            }
            // Every station of the read list is switched off: an empty scan.
            finishScan(now);
            if (scansDone()) {
                return;
            }
            scanStarted_ = pause(std::max(now + kIdleWait, scanStarted_ + cycle), stop);
            continue;
        }
        if (request->var.itemId == korvan::kCyclicItemId && !retryPending_ &&
            !trackScan(request->var, now, stop)) {
            return;
        }
        exchange(*request);
    }
}

bool Poller::trackScan(const RW_VAR& read, Clock::time_point& now,
                       const volatile std::sig_atomic_t& stop) {
    const BlockKey block{read.station, read.area, read.address, read.count};
    if (std::binary_search(scanBlocks_.begin(), scanBlocks_.end(), block)) {
        finishScan(now);
        if (scansDone()) {
            return false;
        }
        now = pause(scanStarted_ + std::chrono::milliseconds(options_.cycleMs), stop);
    }
    if (scanBlocks_.empty()) {
        scanStarted_ = now;
    }
    // The list runs in order, so a block mostly goes to the end.
    scanBlocks_.insert(std::upper_bound(scanBlocks_.begin(), scanBlocks_.end(), block), block);
    return true;
}

Poller::Clock::time_point Poller::pause(Clock::time_point until,
                                        const volatile std::sig_atomic_t& stop) const {
    until = std::min(until, deadline_);
    Clock::time_point now = Clock::now();
    while (!stop && now < until) {
        std::this_thread::sleep_for(std::min<Clock::duration>(until - now, kIdleWait));
        now = Clock::now();
    }
    return now;
}

void Poller::finishScan(Clock::time_point now) {
    const double ms = std::chrono::duration<double, std::milli>(now - scanStarted_).count();
    ++stats_.scans;
    if (stats_.scans == kWarmScans) {
        stats_.rssKbWarm = residentKb();
    }
    stats_.scanMsTotal += ms;
    stats_.scanMsMax = std::max(stats_.scanMsMax, ms);
    // Reading every variable back costs more than a short exchange; only when it is shown.
    if (report_.showsScan()) {
        report_.scan(portIndex_, stats_.scans, elapsedMs(), values());
    }
    scanBlocks_.clear();
}

bool Poller::expectsResult(const Write& w) const {
    const PortSettings& s = options_.settings;
    const int station = s.perVarStation && w.station != kNoStation ? w.station : s.station;
    return s.writeMode == korvan::kWriteToPlc &&
           std::find(s.offStations.begin(), s.offStations.end(), station) == s.offStations.end();
}

// Items number the writes of the command line from 1, round after round.
void Poller::issueWrites() {
    writesIssued_ = true;
    const long round = lastWriteScan_ < 0 ? 0 : stats_.scans;
    lastWriteScan_ = stats_.scans;
    int item = static_cast<int>(round * static_cast<long>(options_.writes.size()));
    for (const Write& w : options_.writes) {
        QByteArray values = writeValues(w, round);
        if (expectsResult(w)) {
            unansweredItems_.insert(item + 1);
        }
        ++stats_.writesIssued;
        api_.write(QString::fromStdString(w.text), w.area, QString::fromStdString(w.address),
                   w.station == kNoStation ? options_.settings.station : w.station, &values,
                   static_cast<int>(w.values.size()), kWriteOwner, ++item);
    }
}

void Poller::exchange(const Protocol& request) {
    // DataCom replaces the request; keep what is needed afterwards.
    const QByteArray frame = request.frame.left(request.sendLength);
    const int station = request.var.station;
    const int replyLength = request.replyLength;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(frame.constData());

    const tools::Bytes& reply = link_.exchange(bytes, frame.size(), replyLength, lineSettled_);
    received_.resize(static_cast<int>(reply.size()));
    if (!reply.empty()) {
        memcpy(received_.data(), reply.data(), reply.size());
    }
    const int code = api_.handReply(&received_, received_.size())->result;
    const bool good = replyLength > 0 && isGood(code);
    // A retry answered after a frame went unanswered in time: that frame's answer, or the
    // retry's own if the first answer was only late, may still come, and the next request's
    // reply would be taken from it, every later reply one behind while looking good. Wait for it
    // before the next request; this costs a reply time only after a timeout.
    if (good && timedOut_) {
        link_.dropLateReply(static_cast<std::size_t>(replyLength),
                            link_.replyTimeoutMs(frame.size(), replyLength));
    }
    timedOut_ = code == korvan::kResultRetry && replyLength > 0 &&
                (timedOut_ || reply.size() < static_cast<std::size_t>(replyLength));
    lineSettled_ = good && lastGood_;
    lastGood_ = good;

    ++stats_.exchanges;
    retryPending_ = code == korvan::kResultRetry;
    if (code == korvan::kResultRetry) {
        ++stats_.retries;
    } else {
        lastCode_[station] = code;
        if (isGood(code)) {
            ++stats_.good;
        } else {
            ++stats_.abandoned[code];
        }
    }
    if (options_.trace) {
        report_.trace(
            portIndex_,
            {"> " + tools::hexBytes(bytes, frame.size()) + "  | " +
                 describeRequest(bytes, frame.size(), options_.settings.remoteMode),
             "< " +
                 (reply.empty()
                      ? "(nothing within " +
                            std::to_string(link_.replyTimeoutMs(frame.size(), replyLength)) + " ms)"
                      : tools::hexBytes(reply.data(), reply.size()) + "  | " +
                            describeReply(reply.data(), reply.size())),
             "= " + std::to_string(code) + " " + describeResult(code)});
    }
    reportWrites();
}

void Poller::reportWrites() {
    for (const auto& [item, status] : writeResults_) {
        // Items are never reused: a result for one no longer waiting is a second result.
        if (unansweredItems_.erase(item) == 0) {
            ++stats_.writesRepeated;
            continue;
        }
        const bool done = status == korvan::kStatusDone;
        ++(done ? stats_.writesDone : stats_.writesFailed);
        const std::size_t index = static_cast<std::size_t>(item - 1) % options_.writes.size();
        report_.writeResult(portIndex_, options_.writes.at(index).text, done);
    }
    writeResults_.clear();
}

std::string Poller::stateOf(int station) const {
    const auto& off = options_.settings.offStations;
    if (std::find(off.begin(), off.end(), station) != off.end()) {
        return "off";
    }
    const auto it = lastCode_.find(station);
    if (it == lastCode_.end()) {
        return "waiting";
    }
    return isGood(it->second) ? "ok" : "failed " + std::to_string(it->second);
}

std::vector<VariableValues> Poller::values() const {
    std::vector<VariableValues> rows;
    for (const Variable& v : options_.variables) {
        const int station = stationOf(v, options_.settings);
        rows.push_back({&v, station, readValues(api_, v, station), stateOf(station)});
    }
    return rows;
}

long Poller::elapsedMs() const {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_).count());
}

}  // namespace refhost
