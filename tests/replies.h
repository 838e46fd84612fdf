// Replies as a PLC sends them.
#ifndef KORVAN_TESTS_REPLIES_H
#define KORVAN_TESTS_REPLIES_H

#include <QtCore/QByteArray>

#include "hex.h"
#include "korvan_qa_qb_series_port.h"

// The bytes given, then their CRC, low byte first.
inline QByteArray withCrc(QByteArray frame) {
    const unsigned short crc = CalCRC(reinterpret_cast<unsigned char*>(frame.data()),
                                      static_cast<unsigned short>(frame.size()));
    frame.append(static_cast<char>(crc));
    frame.append(static_cast<char>(crc >> 8));
    return frame;
}

// A read reply from station 1 carrying `data` (hex).
inline QByteArray replyCarrying(const char* data) {
    return withCrc(bytesOf("01 20 00") + bytesOf(data));
}

#endif
