// Local write frames, and the write exchanges of the local family.
//
//   station | 0x1F or 0x21 | area code | address (24 bits) | count (16 bits) | payload length
//   | payload | CRC lo | CRC hi
//
// The address is never scaled: a bit write carries the bit address, a word write the word
// address. Word payloads are held low byte first and sent high byte first.
#include "codec/Func_Write.h"

#include <cstring>

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/comm_failed.h"
#include "base/exchange.h"
#include "codec/bit_word_write.h"
#include "codec/frames.h"
#include "codec/function_codes.h"
#include "codec/write_header.h"
#include "image/Func_GetOrSetData.h"

namespace {

// The largest payload whose frame fits the build buffer.
constexpr int kLargestLocalPayload = kFrameBufSize - kWriteHeaderLength - kCrcLength;

// Only these areas are written bit by bit; every other area index, negative ones included, is
// written with the word function and its address unscaled.
bool writesBits(int area) {
    switch (area) {
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
        case 7:
            return true;
        default:
            return false;
    }
}

// Payload bytes on the wire: a word payload of odd length gets a zero high byte for its last word.
int wirePayloadLength(const RW_VAR& var) {
    const int length = var.data.size();
    return writesBits(var.area) ? length : length + (length & 1);
}

}  // namespace

bool fitsLocalWriteFrame(const RW_VAR& var) {
    return var.area == korvan::kAreaBitOfWord || wirePayloadLength(var) <= kLargestLocalPayload;
}

Protocol writeRequest(const RW_VAR& var, unsigned char* f) {
    const bool bits = writesBits(var.area);
    const int length = wirePayloadLength(var);
    putWriteHeader(f, var.station, bits ? kWriteBits : kWriteWords, var.area, var.address,
                   var.count, length);
    unsigned char* payload = f + kWriteHeaderLength;
    if (!var.data.isEmpty()) {
        memcpy(payload, var.data.constData(), static_cast<size_t>(var.data.size()));
    }
    if (!bits) {
        if (length != var.data.size()) {
            payload[length - 1] = 0;  // the padding high byte
        }
        for (int i = 0; i + 1 < length; i += 2) {
            const unsigned char low = payload[i];
            payload[i] = payload[i + 1];
            payload[i + 1] = low;
        }
    }
    const int crcAt = kWriteHeaderLength + length;
    const unsigned short crc = CalCRC(f, static_cast<unsigned short>(crcAt));
    f[crcAt] = static_cast<unsigned char>(crc);
    f[crcAt + 1] = static_cast<unsigned char>(crc >> 8);

    const int frameLength = crcAt + kCrcLength;
    return makeRequest(QByteArray(reinterpret_cast<const char*>(f), frameLength),
                       writeReplyLength(var.station), 0, 0, var);
}

// The scheduler never hands over a record that does not fit; one that does not queues nothing.
void write_analog(const RW_VAR& var) {
    if (!fitsLocalWriteFrame(var)) {
        return;
    }
    const Protocol request = writeRequest(var, PLC_driver.frameBuf);
    startExchange(PLC_driver, request);
}

void write_analog_bit(const RW_VAR& var) {
    const BitWordWrite requests = bitWordWriteRequests(var, PLC_driver.frameBuf);
    startExchange(PLC_driver, requests.read, requests.write);
}

// The image shows a written value once it is on its way, before the PLC confirms it: unless the
// link is down (SetRegisterData has mirrored it at once then), and never when the record is too
// long for any frame (it is not sent).
void write_register(const RW_VAR& var) {
    if (var.area == korvan::kAreaBitOfWord) {
        write_analog_bit(var);
    } else {
        write_analog(var);
    }
    if (!isCommFailed(PLC_driver) && fitsLocalWriteFrame(var)) {
        write_data_to_local(var);
    }
}
