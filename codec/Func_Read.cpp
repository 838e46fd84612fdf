// The local read frame. A bit area is requested in bits, while the variable counts 16-bit
// groups, so its address and count are scaled by 16 on the wire.
//
//   station | 0x1E or 0x20 | area code | address (24 bits) | count (16 bits) | CRC lo | CRC hi
#include "codec/Func_Read.h"

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/exchange.h"
#include "base/wrapping.h"
#include "codec/area_codes.h"
#include "codec/frames.h"
#include "codec/function_codes.h"

namespace {

constexpr int kReadFrameLength = 10;
constexpr int kReadCrcAt = 8;

}  // namespace

Protocol readRequest(const RW_VAR& var, unsigned char* f) {
    const bool bits =
        static_cast<unsigned int>(var.area) <= static_cast<unsigned int>(korvan::kAreaLastBit);
    const unsigned int first =
        static_cast<unsigned int>(bits ? wrapMul(var.address, kBitsPerWord) : var.address);
    const unsigned int units =
        static_cast<unsigned int>(bits ? wrapMul(var.count, kBitsPerWord) : var.count);

    f[0] = static_cast<unsigned char>(var.station);
    f[1] = bits ? kReadBits : kReadWords;
    f[2] = areaCode(static_cast<unsigned char>(var.area));
    f[3] = static_cast<unsigned char>(first >> 16);
    f[4] = static_cast<unsigned char>(first >> 8);
    f[5] = static_cast<unsigned char>(first);
    f[6] = static_cast<unsigned char>(units >> 8);
    f[7] = static_cast<unsigned char>(units);
    const unsigned short crc = CalCRC(f, kReadCrcAt);
    f[kReadCrcAt] = static_cast<unsigned char>(crc);
    f[kReadCrcAt + 1] = static_cast<unsigned char>(crc >> 8);

    const int dataLength = wrapMul(var.count, kBytesPerWord);
    return makeRequest(QByteArray(reinterpret_cast<const char*>(f), kReadFrameLength),
                       wrapAdd(dataLength, kReplyOverhead), kReplyHeaderLength, dataLength, var);
}

void read_register(const RW_VAR& var) {
    const Protocol request = readRequest(var, PLC_driver.frameBuf);
    startExchange(PLC_driver, request);
}
