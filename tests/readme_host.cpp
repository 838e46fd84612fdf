// The README's minimal host, cut out of README.md, built as a panel's SDK builds a host (C++98
// against Qt 4, C++11 against Qt 5, warnings as errors), linked to the driver and run against
// the PLC simulator on a pseudo-terminal. The simulator's words all hold 41 at the start: the host
// reads 41, writes 42 back, and reads 42 again from the PLC.
//   korvan_readme_host DEVICE
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "readme_example.inc"

namespace {

// Long enough for a program under an emulator; a missing reply only costs this once.
const int kReplyTimeoutMs = 2000;

// A serial device, raw: the simulator's pseudo-terminal here.
class SerialLine : public Line {
public:
    explicit SerialLine(const char* path) : fd_(open(path, O_RDWR | O_NOCTTY)) {
        termios settings;
        if (fd_ >= 0 && tcgetattr(fd_, &settings) == 0) {
            cfmakeraw(&settings);
            tcsetattr(fd_, TCSANOW, &settings);
        }
    }
    ~SerialLine() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    bool isOpen() const { return fd_ >= 0; }
    void send(const QByteArray& bytes) {
        for (int sent = 0; sent < bytes.size();) {
            const ssize_t n = write(fd_, bytes.constData() + sent, bytes.size() - sent);
            if (n <= 0) {
                return;
            }
            sent += static_cast<int>(n);
        }
    }
    QByteArray receive(int length) {
        QByteArray reply;
        char buffer[256];
        pollfd ready = {fd_, POLLIN, 0};
        while (reply.size() < length && poll(&ready, 1, kReplyTimeoutMs) > 0) {
            const ssize_t n = read(fd_, buffer, sizeof buffer);
            if (n <= 0) {
                break;
            }
            reply.append(buffer, static_cast<int>(n));
        }
        return reply.left(length);
    }

private:
    int fd_;
};

bool expect(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "readme host: %s\n", what);
    }
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: korvan_readme_host DEVICE\n");
        return 2;
    }
    SerialLine line(argv[1]);
    if (!expect(line.isOpen(), "cannot open the device")) {
        return 1;
    }
    startDriver();
    bool ok = expect(pollOnce(line), "nothing to send after planning a read");
    ok = expect(lastResult == korvan::kResultGood, "the cyclic read failed") && ok;
    ok = expect(showAndBump() == 41, "the first read did not give 41") && ok;
    // The write goes first, then cyclic reads.
    for (int i = 0; i < 3; ++i) {
        pollOnce(line);
    }
    ok = expect(writesDone == 1, "the write was not reported done") && ok;
    ok = expect(showAndBump() == 42, "the PLC did not keep the 42 written") && ok;
    std::puts(ok ? "readme host: read 41, wrote 42, read 42 back" : "readme host: failed");
    return ok ? 0 : 1;
}
