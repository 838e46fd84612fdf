// Local write frames.
//
//   station | 0x1F or 0x21 | area code | address (24 bits) | count (16 bits) | payload length
//   | payload | CRC lo | CRC hi
//
// The address is never scaled: a bit write carries the bit address, a word write the word
// address. Word payloads are held low byte first and sent high byte first.
#include <cstring>

#include "codec/byte_order.h"
#include "codec/frames.h"
#include "codec/function_codes.h"
#include "codec/request_queue.h"
#include "driver/Communication_Protocol.h"
#include "driver/areas.h"
#include "driver/bit_word_write.h"
#include "driver/comm_failed.h"
#include "driver/register_mirror.h"

namespace {

constexpr int kWriteHeaderLength = 9;  // station .. payload length
constexpr int kAddressBytes = 3;
constexpr int kCountBytes = 2;
constexpr int kCrcLength = 2;
constexpr int kNoMark = 0;
constexpr int kOneWord = 1;
// The largest payload whose frame fits frameBuf.
constexpr int kLargestLocalPayload = kFrameBufSize - kWriteHeaderLength - kCrcLength;

static_assert(kBitWordWriteWordOffset == kWriteHeaderLength &&
                  kBitWordWriteCrcOffset == kWriteHeaderLength + kBytesPerWord &&
                  kBitWordWriteFrameLength == kBitWordWriteCrcOffset + kCrcLength,
              "the bit-of-word write is a one-word write frame");
static_assert(kBitWordReplyWordOffset == kReplyHeaderLength &&
                  kBitWordReplyLength == kReplyOverhead + kBytesPerWord,
              "the bit-of-word read is answered like any one-word read");

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

void putWriteHeader(unsigned char* f, const RW_VAR& var, unsigned char function, int areaIndex,
                    int address, int count, int payloadLength) {
    f[0] = static_cast<unsigned char>(var.station);
    f[1] = function;
    f[2] = PLC_driver.register_identifier(static_cast<unsigned char>(areaIndex));
    putBigEndian(f + 3, static_cast<quint32>(address), kAddressBytes);
    putBigEndian(f + 3 + kAddressBytes, static_cast<quint32>(count), kCountBytes);
    f[8] = static_cast<unsigned char>(payloadLength);
}

}  // namespace

bool fitsLocalWriteFrame(const RW_VAR& var) {
    return var.area == kBitOfWordArea || wirePayloadLength(var) <= kLargestLocalPayload;
}

// The scheduler never hands over a record that does not fit; one that does not queues nothing.
void write_analog(const RW_VAR& var) {
    if (!fitsLocalWriteFrame(var)) {
        return;
    }
    const bool bits = writesBits(var.area);
    const int length = wirePayloadLength(var);
    unsigned char* f = PLC_driver.frameBuf;
    putWriteHeader(f, var, bits ? kWriteBits : kWriteWords, var.area, var.address, var.count,
                   length);
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

    queueRequest(f, crcAt + kCrcLength, writeReplyLength(var), 0, 0, var);
    beginExchange(1);
}

// The read is an ordinary one-word read of area 14, marked so that its reply completes the write
// instead of being stored. The write is sent even to station 0, which answers both frames.
void write_analog_bit(const RW_VAR& var) {
    const int word = var.address >> 4;

    RW_VAR wordRead = var;
    wordRead.area = kBitOfWordHostArea;
    wordRead.address = word;
    wordRead.count = kOneWord;
    read_register(wordRead);
    RW_VAR& readRecord = PLC_driver.requestQueue.last().var;
    readRecord = var;
    readRecord.direction = kReadRequest;
    readRecord.mark = kMarkBitWordRead;

    unsigned char* f = PLC_driver.frameBuf;
    putWriteHeader(f, var, kWriteWords, kBitOfWordHostArea, word, kOneWord, kBytesPerWord);
    memset(f + kWriteHeaderLength, 0, kBitWordWriteFrameLength - kWriteHeaderLength);
    RW_VAR writeRecord = var;
    writeRecord.direction = kWriteRequest;
    writeRecord.mark = kNoMark;
    queueRequest(f, kBitWordWriteFrameLength, kWriteReplyLength, 0, 0, writeRecord);
    beginExchange(2);
}

void write_register(const RW_VAR& var) {
    if (var.area == kBitOfWordArea) {
        write_analog_bit(var);
    } else {
        write_analog(var);
    }
    // The image shows the value once it is on its way: not while the link is down, and never for
    // a record that is not sent at all.
    if (isCommFailed() || !fitsLocalWriteFrame(var)) {
        return;
    }
    write_data_to_local(var);
}
