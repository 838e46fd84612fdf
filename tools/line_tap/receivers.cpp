#include "receivers.h"

#include <algorithm>

namespace linetap {

namespace {

constexpr std::size_t kRequests = 0;
constexpr std::size_t kReplies = 1;

}  // namespace

Receivers::Receivers(bool apart, bool remoteOnly, Clock::duration gap) {
    if (apart) {
        receivers_.emplace_back(Hears::Requests, remoteOnly, gap);
        receivers_.emplace_back(Hears::Replies, remoteOnly, gap);
    } else {
        receivers_.emplace_back(Hears::Both, remoteOnly, gap);
    }
}

void Receivers::feed(std::size_t receiver, const std::uint8_t* data, std::size_t length,
                     Clock::time_point at) {
    receivers_.at(receiver).feed(data, length, at);
}

std::vector<Frame> Receivers::take(Clock::time_point now) {
    // The requests first: the replies' receiver needs them to tell its bytes.
    for (FrameRecovery& receiver : receivers_) {
        hold(receiver.take(now));
    }
    Clock::time_point upTo = Clock::time_point::max();
    for (const FrameRecovery& receiver : receivers_) {
        upTo = std::min(upTo, receiver.undecidedSince());
    }
    return release(upTo);
}

std::vector<Frame> Receivers::finish() {
    for (FrameRecovery& receiver : receivers_) {
        hold(receiver.finish());
    }
    return release(Clock::time_point::max());
}

Clock::time_point Receivers::nextDecision() const {
    Clock::time_point next = Clock::time_point::max();
    for (const FrameRecovery& receiver : receivers_) {
        next = std::min(next, receiver.nextDecision());
    }
    return next;
}

void Receivers::hold(std::vector<Frame> frames) {
    const bool apart = receivers_.size() > kReplies;
    for (Frame& frame : frames) {
        if (apart && frame.kind == FrameKind::Request) {
            receivers_[kReplies].expect(frame);
        }
        held_.push_back(std::move(frame));
    }
    if (apart) {
        receivers_[kReplies].requestsKnownUntil(receivers_[kRequests].undecidedSince());
    }
}

std::vector<Frame> Receivers::release(Clock::time_point upTo) {
    // Each receiver's frames are in order already; a tie goes to the one heard first.
    std::stable_sort(held_.begin(), held_.end(),
                     [](const Frame& a, const Frame& b) { return a.at < b.at; });
    const auto end = std::find_if(held_.begin(), held_.end(),
                                  [upTo](const Frame& frame) { return frame.at > upTo; });
    std::vector<Frame> released(std::make_move_iterator(held_.begin()),
                                std::make_move_iterator(end));
    held_.erase(held_.begin(), end);
    return released;
}

}  // namespace linetap
