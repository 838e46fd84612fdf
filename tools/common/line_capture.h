// A capture file of every frame on the line, for Wireshark and tshark (with the dissector in
// tools/wireshark/korvan.lua). Written with libpcap, link type USER0 (147): each packet is a
// pseudo-header of our own, then the bytes as they went out or came in.
//
// Pseudo-header (kCaptureHeaderLength bytes, numbers most significant byte first):
//   0     its own length, so that a dissector finds the frame even after the header grows
//   1     its version, 1
//   2     who wrote the capture: 0 the host, 1 the PLC (simulator), 2 a tap on the line
//   3     direction as that side saw it: 0 sent, 1 received (a tap receives everything)
//   4     kind: 0 request, 1 reply, 2 bytes dropped as line noise (no frame)
//   5     frame family: 0 local, 1 remote, 2 not known (dropped bytes); a reply carries its
//         request's family, which its bytes alone do not tell
//   6..9  exchange: requests are numbered from 1 in the order they went out or came in; a
//         reply carries its request's number, dropped bytes the last request's (0: none yet)
#ifndef KORVAN_TOOLS_LINE_CAPTURE_H
#define KORVAN_TOOLS_LINE_CAPTURE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

// libpcap's handles, named here without its header.
struct pcap;
struct pcap_dumper;

namespace tools {

enum class CaptureSide : std::uint8_t { Host = 0, Plc = 1, Tap = 2 };
enum class FrameFamily : std::uint8_t { Local = 0, Remote = 1, Unknown = 2 };

constexpr int kLinkTypeUser0 = 147;
constexpr std::size_t kCaptureHeaderLength = 10;
constexpr std::uint8_t kCaptureVersion = 1;

// The clock of the packets' time stamps.
using CaptureClock = std::chrono::system_clock;

class LineCapture {
public:
    // Creates (or empties) `path`; an empty path makes no file, and recording then does
    // nothing. Throws std::runtime_error naming the cause.
    LineCapture(const std::string& path, CaptureSide side);
    ~LineCapture();
    LineCapture(const LineCapture&) = delete;
    LineCapture& operator=(const LineCapture&) = delete;

    // Each call writes one packet stamped with `at`, by default the current time (several of
    // the same kind when the bytes do not fit the file's snapshot length) and flushes it to the
    // file, so that a program killed at any moment leaves a capture that opens.
    void request(FrameFamily family, const std::uint8_t* data, std::size_t length,
                 CaptureClock::time_point at = CaptureClock::now());
    // The reply to the last request.
    void reply(const std::uint8_t* data, std::size_t length,
               CaptureClock::time_point at = CaptureClock::now());
    // Bytes received and thrown away: noise, a reply that came too late or beyond its length.
    void dropped(const std::uint8_t* data, std::size_t length,
                 CaptureClock::time_point at = CaptureClock::now());

private:
    enum class Kind : std::uint8_t { Request = 0, Reply = 1, Dropped = 2 };
    void write(Kind kind, FrameFamily family, const std::uint8_t* data, std::size_t length,
               CaptureClock::time_point at);
    void writePacket(Kind kind, FrameFamily family, const std::uint8_t* data, std::size_t length,
                     CaptureClock::time_point at);

    pcap* pcap_ = nullptr;  // both null without a file
    pcap_dumper* dumper_ = nullptr;
    CaptureSide side_ = CaptureSide::Host;
    std::uint32_t exchange_ = 0;
    FrameFamily family_ = FrameFamily::Unknown;  // the last request's
};

}  // namespace tools

#endif
