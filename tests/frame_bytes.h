// Frames of the wire format as the tests write them: bytes from hexadecimal text, and local and
// remote requests built field by field, their check values computed by the PLC model's own code.
#ifndef KORVAN_TESTS_FRAME_BYTES_H
#define KORVAN_TESTS_FRAME_BYTES_H

#include <cctype>
#include <numeric>
#include <string>

#include "hex_text.h"
#include "wire_format.h"

namespace testframes {

using plcsim::Bytes;
using Byte = std::uint8_t;
using Words = std::vector<std::uint16_t>;

constexpr Byte kArea14Code = 0x80;

// Pairs of hexadecimal digits, whatever stands between them.
inline Bytes bytesOf(const std::string& hex) {
    std::string digits;
    for (const char c : hex) {
        if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
            digits += c;
        }
    }
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<Byte>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// "01 20 80 ...", as frames are written down.
inline std::string hexOf(const Bytes& bytes) {
    return tools::hexBytes(bytes.data(), bytes.size());
}

// The bytes, then their CRC low byte first.
inline Bytes withCrc(Bytes frame) {
    const std::uint16_t crc = plcsim::crc16(frame.data(), frame.size());
    frame.insert(frame.end(), {Byte(crc), Byte(crc >> 8)});
    return frame;
}

// The low `count` bytes of `value`, high byte first.
inline void appendHighFirst(Bytes& frame, std::uint32_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
        frame.push_back(Byte(value >> shift));
    }
}

// A local frame of area 14 (or another area code): a read of words, or a write of words (high
// byte first) behind its payload length byte, which keeps 8 bits.
inline Bytes localFrame(Byte station, std::uint32_t address, std::uint16_t count,
                        const Words& write = {}, Byte code = kArea14Code) {
    Bytes frame{station, write.empty() ? plcsim::kFnReadWords : plcsim::kFnWriteWords, code};
    appendHighFirst(frame, address, 3);
    appendHighFirst(frame, count, 2);
    if (!write.empty()) {
        frame.push_back(Byte(2 * write.size()));
        for (std::uint16_t w : write) {
            appendHighFirst(frame, w, 2);
        }
    }
    return withCrc(frame);
}

// A remote frame of area 14 on port 1: its length (8 bits), owner, direction, port, station,
// area, address, count, mark and extra, a write's words (low byte first), its sum.
inline Bytes remoteFrame(std::uint32_t address, std::uint16_t count, const Words& write = {},
                         Byte station = 1) {
    const Byte isWrite = write.empty() ? 0 : 1;
    Bytes frame{0, isWrite, isWrite, 1, station, 0, 14};
    appendHighFirst(frame, address, 4);
    appendHighFirst(frame, count, 2);
    frame.resize(frame.size() + 8);  // mark and extra
    for (std::uint16_t w : write) {
        frame.insert(frame.end(), {Byte(w), Byte(w >> 8)});
    }
    frame[0] = Byte(frame.size() + 1);
    frame.push_back(Byte(std::accumulate(frame.begin(), frame.end(), 0u)));
    return frame;
}

// `count` words counting up from `first`.
inline Words run(std::uint16_t first, std::size_t count) {
    Words words(count);
    for (std::size_t i = 0; i < count; ++i) {
        words[i] = std::uint16_t(first + i);
    }
    return words;
}

inline Bytes joined(const std::vector<Bytes>& frames) {
    Bytes all;
    for (const Bytes& frame : frames) {
        all.insert(all.end(), frame.begin(), frame.end());
    }
    return all;
}

}  // namespace testframes

#endif
