// Arbitrary reply bytes and lengths into DataCom, for every kind of queued request: local word
// and bit reads, writes, both frames of a bit-in-word write, remote reads and writes. A result
// outside the defined codes is a finding, as is any crash or sanitizer report.
#include <cstdlib>

#include "fuzz_input.h"

namespace {

enum Kind { kWordRead, kBitRead, kWrite, kBitWordRead, kBitWordWrite, kRemoteRead, kRemoteWrite };
constexpr int kKinds = 7;
constexpr int kRemotePort = 2;

bool definedResult(int code) {
    if (code == 0 || code == 1 || code == 100) {
        return true;
    }
    for (int base : {10, 40, 70, 110, 140, 170}) {
        if (code > base && code <= base + 12) {
            return true;
        }
    }
    return false;
}

RW_VAR requestFor(Kind kind, FuzzInput& in) {
    RW_VAR v;
    v.ownerId = in.byte() % 14 - 1;
    v.itemId = in.byte();
    v.port = kind >= kRemoteRead ? kRemotePort : 1;
    v.station = in.byte() % 4;
    v.address = in.int16();
    v.count = in.count();
    switch (kind) {
        case kWordRead:
        case kRemoteRead:
            v.area = 14 + in.byte() % 15;
            break;
        case kBitRead:
            v.area = in.byte() % 14;
            break;
        case kBitWordRead:
        case kBitWordWrite:
            v.direction = 1;
            v.area = 29;
            v.count = 1;
            v.data = in.bytes(1);
            break;
        default:
            v.direction = 1;
            v.area = in.area();
            v.data = in.bytes(in.byte() % 64);
            break;
    }
    return v;
}

// The PLC's correct answer to the word read that starts a bit-in-word write.
QByteArray wordReply(int station, quint16 word) {
    QByteArray r;
    r.append(static_cast<char>(station)).append('\x20').append('\x02');
    r.append(static_cast<char>(word >> 8)).append(static_cast<char>(word));
    const unsigned short crc = CalCRC(reinterpret_cast<unsigned char*>(r.data()), 5);
    return r.append(static_cast<char>(crc)).append(static_cast<char>(crc >> 8));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ComInfo info;
    resetDriverForFuzzing(&info);
    FuzzInput in(data, size);
    const auto kind = static_cast<Kind>(in.byte() % kKinds);
    info.remoteMode = kind >= kRemoteRead ? 1 : 0;
    info.retryLimit = in.byte() % 4;
    const RW_VAR request = requestFor(kind, in);
    if (request.direction != 0) {
        PLC_driver.writeList.append(request);
    } else {
        PLC_driver.onceReadList.append(request);
    }

    Protocol* head = ComCommunication();
    if (kind == kBitWordWrite && head != nullptr) {
        QByteArray first = wordReply(request.station, static_cast<quint16>(in.int16()));
        DataCom(&first, first.size());
    }
    for (int attempt = 0; attempt < 4 && !in.empty() && ComCommunication() != nullptr; ++attempt) {
        QByteArray reply = in.bytes(in.byte());
        const std::uint8_t mode = in.byte();
        int length = reply.size();
        if (mode % 4 == 1) {
            length += static_cast<std::int8_t>(in.byte());  // a count that disagrees with the bytes
        } else if (mode % 4 == 2) {
            length = PLC_driver.requestQueue.first().replyLength;
        }
        const RW_VAR* result = mode % 4 == 3 ? DataCom(nullptr, length) : DataCom(&reply, length);
        if (result == nullptr || !definedResult(result->result)) {
            abort();
        }
    }
    return 0;
}
