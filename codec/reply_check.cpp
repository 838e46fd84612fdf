// Validation of a reply against the request at the head of requestQueue: the station byte and
// the CRC. Function code, byte count and length are not examined here; reply handling compares
// the length with the request before it asks.
#include "codec/frames.h"
#include "driver/Communication_Protocol.h"

namespace {

unsigned int byteAt(const QByteArray& bytes, int index) {
    return static_cast<unsigned char>(bytes.at(index));
}

}  // namespace

int CheckGetData(const QByteArray* reply) {
    if (PLC_driver.requestQueue.isEmpty()) {
        return kReplyInvalid;
    }
    const RW_VAR& request = PLC_driver.requestQueue.first().var;
    if (request.station == 0) {
        return kReplyNothingToStore;  // a broadcast gets no answer
    }
    if (reply == nullptr || reply->size() < kMinReplyLength) {
        return kReplyInvalid;
    }
    const int size = reply->size();
    if (static_cast<int>(byteAt(*reply, 0)) != request.station) {
        return kReplyInvalid;
    }
    // CalCRC does not write through its pointer. Its count is 16 bits wide: a reply longer than
    // any frame is checked over a shortened count and fails, without reading past its end.
    auto* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(reply->constData()));
    const unsigned int crc = CalCRC(bytes, static_cast<unsigned short>(size - 2));
    if (crc != bytes[size - 2] + 256u * bytes[size - 1]) {
        return kReplyInvalid;
    }
    return request.direction != 0 ? kReplyNothingToStore : kReplyStore;
}
