#include "exchanges.h"

#include <algorithm>

namespace linetap {

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;
constexpr int kBroadcast = 0;

}  // namespace

double Exchange::replyMs() const {
    return reply ? Milliseconds(reply->at - request.at).count() : 0.0;
}

Exchanges::Exchanges(tools::LineCapture& capture) : capture_(capture) {}

std::vector<Exchange> Exchanges::record(const std::vector<Frame>& frames) {
    std::vector<Exchange> done;
    for (const Frame& frame : frames) {
        switch (frame.kind) {
            case FrameKind::Request:
                recordRequest(frame, done);
                break;
            case FrameKind::Reply:
                recordReply(frame, done);
                break;
            case FrameKind::Dropped:
                recordDropped(frame);
                break;
        }
    }
    return done;
}

std::vector<Exchange> Exchanges::finish() {
    std::vector<Exchange> done;
    if (waiting_) {
        complete(Result::Missing, done);
    }
    return done;
}

StationStats Exchanges::total() const {
    StationStats all;
    for (const auto& [station, s] : stations_) {
        all.requests += s.requests;
        all.replies += s.replies;
        all.bad += s.bad;
        all.missing += s.missing;
        all.replyMsTotal += s.replyMsTotal;
        all.replyMsMax = std::max(all.replyMsMax, s.replyMsMax);
    }
    return all;
}

void Exchanges::recordRequest(const Frame& frame, std::vector<Exchange>& done) {
    if (waiting_) {
        complete(Result::Missing, done);
    }
    capture_.request(frame.family, frame.bytes.data(), frame.bytes.size(),
                     onCaptureClock(frame.at));
    Exchange exchange;
    exchange.number = ++requests_;
    exchange.station = stationOf(frame);
    exchange.request = frame;
    ++stations_[exchange.station].requests;
    waiting_ = std::move(exchange);
    // No reply is looked for to station 0's requests, nor to a read longer than any frame.
    if (replyLength(frame) == 0) {
        complete(waiting_->station == kBroadcast ? Result::Broadcast : Result::Missing, done);
    }
}

void Exchanges::recordReply(const Frame& frame, std::vector<Exchange>& done) {
    if (!waiting_) {
        // The request it answers was not heard, or had its reply: it pairs with nothing.
        recordDropped(frame);
        return;
    }
    capture_.reply(frame.bytes.data(), frame.bytes.size(), onCaptureClock(frame.at));
    waiting_->reply = frame;
    StationStats& s = stations_[waiting_->station];
    ++s.replies;
    const double ms = waiting_->replyMs();
    s.replyMsTotal += ms;
    s.replyMsMax = std::max(s.replyMsMax, ms);
    if (!frame.good) {
        ++s.bad;
    }
    complete(frame.good ? Result::Good : Result::Bad, done);
}

void Exchanges::recordDropped(const Frame& frame) {
    capture_.dropped(frame.bytes.data(), frame.bytes.size(), onCaptureClock(frame.at));
    bytesDropped_ += static_cast<long>(frame.bytes.size());
}

void Exchanges::complete(Result result, std::vector<Exchange>& done) {
    waiting_->result = result;
    if (result == Result::Missing) {
        ++stations_[waiting_->station].missing;
    }
    done.push_back(std::move(*waiting_));
    waiting_.reset();
}

tools::CaptureClock::time_point Exchanges::onCaptureClock(Clock::time_point at) const {
    return captureStart_ +
           std::chrono::duration_cast<tools::CaptureClock::duration>(at - steadyStart_);
}

}  // namespace linetap
