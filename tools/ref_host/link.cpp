#include "link.h"

#include <cmath>

#include "serial_line.h"
#include "tcp.h"

namespace refhost {

namespace {

constexpr int kConnectTimeoutMs = 3000;
constexpr double kMillisecondsPerSecond = 1000.0;
// The driver never asks for a reply of unknown length; if it did, this much would be taken.
constexpr std::size_t kLongestReply = 4096;
// The most waiting bytes dropped before a request: a peer that never pauses is drained this much
// per exchange, the rest left for the next, so that the loop goes on and sees a stop request.
constexpr std::size_t kLongestDrain = 64 * 1024;

}  // namespace

Link::Link(const HostOptions& options)
    : capture_(options.pcapFile, tools::CaptureSide::Host),
      family_(options.settings.remoteMode ? tools::FrameFamily::Remote : tools::FrameFamily::Local),
      line_(options.line),
      turnaroundMs_(options.turnaroundMs) {
    switch (options.port) {
        case PortKind::StartedSimulator:
            simulator_ = std::make_unique<StartedSimulator>(options.simulatorOptions);
            fd_ = tools::openSerialDevice(simulator_->devicePath(), line_);
            place_ = "simulated PLC on " + simulator_->devicePath();
            break;
        case PortKind::SerialDevice:
            fd_ = tools::openSerialDevice(options.devicePath, line_);
            place_ = options.devicePath;
            break;
        case PortKind::Tcp:
            fd_ = tools::connectTcp(options.endpoint, kConnectTimeoutMs);
            serial_ = false;
            place_ = "TCP " + tools::describeEndpoint(options.endpoint);
            break;
    }
    description_ = place_;
    if (serial_) {
        description_ += " at " + tools::describeLine(line_);
    }
}

void Link::setLine(const tools::LineSettings& line) {
    if (serial_) {
        tools::configureLine(fd_.get(), line);
        line_ = line;
    }
}

int Link::replyTimeoutMs(std::size_t requestLength, int replyLength) const {
    if (!serial_) {
        return turnaroundMs_;
    }
    const double bits = static_cast<double>(requestLength + std::max(replyLength, 0)) *
                        tools::bitsPerCharacter(line_);
    return static_cast<int>(std::ceil(bits * kMillisecondsPerSecond / line_.baud)) + turnaroundMs_;
}

const tools::Bytes& Link::exchange(const std::uint8_t* request, std::size_t length, int replyLength,
                                   bool lineSettled) {
    // After good replies with nothing behind them the line is quiet, and looking would cost a
    // system call per exchange. A reply that comes after its timeout makes that exchange fail;
    // the next two then look first, in case its retry's reply comes late as well.
    if (!lineSettled || overrun_) {
        dropped_.clear();
        tools::readAvailable(fd_.get(), dropped_, kLongestDrain);
        drop(dropped_);
    }
    capture_.request(family_, request, length);
    tools::writeAll(fd_.get(), request, length);
    reply_.clear();
    overrun_ = false;
    if (replyLength != 0) {
        const std::size_t expected =
            replyLength < 0 ? kLongestReply : static_cast<std::size_t>(replyLength);
        overrun_ = tools::readFor(fd_.get(), expected, replyTimeoutMs(length, replyLength), reply_,
                                  dropped_);
        capture_.reply(reply_.data(), reply_.size());
        if (overrun_) {
            drop(dropped_);
        }
    }
    return reply_;
}

void Link::dropLateReply(std::size_t length, int timeoutMs) {
    // The last reply stays as it was: it is still to be shown.
    dropped_.clear();
    tools::Bytes beyond;
    tools::readFor(fd_.get(), length, timeoutMs, dropped_, beyond);
    dropped_.insert(dropped_.end(), beyond.begin(), beyond.end());
    drop(dropped_);
    overrun_ = !dropped_.empty();
}

void Link::drop(const tools::Bytes& bytes) {
    capture_.dropped(bytes.data(), bytes.size());
    bytesDropped_ += static_cast<long>(bytes.size());
}

void Link::stopSimulator() {
    if (simulator_ != nullptr) {
        simulator_->finish();
    }
}

}  // namespace refhost
