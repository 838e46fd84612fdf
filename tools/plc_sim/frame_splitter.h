// Finds request frames in the byte stream of a serial line or a TCP connection.
//
// A frame says how long it is (frame_lengths.h). Of the lengths the first bytes allow, the
// shortest whose check value holds is taken: the CRC for a local frame's length, the sum for a
// remote one's.
// While a longer one could still arrive, the splitter waits; once the line has been quiet for
// the inter-frame gap, bytes that start no frame are dropped one at a time until one does.
//
// Each length at each start is checked once, in constant time, so that noise costs a few steps
// per byte and a request behind megabytes of it still gets its answer soon.
#ifndef KORVAN_TOOLS_FRAME_SPLITTER_H
#define KORVAN_TOOLS_FRAME_SPLITTER_H

#include <cstddef>
#include <vector>

#include "frame_lengths.h"
#include "plc_model.h"

namespace plcsim {

// A frame, or a run of bytes that started no frame and was dropped.
struct Piece {
    Bytes bytes;
    bool frame = true;

    bool operator==(const Piece& other) const {
        return frame == other.frame && bytes == other.bytes;
    }
};

class FrameSplitter {
public:
    // Appends received bytes; returns the frames now complete and the bytes dropped, in the
    // order they came.
    std::vector<Piece> feed(const std::uint8_t* data, std::size_t length);
    // The line has been quiet for the gap: returns the frames left in the buffer and drops the
    // rest.
    std::vector<Piece> flush();

    bool pending() const { return start_ < stream_.size(); }
    // Bytes dropped because no frame could start with them.
    std::size_t discarded() const { return discarded_; }

private:
    std::vector<Piece> extract(bool lineQuiet);

    StreamChecks stream_;      // the bytes received and not yet taken
    std::size_t start_ = 0;    // where the next frame may start
    std::size_t checked_ = 0;  // lengths from start_ up to this one were found to be no frame
    std::size_t discarded_ = 0;
};

}  // namespace plcsim

#endif
