#include "line_capture.h"

#include <pcap/pcap.h>

#include <algorithm>
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
constexpr long long kMicrosecondsPerSecond = 1000000;

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

void LineCapture::request(FrameFamily family, const std::uint8_t* data, std::size_t length,
                          CaptureClock::time_point at) {
    ++exchange_;
    family_ = family;
    write(Kind::Request, family, data, length, at);
}

void LineCapture::reply(const std::uint8_t* data, std::size_t length, CaptureClock::time_point at) {
    write(Kind::Reply, family_, data, length, at);
}

void LineCapture::dropped(const std::uint8_t* data, std::size_t length,
                          CaptureClock::time_point at) {
    write(Kind::Dropped, FrameFamily::Unknown, data, length, at);
}

void LineCapture::write(Kind kind, FrameFamily family, const std::uint8_t* data, std::size_t length,
                        CaptureClock::time_point at) {
    if (dumper_ == nullptr || length == 0) {
        return;
    }
    for (std::size_t from = 0; from < length; from += kLongestPacketData) {
        writePacket(kind, family, data + from, std::min(length - from, kLongestPacketData), at);
    }
    pcap_dump_flush(dumper_);
}

void LineCapture::writePacket(Kind kind, FrameFamily family, const std::uint8_t* data,
                              std::size_t length, CaptureClock::time_point at) {
    // The host sends requests and receives the rest; the PLC receives requests and noise and
    // sends replies; a tap only listens.
    bool sent = false;
    switch (side_) {
        case CaptureSide::Host:
            sent = kind == Kind::Request;
            break;
        case CaptureSide::Plc:
            sent = kind == Kind::Reply;
            break;
        case CaptureSide::Tap:
            break;
    }
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

    const auto microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(at.time_since_epoch()).count();
    pcap_pkthdr header{};
    header.ts.tv_sec = static_cast<time_t>(microseconds / kMicrosecondsPerSecond);
    header.ts.tv_usec = static_cast<suseconds_t>(microseconds % kMicrosecondsPerSecond);
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, packet.data());
}

}  // namespace tools
