#include "line.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

// The PLC's line settings; a panel takes them from its project. A pseudo-terminal ignores them.
const speed_t kBaudRate = B9600;

bool setNonBlocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace

int openSerial(const char* path) {
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios settings;
    if (fd < 0 || tcgetattr(fd, &settings) != 0) {
        std::fprintf(stderr, "korvan_panel_host: cannot open %s as a serial line: %s\n", path,
                     strerror(errno));
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    // Raw bytes, 8 data bits, no parity, 1 stop bit; a read returns what has come.
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~(PARENB | CSTOPB);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    cfsetispeed(&settings, kBaudRate);
    cfsetospeed(&settings, kBaudRate);
    tcsetattr(fd, TCSANOW, &settings);
    tcflush(fd, TCIOFLUSH);
    return fd;
}

int startTcpConnection(const char* hostAndPort) {
    const std::string text(hostAndPort);
    const std::string::size_type colon = text.rfind(':');
    if (colon == std::string::npos) {
        std::fprintf(stderr, "korvan_panel_host: --tcp takes HOST:PORT, not '%s'\n", hostAndPort);
        return -1;
    }
    const std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    // Resolved once, before the event loop runs: a name lookup may wait, the loop must not.
    addrinfo* found = 0;
    const int lookup = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (lookup != 0) {
        std::fprintf(stderr, "korvan_panel_host: cannot resolve %s: %s\n", hostAndPort,
                     gai_strerror(lookup));
        return -1;
    }
    int fd = socket(found->ai_family, found->ai_socktype, found->ai_protocol);
    if (fd < 0 || !setNonBlocking(fd) ||
        (connect(fd, found->ai_addr, found->ai_addrlen) != 0 && errno != EINPROGRESS)) {
        std::fprintf(stderr, "korvan_panel_host: cannot connect to %s: %s\n", hostAndPort,
                     strerror(errno));
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }
    freeaddrinfo(found);
    return fd;
}

int connectionError(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        return errno;
    }
    return error;
}

bool readWaiting(int fd, QByteArray& bytes) {
    char buffer[256];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n > 0) {
            bytes.append(buffer, static_cast<int>(n));
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            // Nothing more now, or 0: the other end closed (a pseudo-terminal's gives EIO).
            return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
    }
}

bool sendAll(int fd, const QByteArray& bytes) {
    int sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = write(fd, bytes.constData() + sent, bytes.size() - sent);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        sent += static_cast<int>(n);
    }
    return true;
}
