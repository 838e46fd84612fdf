#include "frame_lengths.h"

#include <algorithm>

#include "plc_model.h"

namespace plcsim {

namespace {

constexpr std::size_t kLocalWriteOverhead = kLocalWriteHeader + kCrcLength;
constexpr std::size_t kPayloadLengthAt = kLocalWriteHeader - 1;
constexpr std::size_t kBitsPerByte = 8;
constexpr std::size_t kBytesPerWord = 2;
constexpr int kNibbles = 4;  // of a CRC-16 register
constexpr int kNibbleBits = 4;
constexpr int kNibbleValues = 1 << kNibbleBits;

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

void Lengths::addWrapped(std::size_t stated, bool local) {
    for (std::size_t n = stated; n <= kLongestFrame; n += kLengthWrap) {
        add(n, local);
    }
}

void Lengths::merge(const Lengths& a, const Lengths& b) {
    count_ =
        static_cast<std::size_t>(std::merge(a.begin(), a.end(), b.begin(), b.end(), at_) - at_);
}

Lengths requestLengths(const std::uint8_t* b, std::size_t available) {
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

std::size_t remoteLength(const std::uint8_t* header) {
    const int area = header[kRemoteAreaAt] << 8 | header[kRemoteAreaAt + 1];
    if (!PlcModel::knowsAreaIndex(area)) {
        return 0;
    }
    if (header[kRemoteDirectionAt] == 0) {
        return kRemoteMinLength;
    }
    const std::size_t count = header[kRemoteCountAt] << 8 | header[kRemoteCountAt + 1];
    const int code = PlcModel::areaCodeOfIndex(area);
    std::size_t payload = count;  // a bit of a word, which has no code of its own
    if (code >= 0) {
        payload = PlcModel::isBitAreaCode(code) ? (count + kBitsPerByte - 1) / kBitsPerByte
                                                : kBytesPerWord * count;
    }
    return kRemoteMinLength + payload;
}

void StreamChecks::append(const std::uint8_t* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        bytes_.push_back(data[i]);
        sums_.push_back(static_cast<std::uint8_t>(sums_.back() + data[i]));
        crcs_.push_back(crc16Continue(crcs_.back(), data + i, 1));
    }
}

void StreamChecks::erase(std::size_t count) {
    // The running values keep their meaning without the bytes before them.
    const auto n = static_cast<std::ptrdiff_t>(count);
    bytes_.erase(bytes_.begin(), bytes_.begin() + n);
    sums_.erase(sums_.begin(), sums_.begin() + n);
    crcs_.erase(crcs_.begin(), crcs_.begin() + n);
}

// By the CRC's linearity, the register after the stretch from the usual start is the register
// at the stretch's end, plus (exclusive or) the difference between the register at its start and
// the usual start, pushed through as many zero bytes as the stretch has.
bool StreamChecks::crcHolds(std::size_t start, std::size_t n) const {
    if (n <= kCrcLength || n > kLongestFrame + kCrcLength) {
        return false;
    }
    const std::size_t end = start + n - kCrcLength;
    const auto crc = static_cast<std::uint16_t>(
        crcs_[end] ^
        throughZeros(static_cast<std::uint16_t>(crcs_[start] ^ kCrcInit), n - kCrcLength));
    return bytes_[end] == (crc & 0xFF) && bytes_[end + 1] == (crc >> 8);
}

bool StreamChecks::sumHolds(std::size_t start, std::size_t n) const {
    if (n == 0) {
        return false;
    }
    const std::size_t last = start + n - 1;
    return static_cast<std::uint8_t>(sums_[last] - sums_[start]) == bytes_[last];
}

}  // namespace plcsim
