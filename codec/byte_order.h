// Multi-byte frame fields go out most significant byte first.
#ifndef KORVAN_CODEC_BYTE_ORDER_H
#define KORVAN_CODEC_BYTE_ORDER_H

#include <QtCore/QtGlobal>

// Writes the low `bytes` bytes of `value` at `to`; wider values lose their upper bits.
inline void putBigEndian(unsigned char* to, quint32 value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        to[i] = static_cast<unsigned char>(value);
        value >>= 8;
    }
}

#endif
