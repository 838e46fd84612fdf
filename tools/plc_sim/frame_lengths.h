// What the first bytes of a request tell of its length, and the check values of any stretch of a
// byte stream in constant time: the rules by which the simulator and the line tap find requests.
//
// A local read is 10 bytes, a local write 11 bytes plus its payload length byte (byte 8), a
// remote frame carries its length in byte 0. Both length bytes keep only 8 bits, so a long frame
// may be 256, 512, ... bytes longer than it says.
#ifndef KORVAN_TOOLS_FRAME_LENGTHS_H
#define KORVAN_TOOLS_FRAME_LENGTHS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "wire_format.h"

namespace plcsim {

// A local write with the largest payload the driver sends, 2037 bytes.
constexpr std::size_t kLongestFrame = 2048;
// A length byte's 8 bits stand for any length this much apart.
constexpr std::size_t kLengthWrap = 256;

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
    void addWrapped(std::size_t stated, bool local);
    void merge(const Lengths& a, const Lengths& b);
    const Length* begin() const { return at_; }
    const Length* end() const { return at_ + count_; }

private:
    Length at_[2 * (kLongestFrame / kLengthWrap) + 1];  // 8 of each family at most
    std::size_t count_ = 0;
};

// Lengths a request starting with the `available` bytes `b` may have, shortest first.
Lengths requestLengths(const std::uint8_t* b, std::size_t available);

// The length a remote frame's header (its first kRemoteHeader bytes) gives it, whatever its
// length byte says: a read is the header and the sum alone, a write carries its count of units,
// words in two bytes, bits packed eight to a byte, a bit of a word in a byte. 0 when it names
// no area.
std::size_t remoteLength(const std::uint8_t* header);

// A byte stream with, for each position, the low byte of the sum and the CRC register of every
// byte before it since the stream began: the check values of any stretch follow from those at
// its two ends.
class StreamChecks {
public:
    void append(const std::uint8_t* data, std::size_t length);
    // Forgets the first `count` bytes; positions count from the first byte kept.
    void erase(std::size_t count);

    const Bytes& bytes() const { return bytes_; }
    std::size_t size() const { return bytes_.size(); }
    // The `n` bytes from `start` end in their CRC (low byte first), or in their sum.
    bool crcHolds(std::size_t start, std::size_t n) const;
    bool sumHolds(std::size_t start, std::size_t n) const;

private:
    Bytes bytes_;
    std::vector<std::uint8_t> sums_{0};
    std::vector<std::uint16_t> crcs_{kCrcInit};
};

}  // namespace plcsim

#endif
