// Arbitrary bytes on a tapped line, in arbitrary pieces at arbitrary times, heard by one receiver
// or by one per direction: the tap's frame recovery never crashes, never asks to be woken in the
// past (it would spin), and with one receiver tells every byte heard exactly once, in order, as a
// frame or as dropped bytes.
#include <cstdlib>

#include "receivers.h"

namespace {

constexpr auto kGap = std::chrono::milliseconds(20);

// The input: a byte of settings (bit 0: two receivers, bit 1: remote requests only), then pieces
// of a byte of timing (bit 7: the receiver; the rest: milliseconds since the last piece), a byte
// of length, and the bytes heard.
struct Input {
    const std::uint8_t* at;
    const std::uint8_t* end;
    std::size_t left() const { return static_cast<std::size_t>(end - at); }
};

void expect(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Input in{data + 1, data + size};
    const bool apart = (data[0] & 1) != 0;
    linetap::Receivers receivers(apart, (data[0] & 2) != 0, kGap);
    linetap::Clock::time_point now{};
    linetap::Bytes heard, told;
    const auto tell = [&](const std::vector<linetap::Frame>& frames) {
        for (const linetap::Frame& frame : frames) {
            told.insert(told.end(), frame.bytes.begin(), frame.bytes.end());
        }
    };
    while (in.left() >= 2) {
        const std::size_t receiver = apart ? in.at[0] >> 7 : 0;
        now += std::chrono::milliseconds(in.at[0] & 0x7F);
        const std::size_t length = std::min<std::size_t>(in.at[1], in.left() - 2);
        receivers.feed(receiver, in.at + 2, length, now);
        heard.insert(heard.end(), in.at + 2, in.at + 2 + length);
        in.at += 2 + length;
        tell(receivers.take(now));
        expect(receivers.nextDecision() > now);
    }
    tell(receivers.finish());
    expect(apart || told == heard);
    return 0;
}
