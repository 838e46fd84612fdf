// The floor's other end: answers every 10 bytes it receives with the same 9-byte reply of a
// 2-word read, without looking at them, on a new pseudo-terminal (see responder_main.h). Runs
// until killed.
#include <poll.h>
#include <unistd.h>

#include "responder_main.h"

namespace {

constexpr int kRequestLength = 10;
constexpr unsigned char kReply[9] = {0x01, 0x20, 0x04, 0x12, 0x34, 0xAB, 0xCD, 0x07, 0x73};

}  // namespace

int main(int, char** argv) {
    return wire::serveOnPseudoTerminal(argv[0], [](int fd) {
        unsigned char request[kRequestLength];
        int got = 0;
        for (;;) {
            pollfd p{fd, POLLIN, 0};
            poll(&p, 1, -1);
            const ssize_t n = read(fd, request + got, static_cast<size_t>(kRequestLength - got));
            if (n > 0 && (got += static_cast<int>(n)) == kRequestLength) {
                got = 0;
                if (write(fd, kReply, sizeof kReply) != static_cast<ssize_t>(sizeof kReply)) {
                    return;
                }
            }
        }
    });
}
