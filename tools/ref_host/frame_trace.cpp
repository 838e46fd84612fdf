#include "frame_trace.h"

#include <cstdio>

#include "hex_text.h"
#include "korvan_qa_qb_series_port.h"

namespace refhost {

namespace {

constexpr std::size_t kLocalHeader = 8;    // station .. count
constexpr std::size_t kRemoteHeader = 21;  // length .. extra
constexpr std::size_t kReplyHeader = 3;    // station, function, byte count
constexpr std::size_t kCrcLength = 2;
constexpr std::uint8_t kFnReadBits = 0x1E;
constexpr std::uint8_t kFnWriteBits = 0x1F;
constexpr std::uint8_t kFnReadWords = 0x20;
constexpr std::uint8_t kFnWriteWords = 0x21;

std::uint32_t bigEndian(const std::uint8_t* at, int width) {
    std::uint32_t v = 0;
    for (int i = 0; i < width; ++i) {
        v = v << 8 | at[i];
    }
    return v;
}

const char* localFunction(std::uint8_t code) {
    switch (code) {
        case kFnReadBits:
            return "read bits";
        case kFnWriteBits:
            return "write bits";
        case kFnReadWords:
            return "read words";
        case kFnWriteWords:
            return "write words";
        default:
            return "unknown function";
    }
}

std::string format(const char* pattern, unsigned a, unsigned b, unsigned c, unsigned d) {
    char text[128];
    std::snprintf(text, sizeof text, pattern, a, b, c, d);
    return text;
}

// Result code ranges: base + owner + 1 for owners 0..11.
// What an abandoned exchange's code says of its last failed reply, by the code's base.
const char* abandonedBecause(int base) {
    switch (base) {
        case korvan::kFailLocalInvalid:
            return "abandoned: the reply failed its station or CRC check";
        case korvan::kFailLocalSilent:
            return "abandoned: nothing received";
        case korvan::kFailLocalLength:
            return "abandoned: the reply had the wrong length";
        case korvan::kFailRemoteInvalid:
            return "abandoned (remote): the reply failed its station or CRC check";
        case korvan::kFailRemoteSilent:
            return "abandoned (remote): nothing received";
        case korvan::kFailRemoteLength:
            return "abandoned (remote): the reply had the wrong length";
        default:
            return "unknown verdict";
    }
}

}  // namespace

std::string describeRequest(const std::uint8_t* f, std::size_t length, bool remote) {
    if (remote) {
        if (length <= kRemoteHeader) {
            return "short remote frame";
        }
        return std::string(f[2] != 0 ? "remote write" : "remote read") +
               format(", station %u, area %u, address %u, count %u", f[4], bigEndian(f + 5, 2),
                      bigEndian(f + 7, 4), bigEndian(f + 11, 2));
    }
    if (length < kLocalHeader) {
        return "short frame";
    }
    return std::string(localFunction(f[1])) +
           format(", station %u, area 0x%02X, address %u, count %u", f[0], f[2],
                  bigEndian(f + 3, 3), bigEndian(f + 6, 2));
}

std::string describeReply(const std::uint8_t* r, std::size_t length) {
    if (length < kReplyHeader + kCrcLength) {
        return "too short to decode";
    }
    if (r[1] == kFnWriteBits || r[1] == kFnWriteWords) {
        return format("station %u, function 0x%02X: write acknowledged", r[0], r[1], 0, 0);
    }
    std::string text = format("station %u, function 0x%02X, byte count %u", r[0], r[1], r[2], 0);
    const std::size_t data = length - kReplyHeader - kCrcLength;
    if (data > 0) {
        text += ", data " + tools::hexBytes(r + kReplyHeader, data);
    }
    return text;
}

std::string describeResult(int code) {
    switch (code) {
        case korvan::kResultGood:
            return "good reply";
        case korvan::kResultRemoteGood:
            return "good reply (remote)";
        case korvan::kResultRetry:
            return "bad reply, will be retried";
        default:
            return abandonedBecause(korvan::failureBase(code));
    }
}

}  // namespace refhost
