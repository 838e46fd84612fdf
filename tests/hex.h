// Byte vectors written the way frames are written down: two hex digits a byte, spaced.
#ifndef KORVAN_TESTS_HEX_H
#define KORVAN_TESTS_HEX_H

#include <QtCore/QByteArray>

#include <string>

inline std::string hex(const QByteArray& bytes) {
    return bytes.toHex(' ').toUpper().toStdString();
}

inline QByteArray bytesOf(const char* hexText) {
    return QByteArray::fromHex(hexText);
}

#endif
