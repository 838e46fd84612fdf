#include "frame_splitter.h"

namespace plcsim {

std::vector<Piece> FrameSplitter::feed(const std::uint8_t* data, std::size_t length) {
    stream_.append(data, length);
    return extract(false);
}

std::vector<Piece> FrameSplitter::flush() {
    // On a quiet line nothing is waited for: every byte ends in a frame or is dropped.
    return extract(true);
}

std::vector<Piece> FrameSplitter::extract(bool lineQuiet) {
    std::vector<Piece> pieces;
    const Bytes& buffer = stream_.bytes();
    while (start_ < buffer.size()) {
        const std::size_t available = buffer.size() - start_;
        bool waiting = false;
        std::size_t found = 0;
        for (const Length& length : requestLengths(&buffer[start_], available)) {
            if (length.n == 0 || length.n > available) {
                waiting = !lineQuiet;
                break;
            }
            if (length.n > checked_ && (length.local ? stream_.crcHolds(start_, length.n)
                                                     : stream_.sumHolds(start_, length.n))) {
                found = length.n;
                break;
            }
        }
        if (found != 0) {
            const auto from = buffer.begin() + static_cast<std::ptrdiff_t>(start_);
            pieces.push_back({Bytes(from, from + static_cast<std::ptrdiff_t>(found)), true});
            start_ += found;
            checked_ = 0;
        } else if (waiting) {
            // What is here is no frame; only a longer one can still come.
            checked_ = available;
            break;
        } else {
            if (pieces.empty() || pieces.back().frame) {
                pieces.push_back({{}, false});
            }
            pieces.back().bytes.push_back(buffer[start_]);
            ++start_;
            ++discarded_;
            checked_ = 0;
        }
    }
    stream_.erase(start_);
    start_ = 0;
    return pieces;
}

}  // namespace plcsim
