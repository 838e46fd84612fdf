#include "line_capture.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <vector>

namespace tools {

namespace {

// Large enough for any frame: the longest local write is about 2 kB. Readers refuse a packet
// longer than the file's snapshot length, so longer runs of bytes are split to fit.
constexpr int kSnapshotLength = 65535;
constexpr std::size_t kLongestPacketData = kSnapshotLength - kCaptureHeaderLength;
constexpr std::uint8_t kSent = 0;
constexpr std::uint8_t kReceived = 1;
constexpr long kNanosecondsPerMicrosecond = 1000;

}  // namespace

LineCapture::LineCapture(const std::string& path, CaptureSide side) : side_(side) {
    if (path.empty()) {
        return;
    }
    pcap_ = pcap_open_dead(kLinkTypeUser0, kSnapshotLength);
    if (pcap_ == nullptr) {
        throw std::runtime_error("cannot start a capture: libpcap refused");
    }
    dumper_ = pcap_dump_open(pcap_, path.c_str());
    if (dumper_ == nullptr) {
        const std::string reason = pcap_geterr(pcap_);
        pcap_close(pcap_);
        throw std::runtime_error("cannot write capture file " + path + ": " + reason);
    }
    // The file header goes out now: a capture of a program killed before its first frame
    // still opens, empty.
    pcap_dump_flush(dumper_);
}

LineCapture::~LineCapture() {
    if (dumper_ != nullptr) {
        pcap_dump_close(dumper_);
        pcap_close(pcap_);
    }
}

void LineCapture::request(FrameFamily family, const std::uint8_t* data, std::size_t length) {
    ++exchange_;
    family_ = family;
    write(Kind::Request, family, data, length);
}

void LineCapture::reply(const std::uint8_t* data, std::size_t length) {
    write(Kind::Reply, family_, data, length);
}

void LineCapture::dropped(const std::uint8_t* data, std::size_t length) {
    write(Kind::Dropped, FrameFamily::Unknown, data, length);
}

void LineCapture::write(Kind kind, FrameFamily family, const std::uint8_t* data,
                        std::size_t length) {
    if (dumper_ == nullptr || length == 0) {
        return;
    }
    for (std::size_t at = 0; at < length; at += kLongestPacketData) {
        writePacket(kind, family, data + at, std::min(length - at, kLongestPacketData));
    }
    pcap_dump_flush(dumper_);
}

void LineCapture::writePacket(Kind kind, FrameFamily family, const std::uint8_t* data,
                              std::size_t length) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // The host sends requests and receives the rest; the PLC receives requests and noise.
    const bool sent = side_ == CaptureSide::Host ? kind == Kind::Request : kind == Kind::Reply;
    std::vector<std::uint8_t> packet{static_cast<std::uint8_t>(kCaptureHeaderLength),
                                     kCaptureVersion,
                                     static_cast<std::uint8_t>(side_),
                                     sent ? kSent : kReceived,
                                     static_cast<std::uint8_t>(kind),
                                     static_cast<std::uint8_t>(family),
                                     static_cast<std::uint8_t>(exchange_ >> 24),
                                     static_cast<std::uint8_t>(exchange_ >> 16),
                                     static_cast<std::uint8_t>(exchange_ >> 8),
                                     static_cast<std::uint8_t>(exchange_)};
    packet.insert(packet.end(), data, data + length);

    pcap_pkthdr header{};
    header.ts.tv_sec = now.tv_sec;
    header.ts.tv_usec = static_cast<suseconds_t>(now.tv_nsec / kNanosecondsPerMicrosecond);
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, packet.data());
}

}  // namespace tools
