// A serial line for tests, made of pseudo-terminals: the host's end, the PLC's, and the tap's one
// device (or two, a direction each). A thread copies what either end writes to the other and to
// the tap when its last character would have arrived on a half-duplex line of the given speed.
// Noise goes to the tap alone: at the start, and after every so many replies, at once before the
// next request. Whatever comes back from a tap's device is counted: a tap must write nothing.
#ifndef KORVAN_TESTS_LINE_RELAY_H
#define KORVAN_TESTS_LINE_RELAY_H

#include <poll.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>

#include "byte_io.h"
#include "serial_line.h"

namespace tooltest {

class LineRelay {
public:
    // With `apart`, two tap devices: the requests', then the replies'. `noiseEvery`: replies
    // between noise bursts; 0: no noise.
    explicit LineRelay(const tools::LineSettings& line, bool apart = false, long noiseEvery = 0)
        : line_(line),
          noiseEvery_(noiseEvery),
          host_(tools::openPseudoTerminal(line)),
          plc_(tools::openPseudoTerminal(line)) {
        for (int i = 0; i < (apart ? 2 : 1); ++i) {
            taps_.push_back(tools::openPseudoTerminal(line));
        }
        if (noiseEvery > 0) {
            addNoise(Clock::now());
        }
        thread_ = std::thread([this] { run(); });
    }
    ~LineRelay() { stop(); }

    void stop() {
        stopping_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    const std::string& hostPath() const { return host_.path; }
    const std::string& plcPath() const { return plc_.path; }
    const std::string& tapPath(std::size_t i) const { return taps_.at(i).path; }
    // Nothing waits to be copied.
    bool idle() const { return idle_; }
    long noiseBytes() const { return noiseBytes_; }
    long tapWrote() const { return tapWrote_; }

private:
    using Clock = std::chrono::steady_clock;
    enum class To { Plc, Host, TapAlone };
    struct Piece {
        tools::Bytes bytes;
        To to;
        std::size_t tap;
        Clock::time_point due;
    };
    static constexpr std::size_t kNoiseLength = 3;
    static constexpr std::size_t kChunk = 4096;
    static constexpr auto kLongestWait = std::chrono::milliseconds(10);

    void run() {
        std::vector<pollfd> polled{{host_.master.get(), POLLIN, 0}, {plc_.master.get(), POLLIN, 0}};
        for (const tools::PseudoTerminal& tap : taps_) {
            polled.push_back({tap.master.get(), POLLIN, 0});
        }
        while (!stopping_) {
            const Clock::time_point now = Clock::now();
            for (; !queue_.empty() && queue_.front().due <= now; queue_.pop_front()) {
                deliver(queue_.front(), now);
            }
            idle_ = queue_.empty();
            const Clock::time_point until = queue_.empty()
                                                ? now + kLongestWait
                                                : std::min(now + kLongestWait, queue_.front().due);
            const auto ms = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
            if (poll(polled.data(), polled.size(), static_cast<int>(ms)) <= 0) {
                continue;
            }
            for (std::size_t i = 0; i < polled.size(); ++i) {
                tools::Bytes bytes;
                if ((polled[i].revents & POLLIN) == 0 ||
                    tools::readAvailable(polled[i].fd, bytes, kChunk) == 0) {
                    continue;
                }
                if (i >= 2) {
                    tapWrote_ += static_cast<long>(bytes.size());
                } else {
                    idle_ = false;
                    send(std::move(bytes), i == 0 ? To::Plc : To::Host, i, Clock::now());
                }
            }
        }
    }

    // Queues `bytes` on the line: they arrive when the line is free and they have crossed it, on
    // tap device `tap` (0 for requests, 1 for replies) or, with one device, on that.
    void send(tools::Bytes bytes, To to, std::size_t tap, Clock::time_point now) {
        lineFree_ = std::max(lineFree_, now) + tools::lineTime(line_, bytes.size());
        queue_.push_back({std::move(bytes), to, tap % taps_.size(), lineFree_});
    }

    void deliver(const Piece& piece, Clock::time_point now) {
        if (piece.to != To::TapAlone) {
            const tools::PseudoTerminal& end = piece.to == To::Plc ? plc_ : host_;
            tools::writeAll(end.master.get(), piece.bytes.data(), piece.bytes.size());
        }
        tools::writeAll(taps_[piece.tap].master.get(), piece.bytes.data(), piece.bytes.size());
        if (piece.to == To::Host && noiseEvery_ > 0 && ++replies_ % noiseEvery_ == 0) {
            addNoise(now);
        }
    }

    // Noise on the line, alternately on each tap device.
    void addNoise(Clock::time_point now) {
        tools::Bytes noise(kNoiseLength);
        for (std::uint8_t& byte : noise) {
            byte = static_cast<std::uint8_t>(random_());
        }
        noiseBytes_ += static_cast<long>(noise.size());
        send(std::move(noise), To::TapAlone, noiseBursts_++, now);
    }

    tools::LineSettings line_;
    long noiseEvery_;
    tools::PseudoTerminal host_, plc_;
    std::vector<tools::PseudoTerminal> taps_;
    std::deque<Piece> queue_;
    Clock::time_point lineFree_;
    long replies_ = 0;
    std::size_t noiseBursts_ = 0;
    std::mt19937 random_{7};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> idle_{true};
    std::atomic<long> noiseBytes_{0};
    std::atomic<long> tapWrote_{0};
    std::thread thread_;
};

}  // namespace tooltest

#endif
