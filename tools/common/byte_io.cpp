#include "byte_io.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

namespace tools {

namespace {

constexpr std::size_t kChunk = 512;

using Clock = std::chrono::steady_clock;

}  // namespace

std::size_t readAvailable(int fd, Bytes& out) {
    std::size_t total = 0;
    std::uint8_t chunk[kChunk];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            out.insert(out.end(), chunk, chunk + n);
            total += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            return total;
        }
        if (n == 0 && total != 0) {
            return total;
        }
        throw LinkClosed(n == 0 ? std::string("the other end closed the connection")
                                : std::string("read failed: ") + std::strerror(errno));
    }
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

Bytes readFor(int fd, std::size_t length, int timeoutMs) {
    Bytes got;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (got.size() < length) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        pollfd p{fd, POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) {
            break;
        }
        if (ready > 0) {
            Bytes chunk;
            readAvailable(fd, chunk);
            const std::size_t take = std::min(chunk.size(), length - got.size());
            got.insert(got.end(), chunk.begin(), chunk.begin() + take);
        }
    }
    return got;
}

void discardInput(int fd) {
    Bytes ignored;
    readAvailable(fd, ignored);
}

}  // namespace tools
