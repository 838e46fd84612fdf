// Arbitrary bytes on a tapped line, in arbitrary pieces at arbitrary times, to one receiver or one
// per direction: the frame recovery never asks to be woken in the past (it would spin), and one
// receiver tells every byte heard exactly once, in order, in a frame or as dropped bytes.
// The input: a byte of settings (bit 0: two receivers, bit 1: remote requests only), then pieces
// of a byte of timing (bit 7: the receiver; the rest: milliseconds since the last piece), a byte
// of length, and the bytes heard.
#include <cstdlib>

#include "receivers.h"

constexpr auto kGap = std::chrono::milliseconds(20);  // the silence that ends a frame

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool apart = (data[0] & 1) != 0;
    linetap::Receivers receivers(apart, (data[0] & 2) != 0, kGap);
    linetap::Clock::time_point now{};
    linetap::Bytes heard, told;
    const auto tell = [&](const std::vector<linetap::Frame>& frames) {
        for (const linetap::Frame& frame : frames) {
            told.insert(told.end(), frame.bytes.begin(), frame.bytes.end());
        }
    };
    const std::uint8_t* const end = data + size;
    for (const std::uint8_t* at = data + 1; end - at >= 2;) {
        now += std::chrono::milliseconds(at[0] & 0x7F);
        const std::size_t length = std::min<std::size_t>(at[1], end - at - 2);
        receivers.feed(apart ? at[0] >> 7 : 0, at + 2, length, now);
        heard.insert(heard.end(), at + 2, at + 2 + length);
        at += 2 + length;
        tell(receivers.take(now));
        if (receivers.nextDecision() <= now) {
            std::abort();
        }
    }
    tell(receivers.finish());
    if (!apart && told != heard) {
        std::abort();
    }
    return 0;
}
