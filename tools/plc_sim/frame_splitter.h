// Finds request frames in the byte stream of a serial line or a TCP connection.
//
// A frame says how long it is: a local read is 10 bytes, a local write 11 bytes plus its
// payload length byte (byte 8), a remote frame carries its length in byte 0. Both length bytes
// keep only 8 bits, so a long frame may be 256, 512, ... bytes longer than it says. Of the
// lengths the first bytes allow, the shortest whose check value (CRC or sum) holds is taken.
// While a longer one could still arrive, the splitter waits; once the line has been quiet for
// the inter-frame gap, bytes that start no frame are dropped one at a time until one does.
#ifndef KORVAN_TOOLS_FRAME_SPLITTER_H
#define KORVAN_TOOLS_FRAME_SPLITTER_H

#include <cstddef>
#include <vector>

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

    bool pending() const { return !buffer_.empty(); }
    // Bytes dropped because no frame could start with them.
    std::size_t discarded() const { return discarded_; }

private:
    std::vector<Piece> extract(bool lineQuiet);

    Bytes buffer_;
    std::size_t discarded_ = 0;
};

}  // namespace plcsim

#endif
