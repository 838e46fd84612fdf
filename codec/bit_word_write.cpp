// The bit-of-word write: a one-word read of area 14, then a one-word write of the same word.
//
//   read:  station | 0x20 | 0x80 | word (24 bits) | 00 01 | CRC lo | CRC hi
//   write: station | 0x21 | 0x80 | word (24 bits) | 00 01 | 02 | new word (hi, lo) | CRC lo | hi
//
// The write's new word and CRC are zero until the read's reply completes them.
#include "codec/bit_word_write.h"

#include <cstring>

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "codec/Func_Read.h"
#include "codec/frames.h"
#include "codec/function_codes.h"
#include "codec/write_header.h"

namespace {

constexpr int kOneWord = 1;
constexpr int kNoMark = 0;
constexpr int kWordAt = kWriteHeaderLength;
constexpr int kWriteCrcAt = kWordAt + kBytesPerWord;
constexpr int kWriteFrameLength = kWriteCrcAt + kCrcLength;
// The reply to the read: header, the word high byte first, CRC.
constexpr int kReadReplyWordAt = kReplyHeaderLength;
constexpr int kReadReplyLength = kReplyOverhead + kBytesPerWord;

}  // namespace

// The read is an ordinary one-word read, marked (isBitWordRead) so that its reply completes the
// write instead of being stored; it carries the whole record, as the write does. Both frames go
// even to station 0, which answers them.
BitWordWrite bitWordWriteRequests(const RW_VAR& var, unsigned char* f) {
    const int word = var.address >> kWordOfBitShift;
    BitWordWrite requests;

    RW_VAR wordRead = var;
    wordRead.area = kBitOfWordHostArea;
    wordRead.address = word;
    wordRead.count = kOneWord;
    requests.read = readRequest(wordRead, f);
    requests.read.var = var;
    requests.read.var.direction = korvan::kDirectionRead;
    requests.read.var.mark = korvan::kMarkBitOfWordRead;

    putWriteHeader(f, var.station, kWriteWords, kBitOfWordHostArea, word, kOneWord, kBytesPerWord);
    memset(f + kWordAt, 0, kWriteFrameLength - kWordAt);
    Protocol& write = requests.write;
    write.frame = QByteArray(reinterpret_cast<const char*>(f), kWriteFrameLength);
    write.sendLength = kWriteFrameLength;
    write.replyLength = kWriteReplyLength;
    write.var = var;
    write.var.direction = korvan::kDirectionWrite;
    write.var.mark = kNoMark;
    return requests;
}

// The bit and its value come from the write request's own copy of the record.
void completeBitWordWrite(Protocol& write, ReplyBytes reply) {
    if (reply.size < kReadReplyLength || write.frame.size() < kWriteFrameLength) {
        return;
    }
    const quint16 read =
        static_cast<quint16>(reply.data[kReadReplyWordAt] << 8 | reply.data[kReadReplyWordAt + 1]);
    const quint16 word = withBits(read, bitMask(write.var.address), bitOfWordValue(write.var));

    auto* f = reinterpret_cast<unsigned char*>(write.frame.data());
    f[kWordAt] = static_cast<unsigned char>(word >> 8);
    f[kWordAt + 1] = static_cast<unsigned char>(word);
    const unsigned short crc = CalCRC(f, kWriteCrcAt);
    f[kWriteCrcAt] = static_cast<unsigned char>(crc);
    f[kWriteCrcAt + 1] = static_cast<unsigned char>(crc >> 8);
}
