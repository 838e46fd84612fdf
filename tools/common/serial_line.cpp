#include "serial_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "command_line.h"

namespace tools {

namespace {

// Device majors of the pseudo-terminals' slave ends.
constexpr unsigned int kFirstPtySlaveMajor = 136;
constexpr unsigned int kLastPtySlaveMajor = 143;

bool isPseudoTerminal(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISCHR(status.st_mode)) {
        return false;
    }
    const unsigned int deviceMajor = major(status.st_rdev);
    return deviceMajor >= kFirstPtySlaveMajor && deviceMajor <= kLastPtySlaveMajor;
}

struct BaudRate {
    int bitsPerSecond;
    speed_t code;
};

constexpr BaudRate kBaudRates[] = {
    {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},     {19200, B19200},
    {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400},
};

constexpr int kStartBits = 1;
constexpr std::int64_t kNanosecondsPerSecond = 1000000000;

std::runtime_error systemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

speed_t baudCode(int baud) {
    for (const BaudRate& rate : kBaudRates) {
        if (rate.bitsPerSecond == baud) {
            return rate.code;
        }
    }
    std::string known;
    for (const BaudRate& rate : kBaudRates) {
        known += (known.empty() ? "" : ", ") + std::to_string(rate.bitsPerSecond);
    }
    throw UsageError("baud rate " + std::to_string(baud) + " is not one of " + known);
}

tcflag_t dataBitsFlag(int bits) {
    switch (bits) {
        case 5:
            return CS5;
        case 6:
            return CS6;
        case 7:
            return CS7;
        default:
            return CS8;
    }
}

}  // namespace

void setBaud(LineSettings& line, const std::string& value) {
    line.baud = static_cast<int>(parseInteger(value, 1, 4000000, "--baud"));
    baudCode(line.baud);
}

void setDataBits(LineSettings& line, const std::string& value) {
    line.dataBits = static_cast<int>(parseInteger(value, 5, 8, "--data-bits"));
}

void setStopBits(LineSettings& line, const std::string& value) {
    line.stopBits = static_cast<int>(parseInteger(value, 1, 2, "--stop-bits"));
}

void setParity(LineSettings& line, const std::string& value) {
    if (value == "none") {
        line.parity = 'N';
    } else if (value == "even") {
        line.parity = 'E';
    } else if (value == "odd") {
        line.parity = 'O';
    } else {
        throw UsageError("--parity must be none, even or odd, not '" + value + "'");
    }
}

std::string describeLine(const LineSettings& line) {
    return std::to_string(line.baud) + " " + std::to_string(line.dataBits) + line.parity +
           std::to_string(line.stopBits);
}

int bitsPerCharacter(const LineSettings& line) {
    return kStartBits + line.dataBits + (line.parity == 'N' ? 0 : 1) + line.stopBits;
}

std::chrono::nanoseconds lineTime(const LineSettings& line, std::size_t bytes) {
    const auto bits = static_cast<std::int64_t>(bytes) * bitsPerCharacter(line);
    return std::chrono::nanoseconds(bits * kNanosecondsPerSecond / line.baud);
}

void configureLine(int fd, const LineSettings& line) {
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        throw systemError("cannot read the line settings");
    }
    const bool character = !isPseudoTerminal(fd);
    cfmakeraw(&t);
    t.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    t.c_cflag |= CLOCAL | CREAD | (character ? dataBitsFlag(line.dataBits) : CS8);
    // A pseudo-terminal clears PARENB but keeps PARODD and the input flags: there the parity is
    // noted as INPCK (check the parity of received characters), so that the other end can read
    // it. cfmakeraw leaves INPCK as it was.
    t.c_iflag &= ~INPCK;
    if (line.parity != 'N') {
        t.c_cflag |= (character ? PARENB : 0) | (line.parity == 'O' ? PARODD : 0);
        t.c_iflag |= character ? 0 : INPCK;
    }
    if (line.stopBits == 2) {
        t.c_cflag |= CSTOPB;
    }
    // With the descriptor non-blocking, VMIN 1 makes an empty line read as EAGAIN (VMIN 0 would
    // read as 0 bytes, indistinguishable from a hang-up); the tools wait with poll().
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    const speed_t speed = baudCode(line.baud);
    cfsetispeed(&t, speed);
    cfsetospeed(&t, speed);
    if (tcsetattr(fd, TCSANOW, &t) != 0) {
        throw systemError("cannot set the line settings");
    }
}

LineSettings lineSettingsOf(int fd) {
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        throw systemError("cannot read the line settings");
    }
    LineSettings line;
    line.baud = 0;
    for (const BaudRate& rate : kBaudRates) {
        if (rate.code == cfgetispeed(&t)) {
            line.baud = rate.bitsPerSecond;
        }
    }
    switch (t.c_cflag & CSIZE) {
        case CS5:
            line.dataBits = 5;
            break;
        case CS6:
            line.dataBits = 6;
            break;
        case CS7:
            line.dataBits = 7;
            break;
        default:
            line.dataBits = 8;
            break;
    }
    if ((t.c_cflag & PARENB) != 0 || (t.c_iflag & INPCK) != 0) {
        line.parity = (t.c_cflag & PARODD) != 0 ? 'O' : 'E';
    } else {
        line.parity = 'N';
    }
    line.stopBits = (t.c_cflag & CSTOPB) != 0 ? 2 : 1;
    return line;
}

UniqueFd openSerialDevice(const std::string& path, const LineSettings& line, DeviceAccess access) {
    const int mode = access == DeviceAccess::ReadOnly ? O_RDONLY : O_RDWR;
    UniqueFd fd(::open(path.c_str(), mode | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        throw systemError("cannot open serial device " + path);
    }
    if (!isatty(fd.get())) {
        throw std::runtime_error(path + " is not a serial device");
    }
    configureLine(fd.get(), line);
    return fd;
}

PseudoTerminal openPseudoTerminal(const LineSettings& line) {
    PseudoTerminal pty;
    pty.master.reset(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!pty.master.valid() || grantpt(pty.master.get()) != 0 || unlockpt(pty.master.get()) != 0) {
        throw systemError("cannot create a pseudo-terminal");
    }
    const char* name = ptsname(pty.master.get());
    if (name == nullptr) {
        throw systemError("cannot name the pseudo-terminal");
    }
    pty.path = name;
    pty.device = openSerialDevice(pty.path, line);
    return pty;
}

}  // namespace tools
