// Check values of frames. Local frames and every reply end in a CRC-16 (the Modbus
// parameters: reflected polynomial 0xA001, initial value 0xFFFF, no final XOR), sent low byte
// first; remote frames end in the low byte of the additive sum. CalLRC and CalXOR complete the
// exported set; no frame of this driver uses them.
//
// A null buffer counts as an empty one.
#include "korvan_qa_qb_series_port.h"

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
