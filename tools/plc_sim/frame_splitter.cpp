#include "frame_splitter.h"

#include <algorithm>

namespace plcsim {

namespace {

constexpr std::size_t kLocalWriteOverhead = kLocalWriteHeader + kCrcLength;
constexpr std::size_t kPayloadLengthAt = kLocalWriteHeader - 1;
constexpr std::size_t kLengthWrap = 256;
// A local write with the largest payload the driver sends, 2037 bytes.
constexpr std::size_t kLongestFrame = 2048;
constexpr int kNibbles = 4;  // of a CRC-16 register
constexpr int kNibbleBits = 4;
constexpr int kNibbleValues = 1 << kNibbleBits;

// A length the first bytes allow, and whether a frame of that length would be local (ending in
// a CRC) or remote (ending in a sum). 0 stands for "not known yet".
struct Length {
    std::size_t n;
    bool local;

    bool operator<(const Length& other) const { return n < other.n; }
};

// Lengths in ascending order: at most a local read's or a local write's, and a remote frame's.
class Lengths {
public:
    void add(std::size_t n, bool local) { at_[count_++] = {n, local}; }
    // Each length the 8 bits of a length byte can stand for.
    void addWrapped(std::size_t stated, bool local) {
        for (std::size_t n = stated; n <= kLongestFrame; n += kLengthWrap) {
            add(n, local);
        }
    }
    void merge(const Lengths& a, const Lengths& b) {
        count_ = static_cast<std::size_t>(
            std::merge(a.begin(), a.end(), b.begin(), b.end(), begin()) - begin());
    }
    Length* begin() { return at_; }
    Length* end() { return at_ + count_; }
    const Length* begin() const { return at_; }
    const Length* end() const { return at_ + count_; }

private:
    Length at_[2 * (kLongestFrame / kLengthWrap) + 1];  // 8 of each family at most
    std::size_t count_ = 0;
};

// Lengths the first bytes `b` allow, shortest first.
Lengths possibleLengths(const std::uint8_t* b, std::size_t available) {
    Lengths local;
    if (available < 2) {
        local.add(0, false);
        return local;
    }
    const std::uint8_t fn = b[1];
    if (fn == kFnReadBits || fn == kFnReadWords) {
        local.add(kLocalReadLength, true);
    } else if (fn == kFnWriteBits || fn == kFnWriteWords) {
        if (available > kPayloadLengthAt) {
            local.addWrapped(kLocalWriteOverhead + b[kPayloadLengthAt], true);
        } else {
            local.add(0, true);
        }
    }
    Lengths remote;
    remote.addWrapped(b[0] >= kRemoteMinLength ? b[0] : b[0] + kLengthWrap, false);
    Lengths all;
    all.merge(local, remote);
    return all;
}

// The CRC-16 register `crc` pushed through `zeros` zero bytes (up to a longest frame), in
// constant time. The update is linear, so the result is the exclusive or of the images of the
// register's four nibbles, which are tabled for every count of zero bytes.
std::uint16_t throughZeros(std::uint16_t crc, std::size_t zeros) {
    static const std::vector<std::uint16_t> kImages = [] {
        std::vector<std::uint16_t> images((kLongestFrame + 1) * kNibbles * kNibbleValues);
        std::uint16_t bitImages[kNibbles * kNibbleBits];  // of each bit, after n zero bytes
        for (int bit = 0; bit < kNibbles * kNibbleBits; ++bit) {
            bitImages[bit] = static_cast<std::uint16_t>(1u << bit);
        }
        const std::uint8_t zero = 0;
        for (std::size_t n = 0; n <= kLongestFrame; ++n) {
            std::uint16_t* row = images.data() + n * kNibbles * kNibbleValues;
            for (int nibble = 0; nibble < kNibbles; ++nibble) {
                for (int value = 0; value < kNibbleValues; ++value) {
                    for (int bit = 0; bit < kNibbleBits; ++bit) {
                        if ((value >> bit) & 1) {
                            row[nibble * kNibbleValues + value] ^=
                                bitImages[nibble * kNibbleBits + bit];
                        }
                    }
                }
            }
            for (std::uint16_t& image : bitImages) {
                image = crc16Continue(image, &zero, 1);
            }
        }
        return images;
    }();
    const std::uint16_t* row = kImages.data() + zeros * kNibbles * kNibbleValues;
    std::uint16_t out = 0;
    for (int nibble = 0; nibble < kNibbles; ++nibble, row += kNibbleValues) {
        out ^= row[(crc >> (nibble * kNibbleBits)) & (kNibbleValues - 1)];
    }
    return out;
}

}  // namespace

std::vector<Piece> FrameSplitter::feed(const std::uint8_t* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        buffer_.push_back(data[i]);
        sums_.push_back(static_cast<std::uint8_t>(sums_.back() + data[i]));
        crcs_.push_back(crc16Continue(crcs_.back(), data + i, 1));
    }
    return extract(false);
}

std::vector<Piece> FrameSplitter::flush() {
    // On a quiet line nothing is waited for: every byte ends in a frame or is dropped.
    return extract(true);
}

// By the CRC's linearity, the register after the stretch from the usual start is the register
// at the stretch's end, plus (exclusive or) the difference between the register at its start and
// the usual start, pushed through as many zero bytes as the stretch has.
bool FrameSplitter::crcHolds(std::size_t n) const {
    const std::size_t end = start_ + n - kCrcLength;
    const auto crc = static_cast<std::uint16_t>(
        crcs_[end] ^
        throughZeros(static_cast<std::uint16_t>(crcs_[start_] ^ kCrcInit), n - kCrcLength));
    return buffer_[end] == (crc & 0xFF) && buffer_[end + 1] == (crc >> 8);
}

bool FrameSplitter::sumHolds(std::size_t n) const {
    const std::size_t last = start_ + n - 1;
    return static_cast<std::uint8_t>(sums_[last] - sums_[start_]) == buffer_[last];
}

std::vector<Piece> FrameSplitter::extract(bool lineQuiet) {
    std::vector<Piece> pieces;
    while (start_ < buffer_.size()) {
        const std::size_t available = buffer_.size() - start_;
        bool waiting = false;
        std::size_t found = 0;
        for (const Length& length : possibleLengths(&buffer_[start_], available)) {
            if (length.n == 0 || length.n > available) {
                waiting = !lineQuiet;
                break;
            }
            if (length.n > checked_ && (length.local ? crcHolds(length.n) : sumHolds(length.n))) {
                found = length.n;
                break;
            }
        }
        if (found != 0) {
            const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(start_);
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
            pieces.back().bytes.push_back(buffer_[start_]);
            ++start_;
            ++discarded_;
            checked_ = 0;
        }
    }
    // The running values keep their meaning without the bytes before them.
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
    sums_.erase(sums_.begin(), sums_.begin() + static_cast<std::ptrdiff_t>(start_));
    crcs_.erase(crcs_.begin(), crcs_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
    return pieces;
}

}  // namespace plcsim
