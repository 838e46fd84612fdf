// The floor: a master without protocol logic. It writes a fixed request and reads back as many
// bytes as a reply has, on a pseudo-terminal's device opened as the reference host opens it
// (see master_loop.h for the command line). Sizes are those of a 2-word read: a 10-byte request
// and a 9-byte reply.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "master_loop.h"
#include "serial_line.h"

namespace {

constexpr unsigned char kRequest[10] = {0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02, 0x7F, 0xDB};
constexpr int kReplyLength = 9;
constexpr int kTimeoutMs = 1000;

bool exchange(int fd) {
    if (write(fd, kRequest, sizeof kRequest) != static_cast<ssize_t>(sizeof kRequest)) {
        return false;
    }
    unsigned char reply[kReplyLength];
    int got = 0;
    while (got < kReplyLength) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, kTimeoutMs) <= 0) {
            return false;
        }
        const ssize_t n = read(fd, reply + got, static_cast<size_t>(kReplyLength - got));
        if (n > 0) {
            got += static_cast<int>(n);
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const wire::MasterRun run = wire::parseMasterRun(argc, argv);
        const tools::UniqueFd fd = tools::openSerialDevice(run.device, tools::LineSettings());
        return wire::timeExchanges(run, [&] { return exchange(fd.get()); });
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 2;
    }
}
