#include "wire_format.h"

namespace plcsim {

std::uint16_t crc16(const std::uint8_t* data, std::size_t length) {
    return crc16Continue(kCrcInit, data, length);
}

std::uint16_t crc16Continue(std::uint16_t crc, const std::uint8_t* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) {
            crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001)
                            : static_cast<std::uint16_t>(crc >> 1);
        }
    }
    return crc;
}

bool crcHolds(const Bytes& b, std::size_t n) {
    if (n < kLocalReadLength || n > b.size()) {
        return false;
    }
    const std::uint16_t c = crc16(b.data(), n - kCrcLength);
    return b[n - 2] == (c & 0xFF) && b[n - 1] == (c >> 8);
}

bool sumHolds(const Bytes& b, std::size_t n) {
    if (n < kRemoteMinLength || n > b.size()) {
        return false;
    }
    unsigned sum = 0;
    for (std::size_t i = 0; i + 1 < n; ++i) {
        sum += b[i];
    }
    return b[0] == (n & 0xFF) && (sum & 0xFF) == b[n - 1];
}

Family familyOf(const Bytes& frame) {
    if (crcHolds(frame, frame.size()) && frame[1] >= kFnReadBits && frame[1] <= kFnWriteWords) {
        return Family::Local;
    }
    return sumHolds(frame, frame.size()) ? Family::Remote : Family::Neither;
}

}  // namespace plcsim
