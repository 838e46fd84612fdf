#include "frame_splitter.h"

#include <algorithm>

namespace plcsim {

namespace {

constexpr std::size_t kLocalWriteOverhead = kLocalWriteHeader + kCrcLength;
constexpr std::size_t kPayloadLengthAt = kLocalWriteHeader - 1;
constexpr std::size_t kLengthWrap = 256;
// A local write with the largest payload the driver sends, 2037 bytes.
constexpr std::size_t kLongestFrame = 2048;

bool frameAt(const Bytes& b, std::size_t n) {
    return crcHolds(b, n) || sumHolds(b, n);
}

// Lengths the buffer's first bytes allow, shortest first; 0 stands for "not known yet".
std::vector<std::size_t> possibleLengths(const Bytes& b) {
    if (b.size() < 2) {
        return {0};
    }
    std::vector<std::size_t> lengths;
    auto addWrapped = [&lengths](std::size_t stated) {
        for (std::size_t n = stated; n <= kLongestFrame; n += kLengthWrap) {
            lengths.push_back(n);
        }
    };
    const std::uint8_t fn = b[1];
    if (fn == kFnReadBits || fn == kFnReadWords) {
        lengths.push_back(kLocalReadLength);
    } else if (fn == kFnWriteBits || fn == kFnWriteWords) {
        if (b.size() > kPayloadLengthAt) {
            addWrapped(kLocalWriteOverhead + b[kPayloadLengthAt]);
        } else {
            lengths.push_back(0);
        }
    }
    addWrapped(b[0] >= kRemoteMinLength ? b[0] : b[0] + kLengthWrap);
    std::sort(lengths.begin(), lengths.end());
    return lengths;
}

}  // namespace

std::vector<Piece> FrameSplitter::feed(const std::uint8_t* data, std::size_t length) {
    buffer_.insert(buffer_.end(), data, data + length);
    return extract(false);
}

std::vector<Piece> FrameSplitter::flush() {
    // On a quiet line nothing is waited for: every byte ends in a frame or is dropped.
    return extract(true);
}

std::vector<Piece> FrameSplitter::extract(bool lineQuiet) {
    std::vector<Piece> pieces;
    while (!buffer_.empty()) {
        bool waiting = false;
        std::size_t found = 0;
        for (std::size_t n : possibleLengths(buffer_)) {
            if (n == 0 || n > buffer_.size()) {
                waiting = !lineQuiet;
            } else if (frameAt(buffer_, n)) {
                found = n;
                break;
            }
        }
        if (found != 0) {
            pieces.push_back({Bytes(buffer_.begin(), buffer_.begin() + found), true});
            buffer_.erase(buffer_.begin(), buffer_.begin() + found);
        } else if (waiting) {
            break;
        } else {
            if (pieces.empty() || pieces.back().frame) {
                pieces.push_back({{}, false});
            }
            pieces.back().bytes.push_back(buffer_.front());
            buffer_.erase(buffer_.begin());
            ++discarded_;
        }
    }
    return pieces;
}

}  // namespace plcsim
