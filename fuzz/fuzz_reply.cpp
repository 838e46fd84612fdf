// Arbitrary reply bytes and lengths into DataCom, for every kind of queued request: a result
// outside the defined codes is a finding.
#include <cstdlib>

#include "fuzz_input.h"

namespace {

enum Kind { kWordRead, kBitRead, kWrite, kBitWordRead, kBitWordWrite, kRemoteRead, kRemoteWrite };

bool definedResult(int code) {
    return code == korvan::kResultRetry || code == korvan::kResultGood ||
           code == korvan::kResultRemoteGood || korvan::failureBase(code) != 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ComInfo& info = resetDriverForFuzzing();
    FuzzInput in(data, size);
    const auto kind = static_cast<Kind>(in.byte() % 7);
    info.remoteMode = kind >= kRemoteRead ? 1 : 0;
    info.retryLimit = in.byte() % 4;
    RW_VAR request;
    request.ownerId = in.byte() % 14 - 1;
    request.itemId = in.byte();
    request.port = kind >= kRemoteRead ? 2 : 1;
    request.station = in.byte() % 4;
    request.address = in.int16();
    request.count = in.count();
    if (kind == kWordRead || kind == kRemoteRead) {
        request.area = korvan::kAreaFirstWord +
                       in.byte() % (korvan::kAreaLastWord - korvan::kAreaFirstWord + 1);
    } else if (kind == kBitRead) {
        request.area =
            korvan::kAreaFirstBit + in.byte() % (korvan::kAreaLastBit - korvan::kAreaFirstBit + 1);
    } else if (kind == kBitWordRead || kind == kBitWordWrite) {
        request.direction = korvan::kDirectionWrite;
        request.area = korvan::kAreaBitOfWord;
        request.count = 1;
        request.data = in.bytes(1);
    } else {
        request.direction = korvan::kDirectionWrite;
        request.area = in.area();
        request.data = in.bytes(in.byte() % 64);
    }
    (request.direction == korvan::kDirectionWrite ? PLC_driver.writeList : PLC_driver.onceReadList)
        .append(request);

    // The second frame of a bit-in-word write: the PLC's correct answer to its word read first.
    if (ComCommunication() != nullptr && kind == kBitWordWrite) {
        const quint16 word = static_cast<quint16>(in.int16());
        const char head[] = {char(request.station), 0x20, 0x02, char(word >> 8), char(word)};
        QByteArray r(head, sizeof head);
        const unsigned short crc = CalCRC(reinterpret_cast<unsigned char*>(r.data()), 5);
        r.append(char(crc)).append(char(crc >> 8));
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
