// The host's end of the line to the PLC: a serial device, a TCP connection, or a simulator it
// started itself. Sends a request and collects its reply within the reply timeout.
#ifndef KORVAN_TOOLS_LINK_H
#define KORVAN_TOOLS_LINK_H

#include <memory>
#include <string>

#include "byte_io.h"
#include "host_options.h"
#include "line_capture.h"
#include "started_simulator.h"
#include "unique_fd.h"

namespace refhost {

class Link {
public:
    // Opens the port the options name, and their capture file. Throws std::runtime_error with a
    // clear reason.
    explicit Link(const HostOptions& options);

    // Sends the request, then waits for `replyLength` bytes (none when it is 0) until the reply
    // timeout; returns what came, valid until the next exchange. Unless `lineSettled` (the last
    // two replies were good) and nothing came after the last reply, whatever is waiting is
    // dropped first: a late answer to an earlier request must not pass for this one's. Every
    // byte sent, received or dropped goes to the capture. Throws tools::LinkClosed.
    const tools::Bytes& exchange(const std::uint8_t* request, std::size_t length, int replyLength,
                                 bool lineSettled);

    // Gives a serial line other settings, for the exchanges that follow.
    void setLine(const tools::LineSettings& line);
    // The frame family the capture names the requests that follow by.
    void setFamily(tools::FrameFamily family) { family_ = family; }

    // Waits up to `timeoutMs` for a late answer of up to `length` bytes and drops what comes.
    void dropLateReply(std::size_t length, int timeoutMs);

    // Stops the simulator the link started, if any. Throws std::runtime_error when it failed,
    // for instance at writing its dump.
    void stopSimulator();

    // Bytes received and thrown away so far: noise, late answers, bytes beyond a reply.
    long bytesDropped() const { return bytesDropped_; }

    // The time the request and its reply take on the line, plus the turnaround.
    int replyTimeoutMs(std::size_t requestLength, int replyLength) const;
    const std::string& description() const { return description_; }
    // The description without the line settings.
    const std::string& place() const { return place_; }

private:
    void drop(const tools::Bytes& bytes);

    tools::LineCapture capture_;
    tools::FrameFamily family_;
    std::unique_ptr<StartedSimulator> simulator_;
    tools::UniqueFd fd_;
    bool serial_ = true;
    tools::LineSettings line_;
    int turnaroundMs_ = 0;
    std::string place_;
    std::string description_;
    tools::Bytes reply_;
    tools::Bytes dropped_;
    bool overrun_ = true;  // bytes came after the last reply (or none was read yet)
    long bytesDropped_ = 0;
};

}  // namespace refhost

#endif
