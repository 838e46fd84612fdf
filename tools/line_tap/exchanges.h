// The frames a tap heard as exchanges: each request paired with its reply, or with none when the
// next request came first; counted per station, and written to the capture file.
#ifndef KORVAN_TOOLS_EXCHANGES_H
#define KORVAN_TOOLS_EXCHANGES_H

#include <map>
#include <optional>
#include <vector>

#include "frame_recovery.h"
#include "line_capture.h"

namespace linetap {

struct StationStats {
    long requests = 0;
    long replies = 0;  // good or bad
    long bad = 0;      // replies whose CRC fails
    long missing = 0;  // requests the next request (or the end) found without a reply
    double replyMsTotal = 0.0;
    double replyMsMax = 0.0;

    double replyMsMean() const {
        return replies == 0 ? 0.0 : replyMsTotal / static_cast<double>(replies);
    }
};

// What came of a request: a good reply, a damaged one, none, or none asked for (station 0).
enum class Result { Good, Bad, Missing, Broadcast };

// A request and what came of it.
struct Exchange {
    long number = 0;  // requests count from 1, as in the capture
    int station = 0;
    Frame request;
    std::optional<Frame> reply;
    Result result = Result::Missing;

    double replyMs() const;
};

class Exchanges {
public:
    // Frames are stamped on the steady clock; the capture's stamps follow the system clock from
    // the moment both were read.
    explicit Exchanges(tools::LineCapture& capture);

    // Takes the frames in the order they ended; returns the exchanges they completed.
    std::vector<Exchange> record(const std::vector<Frame>& frames);
    // The end: the request still waiting has no reply.
    std::vector<Exchange> finish();

    // By station; station 0's requests are everyone's, and none answers them.
    const std::map<int, StationStats>& stations() const { return stations_; }
    StationStats total() const;
    long bytesDropped() const { return bytesDropped_; }

private:
    void recordRequest(const Frame& frame, std::vector<Exchange>& done);
    void recordReply(const Frame& frame, std::vector<Exchange>& done);
    void recordDropped(const Frame& frame);
    void complete(Result result, std::vector<Exchange>& done);
    tools::CaptureClock::time_point onCaptureClock(Clock::time_point at) const;

    tools::LineCapture& capture_;
    Clock::time_point steadyStart_ = Clock::now();
    tools::CaptureClock::time_point captureStart_ = tools::CaptureClock::now();
    std::optional<Exchange> waiting_;  // the last request, while it waits for its reply
    long requests_ = 0;
    std::map<int, StationStats> stations_;
    long bytesDropped_ = 0;
};

}  // namespace linetap

#endif
