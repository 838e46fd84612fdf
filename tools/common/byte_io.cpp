#include "byte_io.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

namespace tools {

namespace {

constexpr std::size_t kChunk = 512;

using Clock = std::chrono::steady_clock;

constexpr ssize_t kEndOfFile = -1;

LinkClosed closedByPeer() {
    return LinkClosed("the other end closed the connection");
}

// One read into `into`: the number of bytes, 0 when none is waiting, kEndOfFile at end of file.
// Throws LinkClosed on a read error.
ssize_t readChunk(int fd, std::uint8_t* into, std::size_t limit) {
    const ssize_t n = ::read(fd, into, limit);
    if (n > 0) {
        return n;
    }
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
        return 0;
    }
    if (n == 0) {
        return kEndOfFile;
    }
    throw LinkClosed(std::string("read failed: ") + std::strerror(errno));
}

}  // namespace

std::size_t readOnce(int fd, Bytes& out, std::size_t limit) {
    std::uint8_t chunk[kChunk];
    const ssize_t n = readChunk(fd, chunk, std::min(limit, sizeof chunk));
    if (n == kEndOfFile) {
        throw closedByPeer();
    }
    out.insert(out.end(), chunk, chunk + n);
    return static_cast<std::size_t>(n);
}

std::size_t readAvailable(int fd, Bytes& out, std::size_t limit) {
    std::size_t total = 0;
    std::uint8_t chunk[kChunk];
    while (total < limit) {
        const ssize_t n = readChunk(fd, chunk, std::min(limit - total, sizeof chunk));
        if (n > 0) {
            out.insert(out.end(), chunk, chunk + n);
            total += static_cast<std::size_t>(n);
        } else if (n == 0 || total != 0) {
            return total;
        } else {
            throw closedByPeer();
        }
    }
    return total;
}

void writeAll(int fd, const std::uint8_t* data, std::size_t length) {
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n > 0) {
            data += n;
            length -= static_cast<std::size_t>(n);
        } else if (n < 0 && errno == EAGAIN) {
            pollfd p{fd, POLLOUT, 0};
            poll(&p, 1, -1);
        } else if (n < 0 && errno != EINTR) {
            throw LinkClosed(std::string("write failed: ") + std::strerror(errno));
        }
    }
}

bool readFor(int fd, std::size_t length, int timeoutMs, Bytes& got, Bytes& beyond) {
    got.clear();
    beyond.clear();
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // The first wait is the whole timeout; the clock is read again only for a reply that comes
    // in pieces.
    long leftMs = timeoutMs;
    while (got.size() < length && leftMs > 0) {
        pollfd p{fd, POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(leftMs));
        if (ready < 0 && errno == EINTR) {
            break;
        }
        if (ready > 0) {
            // Whatever is waiting, up to a chunk: what came beyond the reply is seen without a
            // system call of its own.
            readOnce(fd, got, std::max(length - got.size(), kChunk));
        }
        if (got.size() < length) {
            leftMs = static_cast<long>(
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())
                    .count());
        }
    }
    if (got.size() > length) {
        beyond.assign(got.begin() + static_cast<std::ptrdiff_t>(length), got.end());
        got.resize(length);
        return true;
    }
    return false;
}

}  // namespace tools
