#include "sim_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <thread>

#include "byte_io.h"
#include "hex_text.h"
#include "serial_line.h"
#include "tcp.h"

namespace plcsim {

namespace {

constexpr auto kCounterPeriod = std::chrono::milliseconds(100);
constexpr auto kCheckStopEvery = std::chrono::milliseconds(200);
constexpr std::size_t kReadChunk = 512;
// Bytes of replies a TCP connection holds for its peer.
constexpr int kPeerSendBuffer = 16 * 1024;

std::string hex(const Bytes& b) {
    return tools::hexBytes(b.data(), b.size());
}

tools::FrameFamily captureFamily(Family family) {
    switch (family) {
        case Family::Local:
            return tools::FrameFamily::Local;
        case Family::Remote:
            return tools::FrameFamily::Remote;
        case Family::Neither:
            break;
    }
    return tools::FrameFamily::Unknown;
}

}  // namespace

void SimServer::serveLine(int fd, const tools::LineSettings& ownLine) {
    ownLine_ = ownLine;
    while (!stop_) {
        // A line stays open when a reply was not taken: later ones are tried again.
        peerStalled_ = false;
        if (wait(fd, false) && !receive(fd)) {
            break;
        }
    }
    dropPending();
}

void SimServer::serveTcp(int listenFd) {
    while (!stop_) {
        if (!wait(listenFd, true)) {
            continue;
        }
        tools::UniqueFd connection = tools::acceptTcp(listenFd);
        if (!connection.valid()) {
            continue;
        }
        // A PLC keeps little for a peer. Left to grow, the kernel's buffer would take megabytes
        // of replies to a peer that never reads, and the simulator would work through as many
        // requests before it noticed; small, it stalls after a few dozen and the idle timeout
        // drops the peer.
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDBUF, &kPeerSendBuffer,
                   sizeof kPeerSendBuffer);
        lastActivity_ = Clock::now();
        peerStalled_ = false;
        while (!stop_ && !peerStalled_ && !idleSince(lastActivity_)) {
            if (wait(connection.get(), false) && !receive(connection.get())) {
                break;
            }
        }
        // The next connection starts afresh.
        dropPending();
    }
}

void SimServer::dropPending() {
    for (const Piece& piece : splitter_.flush()) {
        capture_.dropped(piece.bytes.data(), piece.bytes.size());
    }
}

