// The dissector against captures written here byte by byte, among them damaged ones that neither
// program writes: what tshark shows of each in the fields, the Info column and the expert infos.
#include "tool_processes.h"

#include <pcap/pcap.h>

#include "frame_bytes.h"
#include "line_capture.h"

namespace {

using namespace tooltest;
using namespace testframes;

// The header's kinds of packet.
constexpr Byte kRequest = 0;
constexpr Byte kReply = 1;
constexpr Byte kDropped = 2;
// Room for the longest reply, to a read of 65535 words.
constexpr int kSnapshotLength = 262144;
// As many words of a frame as the dissector makes items of.
constexpr std::size_t kWordItems = 1024;

// The reply to a read of `count` words of station 1, every word 0.
Bytes wordsReply(std::uint16_t count) {
    Bytes frame{1, plcsim::kFnReadWords, Byte(2 * count)};
    frame.resize(frame.size() + 2 * std::size_t{count});
    return withCrc(frame);
}

// A packet as the capture holds it: the header (as LineCapture writes it, unless `kind` or
// `headerLength` say otherwise) of exchange 1, then the frame.
struct Packet {
    tools::CaptureSide side;
    Byte kind;
    Bytes frame;
    Byte headerLength = tools::kCaptureHeaderLength;
};

// A pcap file of the packets, a millisecond apart.
void writeCapture(const std::string& path, const std::vector<Packet>& packets) {
    pcap_t* const dead = pcap_open_dead(tools::kLinkTypeUser0, kSnapshotLength);
    pcap_dumper_t* const file = pcap_dump_open(dead, path.c_str());
    ASSERT_NE(file, nullptr) << pcap_geterr(dead);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const Packet& p = packets[i];
        const bool sent =
            p.side == tools::CaptureSide::Host ? p.kind == kRequest : p.kind == kReply;
        const auto family =
            p.kind == kDropped ? tools::FrameFamily::Unknown : tools::FrameFamily::Local;
        Bytes bytes{p.headerLength, tools::kCaptureVersion, Byte(p.side), Byte(sent ? 0 : 1)};
        bytes.insert(bytes.end(), {p.kind, Byte(family), 0, 0, 0, 1});  // exchange 1
        bytes.insert(bytes.end(), p.frame.begin(), p.frame.end());
        const auto length = static_cast<bpf_u_int32>(bytes.size());
        const pcap_pkthdr header{{0, static_cast<suseconds_t>(1000 * (i + 1))}, length, length};
        pcap_dump(reinterpret_cast<u_char*>(file), &header, bytes.data());
    }
    pcap_dump_close(file);
    pcap_close(dead);
}

// `count` copies of `text`, as tshark joins a field's values.
std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += (i == 0 ? "" : ",") + text;
    }
    return all;
}

// Each capture decoded: the fields of the frames the filter shows. A header below its length
// is refused, not read as a frame; a header code out of its range is refused too, not taken
// for dropped bytes. A local write too short for its length byte and CRC is "too short", not
// decoded with its CRC as the payload (one just long enough, empty, is decoded). Bytes the PLC
// dropped are never a late reply, however good their CRC: only the host receives replies. A
// reply's words are items up to kWordItems, and one more item counts the rest.
TEST(Dissector, DamagedAndOutsizedFramesAreShownForWhatTheyAre) {
    const auto host = tools::CaptureSide::Host, plc = tools::CaptureSide::Plc;
    const Bytes shortWrite = withCrc(bytesOf("01 21 80 00 00 64 00 01"));
    const Bytes emptyWrite = withCrc(bytesOf("01 21 80 00 00 64 00 00 00"));  // payload length 0
    const Texts info{"_ws.col.Info", "_ws.expert.message"};
    const Texts words{"word", "word.more"};
    struct Case {
        const char* what;
        std::vector<Packet> packets;
        std::string filter;
        Texts fields;
        std::vector<Row> rows;
    };
    // clang-format off
    const Case cases[] = {
        {"header length 4", {{host, kRequest, localFrame(1, 100, 2), 4}}, "",
         {"station", info[0], info[1]},
         {{"", "unknown capture header: length 4, below 10",
           "Unknown capture header: length 4, below 10"}}},
        {"kind 3", {{host, 3, localFrame(1, 100, 2)}}, "", {"dropped", info[0]},
         {{"", "unknown capture header: kind 3"}}},
        {"local write of 10 bytes", {{host, kRequest, shortWrite}}, "",
         {"payload_length", "payload", "crc", info[0], info[1]},
         {{"", "", "", "short local write: 10 bytes",
           "Frame too short: a local write of 10 bytes; the shortest is 11"}}},
        {"local write of 11 bytes", {{host, kRequest, emptyWrite}}, "",
         {"payload_length", "payload", "crc.status", info[0]},
         {{"0", "", "good", "write words st=1 area 0x80 @100 x0 [no reply]"}}},
        {"reply with a good CRC dropped by the PLC",
         {{plc, kRequest, localFrame(1, 100, 2)}, {plc, kReply, wordsReply(2)},
          {plc, kDropped, wordsReply(2)}},
         "korvan.kind == 2", {info[0]}, {{"dropped 9 bytes: 01 20 04 00 00 00 00 fd 60"}}},
        {"reply of 65535 words",
         {{host, kRequest, localFrame(1, 100, 65535)}, {host, kReply, wordsReply(65535)}},
         "korvan.kind == 1", words, {{repeated("0x0000", kWordItems), "64511"}}},
        {"reply of as many words as become items",
         {{host, kRequest, localFrame(1, 100, kWordItems)},
          {host, kReply, wordsReply(kWordItems)}},
         "korvan.kind == 1", words, {{repeated("0x0000", kWordItems), ""}}},
    };
    // clang-format on
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string capture = dir.path("capture.pcap");
        writeCapture(capture, c.packets);
        EXPECT_EQ(decode(capture, c.fields, c.filter), c.rows);
    }
}

}  // namespace
