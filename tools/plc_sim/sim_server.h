// The simulator's main loop: bytes in from the line or a TCP connection, frames out of the
// splitter, answers from the model, counters ticking, until asked to stop.
#ifndef KORVAN_TOOLS_SIM_SERVER_H
#define KORVAN_TOOLS_SIM_SERVER_H

#include <chrono>
#include <csignal>
#include <optional>

#include "frame_splitter.h"
#include "line_capture.h"
#include "plc_model.h"
#include "serial_line.h"
#include "sim_options.h"
#include "unique_fd.h"

namespace plcsim {

class SimServer {
public:
    // Every frame received and sent, and every byte dropped, goes to `capture`.
    SimServer(PlcModel& plc, const SimOptions& options, tools::LineCapture& capture,
              const volatile std::sig_atomic_t& stop)
        : plc_(plc), options_(options), capture_(capture), stop_(stop) {}

    // Serves a serial line or pseudo-terminal until stopped. `ownLine` is the line's settings as
    // the simulator made them (tools::lineSettingsOf): bytes that come while the line has other
    // settings, which only a host at the other end of a pseudo-terminal can give it, are received
    // as a UART at the wrong settings receives them, as garbage.
    void serveLine(int fd, const tools::LineSettings& ownLine);
    // Serves one TCP connection at a time until stopped. A connection that sends nothing, or
    // takes no reply, for the idle timeout is closed, so that one peer cannot hold the PLC.
    void serveTcp(int listenFd);

    std::size_t discardedBytes() const { return splitter_.discarded() + garbled_; }

private:
    using Clock = std::chrono::steady_clock;

    // Waits for input on `fd` (or, with `listening`, for a connection) up to the next deadline
    // of the gap or the counters; returns true when something arrived.
    bool wait(int fd, bool listening);
    // Reads and answers what arrived; false when the other end went away.
    bool receive(int fd);
    // Whether the line's settings are not the simulator's; if so, drops `bytes` as garbage.
    bool garbled(int fd, Bytes& bytes);
    // Answers the frames among `pieces` until a reply cannot be sent; the rest was dropped.
    void take(int fd, const std::vector<Piece>& pieces);
    void answer(int fd, const Bytes& request);
    // Sleeps until `due` in short steps; false when asked to stop meanwhile.
    bool holdUntil(Clock::time_point due) const;
    // Writes all of `bytes`, waiting for room while the other end takes some within the idle
    // timeout; false when it did not, went away, or the program is asked to stop.
    bool send(int fd, const Bytes& bytes);
    // Nothing came or went for the idle timeout since `since`.
    bool idleSince(Clock::time_point since) const;
    // Drops what is left unanswered when the line or connection ends.
    void dropPending();
    // When the reply to the request that arrived last goes out: after the PLC's delay and, with
    // --baud-delay, when the request's and the reply's characters would have crossed a real
    // line. Counted from the request's arrival, so that the time spent answering it is part of
    // that time instead of adding to it.
    Clock::time_point replyDue(std::size_t requestLength, const Reply& reply);
    void tickCounters();

    PlcModel& plc_;
    const SimOptions& options_;
    tools::LineCapture& capture_;
    const volatile std::sig_atomic_t& stop_;
    FrameSplitter splitter_;
    std::optional<tools::LineSettings> ownLine_;  // serving a line: its settings
    std::size_t garbled_ = 0;                     // bytes received at other settings
    Clock::time_point lastByte_ = Clock::now();
    Clock::time_point lastActivity_;  // the last byte received or reply sent on a connection
    bool peerStalled_ = false;        // a reply could not be sent: no more are tried
    Clock::time_point lineFree_;      // with --baud-delay: the end of the last reply on the line
    Clock::time_point nextTick_ = Clock::now();
    bool faultsCleared_ = false;
    Clock::time_point firstRequest_ = Clock::time_point::max();
};

}  // namespace plcsim

#endif
