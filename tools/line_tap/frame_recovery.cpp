#include "frame_recovery.h"

#include <algorithm>

namespace linetap {

namespace {

constexpr std::uint8_t kBroadcast = 0;
// Replies: station, function, byte count, data, CRC; a write is acknowledged in 10 bytes.
constexpr std::size_t kReplyHeader = 3;
constexpr std::size_t kReplyOverhead = kReplyHeader + plcsim::kCrcLength;
constexpr std::size_t kWriteAckLength = 10;
constexpr std::size_t kByteCountAt = 2;
constexpr std::size_t kBitsPerGroup = 16;
constexpr std::size_t kBytesPerGroup = 2;
constexpr std::uint8_t kRemoteRead = 0;
// Requests kept waiting for their reply on a reply wire: those told at once after a stretch of
// noise on the request wire (at most a longest frame's bytes of them), but not a silent wire's
// without end.
constexpr std::size_t kMostExpected = 256;
constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

std::size_t be16(const std::uint8_t* at) {
    return static_cast<std::size_t>(at[0] << 8 | at[1]);
}

// Of the request whose first bytes are `b`.
int stationAt(const std::uint8_t* b, bool local) {
    return b[local ? plcsim::kLocalStationAt : plcsim::kRemoteStationAt];
}

bool isReadAt(const std::uint8_t* b, bool local) {
    return local ? b[plcsim::kLocalFunctionAt] == plcsim::kFnReadBits ||
                       b[plcsim::kLocalFunctionAt] == plcsim::kFnReadWords
                 : b[plcsim::kRemoteDirectionAt] == kRemoteRead;
}

std::size_t replyLengthAt(const std::uint8_t* b, bool local) {
    if (stationAt(b, local) == kBroadcast) {
        return 0;
    }
    std::size_t length = kWriteAckLength;
    if (isReadAt(b, local)) {
        const std::size_t count =
            be16(b + (local ? plcsim::kLocalCountAt : plcsim::kRemoteCountAt));
        // Local bit reads count bits, packed into 16-bit groups; the rest count the groups.
        const bool bits = local && b[plcsim::kLocalFunctionAt] == plcsim::kFnReadBits;
        length = kReplyOverhead +
                 kBytesPerGroup * (bits ? (count + kBitsPerGroup - 1) / kBitsPerGroup : count);
    }
    return length <= plcsim::kLongestFrame ? length : 0;
}

bool isLocal(const Frame& request) {
    return request.family == tools::FrameFamily::Local;
}

}  // namespace

std::size_t replyLength(const Frame& request) {
    return replyLengthAt(request.bytes.data(), isLocal(request));
}

int stationOf(const Frame& request) {
    return stationAt(request.bytes.data(), isLocal(request));
}

FrameRecovery::FrameRecovery(Hears hears, bool remoteOnly, Clock::duration gap)
    : hears_(hears), remoteOnly_(remoteOnly), gap_(gap) {}

void FrameRecovery::feed(const std::uint8_t* data, std::size_t length, Clock::time_point at) {
    if (length == 0) {
        return;
    }
    if (!times_.empty() && at - lastByte_ >= gap_) {
        gaps_.push_back(times_.size());
    }
    stream_.append(data, length);
    times_.insert(times_.end(), length, at);
    lastByte_ = at;
    waitsForRequests_ = false;
}

std::vector<Frame> FrameRecovery::take(Clock::time_point now) {
    return decideAll(!times_.empty() && now - lastByte_ >= gap_);
}

std::vector<Frame> FrameRecovery::finish() {
    return decideAll(true);
}

void FrameRecovery::expect(const Frame& request) {
    expected_.push_back(
        {replyLength(request), isReadAt(request.bytes.data(), isLocal(request)), request.at});
    if (expected_.size() > kMostExpected) {
        expected_.pop_front();
    }
}

Clock::time_point FrameRecovery::undecidedSince() const {
    return times_.empty() ? Clock::time_point::max() : times_.front();
}

Clock::time_point FrameRecovery::nextDecision() const {
    if (times_.empty() || waitsForRequests_ ||
        (hears_ == Hears::Replies && requestsKnownUntil_ < times_.front())) {
        return Clock::time_point::max();
    }
    return lastByte_ + gap_;
}

std::vector<Frame> FrameRecovery::decideAll(bool quiet) {
    std::vector<Frame> frames;
    const Bytes& bytes = stream_.bytes();
    std::size_t s = 0;
    std::size_t droppedUpTo = kNowhere;  // the end of the last frame when it is a dropped run
    while (s < bytes.size()) {
        // Requests that a later one followed before these bytes came have had their chance.
        expected_.erase(expected_.begin(),
                        expected_.begin() + static_cast<std::ptrdiff_t>(expectationIndex(s)));
        const Decision d = decide(s, quiet);
        if (d.what == Decision::Wait) {
            // On a quiet line only requests the other receiver has yet to tell can be waited for.
            waitsForRequests_ = quiet;
            break;
        }
        if (d.what == Decision::Drop) {
            if (!expected_.empty() && expected_.front().since <= times_[s]) {
                expected_.front().dueNext = false;  // a reply still to come is not damaged
            }
            // A run of dropped bytes is one piece, until a gap.
            if (droppedUpTo != s || gapBefore(s)) {
                frames.push_back({});
            }
            frames.back().bytes.push_back(bytes[s]);
            frames.back().at = times_[s];
            droppedUpTo = ++s;
            continue;
        }
        const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(s);
        Frame frame{d.kind, d.family, Bytes(from, from + static_cast<std::ptrdiff_t>(d.length)),
                    d.good, times_[s + d.length - 1]};
        if (d.kind == FrameKind::Reply) {
            // It answers the first request waiting. Two receivers hand on what they hear
            // at their own pace: a reply never ends before its request.
            frame.at = std::max(frame.at, expected_.front().since);
            expected_.pop_front();
        } else if (hears_ == Hears::Both) {
            // On a shared line a request ends the wait for the one before it.
            expected_.clear();
            expect(frame);
        }
        frames.push_back(std::move(frame));
        s += d.length;
    }
    erase(s);
    return frames;
}

FrameRecovery::Decision FrameRecovery::decide(std::size_t s, bool quiet) const {
    if (hears_ == Hears::Replies && requestsKnownUntil_ < times_[s]) {
        return {Decision::Wait, FrameKind::Dropped, 0, false, tools::FrameFamily::Unknown};
    }
    const Bytes& bytes = stream_.bytes();
    const std::size_t bound = reach(s, quiet);
    const Expected* expected = expectationAt(s);
    bool pending = false;
    if (expected != nullptr) {
        // The request's length, and before it a shorter one the reply's byte count states.
        std::size_t lengths[2];
        std::size_t count = 0;
        if (expected->read && bytes.size() - s >= kReplyHeader) {
            const std::size_t stated = kReplyOverhead + bytes[s + kByteCountAt];
            if (stated < expected->length) {
                lengths[count++] = stated;
            }
        }
        lengths[count++] = expected->length;
        for (std::size_t i = 0; i < count && !pending; ++i) {
            switch (judge(s, lengths[i], Check::Crc, bound)) {
                case Outcome::Holds:
                    return {Decision::Take, FrameKind::Reply, lengths[i], true,
                            tools::FrameFamily::Unknown};
                case Outcome::Pending:
                    pending = true;
                    break;
                case Outcome::Fails:
                    break;
            }
        }
    }
    if (!pending && hears_ != Hears::Replies) {
        plcsim::Length found{};
        switch (requestAt(s, quiet, &found)) {
            case Outcome::Holds:
                return {Decision::Take, FrameKind::Request, found.n, true,
                        found.local ? tools::FrameFamily::Local : tools::FrameFamily::Remote};
            case Outcome::Pending:
                pending = true;
                break;
            case Outcome::Fails:
                break;
        }
    }
    if (expected != nullptr) {
        switch (damagedReply(s, *expected, bound, quiet)) {
            case Outcome::Holds:
                return {Decision::Take, FrameKind::Reply, expected->length, false,
                        tools::FrameFamily::Unknown};
            case Outcome::Pending:
                pending = true;
                break;
            case Outcome::Fails:
                break;
        }
    }
    return {pending ? Decision::Wait : Decision::Drop, FrameKind::Dropped, 1, false,
            tools::FrameFamily::Unknown};
}

std::size_t FrameRecovery::expectationIndex(std::size_t s) const {
    std::size_t i = 0;
    while (i + 1 < expected_.size() && expected_[i + 1].since <= times_[s]) {
        ++i;
    }
    return i;
}

const FrameRecovery::Expected* FrameRecovery::expectationAt(std::size_t s) const {
    if (expected_.empty()) {
        return nullptr;
    }
    const Expected& e = expected_[expectationIndex(s)];
    return e.length == 0 ? nullptr : &e;
}

std::size_t FrameRecovery::reach(std::size_t s, bool quiet) const {
    const auto next = std::upper_bound(gaps_.begin(), gaps_.end(), s);
    if (next != gaps_.end()) {
        return *next;
    }
    return quiet ? times_.size() : kNowhere;
}

FrameRecovery::Outcome FrameRecovery::judge(std::size_t s, std::size_t n, Check check,
                                            std::size_t bound) const {
    const std::size_t size = times_.size();
    if (n == 0) {
        // The length is not known yet: only more bytes tell it.
        return bound > size ? Outcome::Pending : Outcome::Fails;
    }
    if (s + n > bound) {
        return Outcome::Fails;
    }
    if (s + n > size) {
        return Outcome::Pending;
    }
    return holds(s, n, check) ? Outcome::Holds : Outcome::Fails;
}

bool FrameRecovery::holds(std::size_t s, std::size_t n, Check check) const {
    if (check == Check::Crc) {
        return stream_.crcHolds(s, n);
    }
    // An 8-bit sum holds by chance once in 256: a remote frame must name an area too, and be as
    // long as its header says.
    const std::uint8_t* b = stream_.bytes().data() + s;
    return stream_.sumHolds(s, n) && plcsim::remoteLength(b) == n;
}

FrameRecovery::Outcome FrameRecovery::requestAt(std::size_t s, bool quiet,
                                                plcsim::Length* found) const {
    const std::uint8_t* b = stream_.bytes().data() + s;
    const std::size_t bound = reach(s, quiet);
    for (const plcsim::Length& length : plcsim::requestLengths(b, times_.size() - s)) {
        if (remoteOnly_ && length.local) {
            continue;
        }
        const Outcome outcome = judge(s, length.n, length.local ? Check::Crc : Check::Sum, bound);
        if (outcome != Outcome::Fails) {
            if (found != nullptr) {
                *found = length;
            }
            return outcome;
        }
    }
    return Outcome::Fails;
}

FrameRecovery::Outcome FrameRecovery::damagedReply(std::size_t s, const Expected& expected,
                                                   std::size_t bound, bool quiet) const {
    const std::size_t end = s + expected.length;
    if (!expected.dueNext || end > bound) {
        return Outcome::Fails;
    }
    if (end == bound) {
        return Outcome::Holds;  // a gap follows, or the end of a quiet line's bytes
    }
    if (end >= times_.size()) {
        return Outcome::Pending;
    }
    // Bytes follow at once: they must start the next exchange.
    if (hears_ == Hears::Replies) {
        const std::size_t next = expectationIndex(s) + 1;
        if (next < expected_.size() && expected_[next].since <= times_[end]) {
            return Outcome::Holds;
        }
        return requestsKnownUntil_ >= times_[end] ? Outcome::Fails : Outcome::Pending;
    }
    return requestAt(end, quiet, nullptr);
}

bool FrameRecovery::gapBefore(std::size_t position) const {
    return std::binary_search(gaps_.begin(), gaps_.end(), position);
}

void FrameRecovery::erase(std::size_t count) {
    stream_.erase(count);
    times_.erase(times_.begin(), times_.begin() + static_cast<std::ptrdiff_t>(count));
    const auto kept = std::upper_bound(gaps_.begin(), gaps_.end(), count);
    gaps_.erase(gaps_.begin(), kept);
    for (std::size_t& gap : gaps_) {
        gap -= count;
    }
}

}  // namespace linetap
