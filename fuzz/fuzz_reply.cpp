// Arbitrary reply bytes and lengths into DataCom, for every kind of queued request: local word
// and bit reads, writes, both frames of a bit-in-word write, remote reads and writes. A result
// outside the defined codes is a finding, as is any crash or sanitizer report.
#include <cstdlib>

#include "fuzz_input.h"

namespace {

enum Kind { kWordRead, kBitRead, kWrite, kBitWordRead, kBitWordWrite, kRemoteRead, kRemoteWrite };

bool definedResult(int code) {
    bool defined = code == 0 || code == 1 || code == 100;
    for (int base : {10, 40, 70, 110, 140, 170}) {
        defined = defined || (code > base && code <= base + 12);
    }
    return defined;
}

RW_VAR requestFor(Kind kind, FuzzInput& in) {
    RW_VAR v;
    v.ownerId = in.byte() % 14 - 1;
    v.itemId = in.byte();
    v.port = kind >= kRemoteRead ? 2 : 1;
    v.station = in.byte() % 4;
    v.address = in.int16();
    v.count = in.count();
    if (kind == kWordRead || kind == kRemoteRead) {
        v.area = 14 + in.byte() % 15;
    } else if (kind == kBitRead) {
        v.area = in.byte() % 14;
    } else if (kind == kBitWordRead || kind == kBitWordWrite) {
        v.direction = 1;
        v.area = 29;
        v.count = 1;
        v.data = in.bytes(1);
    } else {
        v.direction = 1;
        v.area = in.area();
        v.data = in.bytes(in.byte() % 64);
    }
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ComInfo info;
    resetDriverForFuzzing(&info);
    FuzzInput in(data, size);
    const auto kind = static_cast<Kind>(in.byte() % 7);
    info.remoteMode = kind >= kRemoteRead ? 1 : 0;
    info.retryLimit = in.byte() % 4;
    const RW_VAR request = requestFor(kind, in);
    (request.direction != 0 ? PLC_driver.writeList : PLC_driver.onceReadList).append(request);

    // The second frame of a bit-in-word write: the PLC's correct answer to its word read first.
    if (ComCommunication() != nullptr && kind == kBitWordWrite) {
        const quint16 word = static_cast<quint16>(in.int16());
        QByteArray r;
        r.append(static_cast<char>(request.station)).append('\x20').append('\x02');
        r.append(static_cast<char>(word >> 8)).append(static_cast<char>(word));
        const unsigned short crc = CalCRC(reinterpret_cast<unsigned char*>(r.data()), 5);
        r.append(static_cast<char>(crc)).append(static_cast<char>(crc >> 8));
        DataCom(&r, r.size());
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
