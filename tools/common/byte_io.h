// Reading and writing bytes on a non-blocking descriptor (serial line, pseudo-terminal or TCP
// socket), with the waiting done by poll().
#ifndef KORVAN_TOOLS_BYTE_IO_H
#define KORVAN_TOOLS_BYTE_IO_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace tools {

using Bytes = std::vector<std::uint8_t>;

// The other end went away (TCP closed, device gone).
class LinkClosed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Appends up to `limit` waiting bytes to `out` with one read; returns how many (0: none was
// waiting). Throws LinkClosed on end of file or a read error.
std::size_t readOnce(int fd, Bytes& out, std::size_t limit);
// Appends what is waiting to `out`, at most `limit` bytes, so that a peer that never pauses
// cannot keep the caller reading; returns the number of bytes read. Throws LinkClosed on end of
// file or a read error before any byte.
std::size_t readAvailable(int fd, Bytes& out, std::size_t limit);
// Writes everything, waiting for room as needed. Throws LinkClosed.
void writeAll(int fd, const std::uint8_t* data, std::size_t length);
// Reads until `length` bytes are in or `timeoutMs` has passed; `got` holds what came, at most
// `length` bytes. Bytes that came with the reply but beyond `length` cannot belong to it: they
// go to `beyond`, and the result is true. Both keep their storage. A signal ends the wait early.
bool readFor(int fd, std::size_t length, int timeoutMs, Bytes& got, Bytes& beyond);

}  // namespace tools

#endif
