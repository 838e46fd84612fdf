// Finds the frames of both directions in the bytes one receiver of the line delivers: a receiver
// on a two-wire bus hears requests and replies, one on a wire of a tap cable hears one direction.
//
// What the protocol tells is used first. A request says how long it is (frame_lengths.h), and a
// remote one's header must tell the same length, as it names one of the family's areas and a
// count of units; a reply is as long as the request it answers asks for, or shorter when its own
// byte count says so. A frame is taken when its check value holds: the CRC of local frames and
// replies, the sum of remote requests. While a request waits for its reply, the next frame is
// that reply if it can be: its length is tried first. Of the request lengths the first bytes
// allow, the shortest that holds is taken.
//
// The quiet time between characters (the gap) decides where the bytes leave a choice. A frame's
// characters come back to back, so no frame spans a gap, and once the line has been quiet for
// the gap nothing longer is waited for. The bytes of a reply that fail its check are still its
// reply, damaged, when they are the first heard after the request, came back to back and are
// followed by a gap or by the next exchange (a request that holds, or on a reply wire, bytes
// after a later request). Any other byte that starts no frame is dropped, one at a time, until a
// frame starts again.
//
// A receiver of replies alone learns of the requests from the other receiver, and tells its
// bytes only once every request before them is known.
#ifndef KORVAN_TOOLS_FRAME_RECOVERY_H
#define KORVAN_TOOLS_FRAME_RECOVERY_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "frame_lengths.h"
#include "line_capture.h"

namespace linetap {

using Clock = std::chrono::steady_clock;
using plcsim::Bytes;

// What one receiver hears.
enum class Hears { Both, Requests, Replies };

enum class FrameKind { Request, Reply, Dropped };

// A frame, or a run of bytes that started none.
struct Frame {
    FrameKind kind = FrameKind::Dropped;
    tools::FrameFamily family = tools::FrameFamily::Unknown;  // a request's; unknown otherwise
    Bytes bytes;
    bool good = true;      // its check value holds: false for a damaged reply
    Clock::time_point at;  // when its last byte arrived
};

// The length of the reply `request` asks for; 0 for none (station 0's requests, which every
// station carries out and none answers, and reads longer than any frame).
std::size_t replyLength(const Frame& request);
// The station a request is for.
int stationOf(const Frame& request);

class FrameRecovery {
public:
    FrameRecovery(Hears hears, bool remoteOnly, Clock::duration gap);

    // Bytes that arrived at `at`, which never goes back.
    void feed(const std::uint8_t* data, std::size_t length, Clock::time_point at);
    // The frames and dropped runs that can be told by `now`, in the order their bytes came.
    std::vector<Frame> take(Clock::time_point now);
    // The end of the input: everything left is told.
    std::vector<Frame> finish();
    // A request the other receiver heard, whose reply comes to this one.
    void expect(const Frame& request);
    // Every request that ended before `at` has been given to expect().
    void requestsKnownUntil(Clock::time_point at) { requestsKnownUntil_ = at; }

    // When the first byte not yet told arrived (Clock::time_point::max() when there is none):
    // every frame still to come ends later.
    Clock::time_point undecidedSince() const;
    // When take() tells more without new bytes (max() when it would not).
    Clock::time_point nextDecision() const;

private:
    enum class Outcome { Holds, Fails, Pending };
    enum class Check { Crc, Sum };
    struct Expected {
        std::size_t length;  // 0: no reply
        bool read;           // its reply states a byte count
        Clock::time_point since;
        bool dueNext = true;  // no byte was dropped since the request: its reply starts next
    };
    struct Decision {
        enum { Take, Drop, Wait } what;
        FrameKind kind;
        std::size_t length;
        bool good;
        tools::FrameFamily family;
    };

    std::vector<Frame> decideAll(bool quiet);
    Decision decide(std::size_t s, bool quiet) const;
    // The expectation the bytes at `s` answer: the last request that came before them, or the
    // oldest one; null when none waits for a reply.
    const Expected* expectationAt(std::size_t s) const;
    std::size_t expectationIndex(std::size_t s) const;
    // Where a frame starting at `s` must end by: the next gap, the end of the bytes of a quiet
    // line, or nowhere yet (the largest size_t).
    std::size_t reach(std::size_t s, bool quiet) const;
    Outcome judge(std::size_t s, std::size_t n, Check check, std::size_t reach) const;
    // The first request length at `s` that holds or is still pending, if any.
    Outcome requestAt(std::size_t s, bool quiet, plcsim::Length* found) const;
    // The `length` bytes at `s` are a damaged reply.
    Outcome damagedReply(std::size_t s, const Expected& expected, std::size_t reach,
                         bool quiet) const;
    bool holds(std::size_t s, std::size_t n, Check check) const;
    bool gapBefore(std::size_t position) const;
    // Forgets the first `count` bytes, which are told.
    void erase(std::size_t count);

    Hears hears_;
    bool remoteOnly_;
    Clock::duration gap_;
    plcsim::StreamChecks stream_;           // the bytes not yet told
    std::vector<Clock::time_point> times_;  // when each of them arrived
    std::vector<std::size_t> gaps_;         // positions with a gap before them, ascending
    Clock::time_point lastByte_;
    std::deque<Expected> expected_;  // requests waiting for their reply, oldest first
    Clock::time_point requestsKnownUntil_ = Clock::time_point::max();
    bool waitsForRequests_ = false;  // what is left waits for the other receiver alone
};

}  // namespace linetap

#endif
