// Checksums, digit helpers and the validation of replies.
#include "codec/Func_Check.h"

#include "base/Communication_Protocol.h"
#include "base/exchange.h"
#include "base/wrapping.h"

// Check values of frames. Local frames and every reply end in a CRC-16 (the Modbus
// parameters: reflected polynomial 0xA001, initial value 0xFFFF, no final XOR), sent low byte
// first; remote frames end in the low byte of the additive sum. CalLRC and CalXOR complete the
// exported set; no frame of this driver uses them.
//
// A null buffer counts as an empty one.

namespace {

constexpr unsigned short kCrcInit = 0xFFFF;
constexpr unsigned short kCrcPolynomial = 0xA001;

}  // namespace

unsigned short CalCRC(unsigned char* data, unsigned short length) {
    unsigned short crc = kCrcInit;
    if (data == nullptr) {
        return crc;
    }
    for (unsigned short i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = (crc & 1) != 0;
            crc >>= 1;
            if (carry) {
                crc ^= kCrcPolynomial;
            }
        }
    }
    return crc;
}

unsigned short CalSUM(unsigned char* data, unsigned short length) {
    unsigned short sum = 0;
    for (unsigned short i = 0; data != nullptr && i < length; ++i) {
        sum = static_cast<unsigned short>(sum + data[i]);
    }
    return sum;
}

// Two's complement of the byte sum, in 1..256: a sum whose low byte is 0 gives 256.
unsigned short CalLRC(unsigned char* data, unsigned short length) {
    unsigned int sum = 0;
    for (unsigned short i = 0; data != nullptr && i < length; ++i) {
        sum += data[i];
    }
    return static_cast<unsigned short>((~sum & 0xFF) + 1);
}

// The first byte is taken whatever the length, so a length of 0 or 1 returns it.
unsigned short CalXOR(unsigned char* data, unsigned short length) {
    if (data == nullptr) {
        return 0;
    }
    unsigned char value = data[0];
    for (unsigned short i = 1; i < length; ++i) {
        value ^= data[i];
    }
    return value;
}

// Hexadecimal digit helpers. Neither has a range test: any value is offset by one of the two
// constants, and lower-case letters are not folded (0x61 gives 42).
int DigitalToASCII(int value) {
    return wrapAdd(value, value <= 9 ? 0x30 : 0x37);
}

int ASCIIToDigital(int character) {
    if (character < 0x30 || character == 0x40) {
        return 0;
    }
    return character <= 0x3F ? character - 0x30 : character - 0x37;
}

// Validation of a reply: its length, the station byte and the CRC.

int checkReply(const RW_VAR& request, ReplyBytes reply) {
    if (request.station == kBroadcastStation) {
        return kReplyNothingToStore;  // a broadcast gets no answer
    }
    const int size = reply.size;
    if (reply.data == nullptr || size < kMinReplyLength) {
        return kReplyInvalid;
    }
    const unsigned char* bytes = reply.data;
    if (static_cast<int>(bytes[0]) != request.station) {
        return kReplyInvalid;
    }
    // CalCRC does not write through its pointer. Its count is 16 bits wide: a reply longer than
    // any frame is checked over a shortened count and fails, without reading past its end.
    const unsigned int crc =
        CalCRC(const_cast<unsigned char*>(bytes), static_cast<unsigned short>(size - kCrcLength));
    if (crc != bytes[size - 2] + 256u * bytes[size - 1]) {
        return kReplyInvalid;
    }
    return request.direction != 0 ? kReplyNothingToStore : kReplyStore;
}

// The count alone tells whether anything arrived and whether it is as long as expected. The
// host's count is checked against the bytes it really handed over, so a count that claims more
// never leads to reading past them.
Verdict judgeReply(const Protocol& head, const QByteArray* reply, int length) {
    if (reply == nullptr) {
        length = 0;
    }
    if (length == 0 && head.replyLength != korvan::kReplyNone) {
        return Verdict::NothingReceived;
    }
    if (head.replyLength != length && head.replyLength != korvan::kReplyAnyLength) {
        return Verdict::WrongLength;
    }
    if (length < 0 || length > (reply != nullptr ? reply->size() : 0)) {
        return Verdict::WrongLength;
    }
    const int content = checkReply(head.var, receivedBytes(reply, length));
    if (content == kReplyInvalid) {
        return Verdict::Invalid;
    }
    if (content != kReplyStore) {
        return Verdict::NothingToStore;
    }
    return isBitWordRead(head) ? Verdict::CompletesWrite : Verdict::Store;
}

int CheckGetData(const QByteArray* reply) {
    Communication_Protocol& d = PLC_driver;
    if (!requestQueued(d)) {
        return kReplyInvalid;
    }
    return checkReply(headRequest(d).var,
                      receivedBytes(reply, reply != nullptr ? reply->size() : 0));
}
