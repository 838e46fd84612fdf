// The head of a local write frame, which the run write and the bit-of-word write share:
//
//   station | 0x1F or 0x21 | area code | address (24 bits) | count (16 bits) | payload length
//
// followed by the payload and the CRC (low byte first) over everything before it.
#ifndef KORVAN_CODEC_WRITE_HEADER_H
#define KORVAN_CODEC_WRITE_HEADER_H

#include "codec/area_codes.h"
#include "codec/byte_order.h"

constexpr int kWriteHeaderLength = 9;  // station .. payload length
constexpr int kWriteAddressAt = 3;
constexpr int kWriteAddressBytes = 3;
constexpr int kWriteCountAt = kWriteAddressAt + kWriteAddressBytes;
constexpr int kWriteCountBytes = 2;
constexpr int kWriteLengthAt = kWriteCountAt + kWriteCountBytes;

// Fields wider than theirs lose their upper bits; the payload length keeps its low 8 bits.
inline void putWriteHeader(unsigned char* f, int station, unsigned char function, int area,
                           int address, int count, int payloadLength) {
    f[0] = static_cast<unsigned char>(station);
    f[1] = function;
    f[2] = areaCode(static_cast<unsigned char>(area));
    putBigEndian(f + kWriteAddressAt, static_cast<quint32>(address), kWriteAddressBytes);
    putBigEndian(f + kWriteCountAt, static_cast<quint32>(count), kWriteCountBytes);
    f[kWriteLengthAt] = static_cast<unsigned char>(payloadLength);
}

#endif
