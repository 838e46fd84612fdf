// The tap's receivers: one that hears both directions of the line, or two, one per direction,
// and what they hear put back into the order it came on the line.
#ifndef KORVAN_TOOLS_RECEIVERS_H
#define KORVAN_TOOLS_RECEIVERS_H

#include <vector>

#include "frame_recovery.h"

namespace linetap {

class Receivers {
public:
    // With `apart`, receiver 0 hears the requests and receiver 1 the replies.
    Receivers(bool apart, bool remoteOnly, Clock::duration gap);

    void feed(std::size_t receiver, const std::uint8_t* data, std::size_t length,
              Clock::time_point at);
    // The frames that can be told by `now`, in the order they ended, each only once no
    // receiver can still tell one that ended earlier.
    std::vector<Frame> take(Clock::time_point now);
    // The end of the input: every frame left.
    std::vector<Frame> finish();
    // When take() tells more without new bytes (Clock::time_point::max() when it would not).
    Clock::time_point nextDecision() const;

private:
    // Keeps what a receiver told; a request heard apart goes to the replies' receiver too.
    void hold(std::vector<Frame> frames);
    std::vector<Frame> release(Clock::time_point upTo);

    std::vector<FrameRecovery> receivers_;
    std::vector<Frame> held_;
};

}  // namespace linetap

#endif
