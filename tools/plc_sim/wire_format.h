// The PLC family's frames as the PLC's side sees them: function codes, lengths, check values.
#ifndef KORVAN_TOOLS_WIRE_FORMAT_H
#define KORVAN_TOOLS_WIRE_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plcsim {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kFnReadBits = 0x1E;
constexpr std::uint8_t kFnWriteBits = 0x1F;
constexpr std::uint8_t kFnReadWords = 0x20;
constexpr std::uint8_t kFnWriteWords = 0x21;

constexpr std::size_t kLocalReadLength = 10;
constexpr std::size_t kLocalWriteHeader = 9;  // station .. payload length byte
constexpr std::size_t kCrcLength = 2;
constexpr std::size_t kRemoteHeader = 21;  // length byte .. extra
constexpr std::size_t kRemoteMinLength = kRemoteHeader + 1;
// Where the fields are that say what a request is and how long its reply.
constexpr std::size_t kLocalStationAt = 0;
constexpr std::size_t kLocalFunctionAt = 1;
constexpr std::size_t kLocalCountAt = 6;
constexpr std::size_t kRemoteDirectionAt = 2;  // 0: a read
constexpr std::size_t kRemoteStationAt = 4;
constexpr std::size_t kRemoteAreaAt = 5;
constexpr std::size_t kRemoteCountAt = 11;

// The most one read asks for: a host of this family reads at most 100 words in one frame, or
// the bits of 100 words. A larger read is not answered; a frame of 10 bytes could otherwise
// ask for a reply of 131 KB.
constexpr std::uint32_t kMostWordsRead = 100;
constexpr std::uint32_t kMostBitsRead = kMostWordsRead * 16;

constexpr std::uint16_t kCrcInit = 0xFFFF;

std::uint16_t crc16(const std::uint8_t* data, std::size_t length);
// The CRC-16 register after `length` more bytes from `crc`. The register's update is linear: the
// register after bytes D from a start A is the register after as many zero bytes from A, plus
// (exclusive or) the register after D from 0.
std::uint16_t crc16Continue(std::uint16_t crc, const std::uint8_t* data, std::size_t length);
// The first n bytes of b are a local frame: at least a read's length, ending in their CRC-16,
// low byte first.
bool crcHolds(const Bytes& b, std::size_t n);
// The first n bytes of b are a remote frame: their length (low 8 bits) first, their additive
// sum last.
bool sumHolds(const Bytes& b, std::size_t n);

enum class Family { Local, Remote, Neither };
// The family of a whole frame: local when its CRC holds and it names a local function, else
// remote when its sum holds.
Family familyOf(const Bytes& frame);

}  // namespace plcsim

#endif
