// Keys of registerCache: one 16-bit PLC word per key.
//
//   bits 56..63  station (low 8 bits)
//   bits 48..55  cache area: the area index, with 29 folded to 14, whose words hold its bits
//   bits  0..47  word address, the record's signed address widened with its sign
//
// Consecutive words have consecutive keys. Bit areas are keyed by the 16-bit group that holds
// the bit, so a bit address splits into a word key and a bit number.
#ifndef KORVAN_IMAGE_CACHE_KEY_H
#define KORVAN_IMAGE_CACHE_KEY_H

#include <QtCore/QtGlobal>

#include "base/areas.h"

constexpr int kCacheStationShift = 56;
constexpr int kCacheAreaShift = 48;
constexpr quint64 kCacheFieldMask = 0xFF;

inline quint64 cacheKeyBase(int station, int area) {
    const quint64 cacheArea = static_cast<quint64>(imageArea(area));
    return (static_cast<quint64>(station) & kCacheFieldMask) << kCacheStationShift |
           (cacheArea & kCacheFieldMask) << kCacheAreaShift;
}

inline quint64 cacheKey(quint64 base, qint64 wordAddress) {
    return base | static_cast<quint64>(wordAddress);
}

// Key of the word that holds bit `bitAddress`.
inline quint64 bitKey(quint64 base, qint64 bitAddress) {
    return cacheKey(base, bitAddress >> kWordOfBitShift);
}

#endif
