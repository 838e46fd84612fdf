// The driver's area numbering, 0..29.
//
// 0..13 are bit areas (0 and 1 take octal address texts), 14..28 word areas, and 29 a bit inside
// a word of area 14, written as word.bit. After normalisation every bit area counts in 16-bit
// words, and area 29 is read and cached as area 14.
#ifndef KORVAN_BASE_AREAS_H
#define KORVAN_BASE_AREAS_H

#include <QtCore/QtGlobal>

#include "korvan_qa_qb_series_port.h"

// Area whose words hold the bits of area 29.
constexpr int kBitOfWordHostArea = korvan::kAreaFirstWord;
// Bytes of one word of a word area, in host buffers, payloads and replies alike.
constexpr int kBytesPerWord = 2;
// Bits of one word.
constexpr int kBitsPerWord = 16;
constexpr int kBitNumberMask = kBitsPerWord - 1;
// A bit address shifted right by this is the word that holds the bit.
constexpr int kWordOfBitShift = 4;

constexpr bool isBitArea(int area) {
    return area >= 0 && area <= korvan::kAreaLastBit;
}
constexpr bool isWordArea(int area) {
    return area >= korvan::kAreaFirstWord && area <= korvan::kAreaLastWord;
}
constexpr bool isOctalArea(int area) {
    return area >= korvan::kAreaFirstBit && area <= korvan::kAreaLastOctal;
}
// Area under which data of `area` live in the register image: 14 for areas 14 and 29.
constexpr int imageArea(int area) {
    return area == korvan::kAreaBitOfWord ? kBitOfWordHostArea : area;
}

// The mask of bit `bitAddress` within the word that holds it.
inline quint16 bitMask(qint64 bitAddress) {
    return static_cast<quint16>(1u << (bitAddress & kBitNumberMask));
}

// `word` with the bits of `mask` set when `on`, cleared otherwise.
inline quint16 withBits(quint16 word, quint16 mask, bool on) {
    return static_cast<quint16>(on ? (word | mask) : (word & ~mask));
}

#endif