bool SimServer::wait(int fd, bool listening) {
    auto deadline = Clock::now() + kCheckStopEvery;
    if (!options_.counters.empty()) {
        deadline = std::min(deadline, nextTick_);
    }
    const bool framePending = !listening && splitter_.pending();
    if (framePending) {
        deadline = std::min(deadline, lastByte_ + std::chrono::milliseconds(options_.gapMs));
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd p{fd, POLLIN, 0};
    const int ready = poll(&p, 1, static_cast<int>(std::max<long>(0, left.count())));
    tickCounters();
    if (ready > 0) {
        return true;
    }
    if (framePending && Clock::now() - lastByte_ >= std::chrono::milliseconds(options_.gapMs)) {
        take(fd, splitter_.flush());
    }
    return false;
}

bool SimServer::receive(int fd) {
    tools::Bytes bytes;
    try {
        // One read per wake-up: what it leaves wakes poll() again at once, and the read that
        // would only find the line empty is saved.
        tools::readOnce(fd, bytes, kReadChunk);
    } catch (const tools::LinkClosed&) {
        return false;
    }
    lastByte_ = Clock::now();
    lastActivity_ = lastByte_;
    if (!garbled(fd, bytes)) {
        take(fd, splitter_.feed(bytes.data(), bytes.size()));
    }
    return true;
}

// The settings are read as the bytes are handled: a host sets them before it sends. Garbage is
// kept from the splitter, so that no frame can be found in it by chance.
bool SimServer::garbled(int fd, Bytes& bytes) {
    if (!ownLine_) {
        return false;
    }
    const tools::LineSettings line = tools::lineSettingsOf(fd);
    if (line == *ownLine_) {
        return false;
    }
    for (std::uint8_t& b : bytes) {
        b = static_cast<std::uint8_t>(~b);
    }
    garbled_ += bytes.size();
    capture_.dropped(bytes.data(), bytes.size());
    if (options_.trace) {
        std::cerr << "< " << hex(bytes) << "  (garbage: the line is at "
                  << tools::describeLine(line) << ", the simulator at "
                  << tools::describeLine(*ownLine_) << ")" << std::endl;
    }
    return true;
}

void SimServer::take(int fd, const std::vector<Piece>& pieces) {
    for (const Piece& piece : pieces) {
        if (piece.frame && !peerStalled_) {
            answer(fd, piece.bytes);
        } else {
            capture_.dropped(piece.bytes.data(), piece.bytes.size());
        }
    }
}

void SimServer::answer(int fd, const Bytes& request) {
    capture_.request(captureFamily(familyOf(request)), request.data(), request.size());
    const Reply reply = plc_.handle(request);
    firstRequest_ = std::min(firstRequest_, Clock::now());
    const bool countDone = options_.faultsFor != 0 && plc_.stats().requests >= options_.faultsFor;
    const bool timeDone =
        options_.faultsSeconds > 0 &&
        Clock::now() - firstRequest_ >= std::chrono::duration<double>(options_.faultsSeconds);
    if (!faultsCleared_ && (countDone || timeDone)) {
        plc_.setFaults(Faults());
        faultsCleared_ = true;
    }
    if (options_.trace) {
        std::cerr << "< " << hex(request) << "\n> "
                  << (reply.answered ? hex(reply.bytes) : std::string("(no reply)")) << std::endl;
    }
    if (!reply.answered) {
        return;
    }
    if (!holdUntil(replyDue(request.size(), reply))) {
        return;
    }
    capture_.reply(reply.bytes.data(), reply.bytes.size());
    // A host that went away, or that sends and never reads, loses its connection; on a line
    // the reply is dropped.
    peerStalled_ = !send(fd, reply.bytes);
}

bool SimServer::holdUntil(Clock::time_point due) const {
    while (!stop_) {
        const Clock::time_point now = Clock::now();
        if (now >= due) {
            return true;
        }
        std::this_thread::sleep_until(std::min(due, now + kCheckStopEvery));
    }
    return false;
}

bool SimServer::send(int fd, const Bytes& bytes) {
    std::size_t sent = 0;
    Clock::time_point progress = Clock::now();
    while (sent < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + sent, bytes.size() - sent);
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
            progress = Clock::now();
            continue;
        }
        if ((n < 0 && errno != EAGAIN && errno != EINTR) || stop_ || idleSince(progress)) {
            return false;
        }
        pollfd p{fd, POLLOUT, 0};
        poll(&p, 1, static_cast<int>(kCheckStopEvery.count()));
    }
    lastActivity_ = Clock::now();
    return true;
}

bool SimServer::idleSince(Clock::time_point since) const {
    return options_.idleSeconds > 0 &&
           Clock::now() - since >= std::chrono::seconds(options_.idleSeconds);
}

SimServer::Clock::time_point SimServer::replyDue(std::size_t requestLength, const Reply& reply) {
    if (!options_.baudDelay) {
        return lastByte_ + std::chrono::milliseconds(reply.delayMs);
    }
    // Half duplex: a reply to a request that came in behind another waits for the line.
    const Clock::time_point start = std::max(lastByte_, lineFree_);
    lineFree_ = start + tools::lineTime(options_.line, requestLength) +
                std::chrono::milliseconds(reply.delayMs) +
                tools::lineTime(options_.line, reply.bytes.size());
    return lineFree_;
}

void SimServer::tickCounters() {
    for (; Clock::now() >= nextTick_; nextTick_ += kCounterPeriod) {
        for (const Counter& c : options_.counters) {
            const int code = PlcModel::areaCodeOfIndex(c.area);
            plc_.setWord(c.station, code, c.address,
                         static_cast<std::uint16_t>(plc_.word(c.station, code, c.address) + 1));
        }
    }
}

}  // namespace plcsim
