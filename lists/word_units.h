// Bit-addressed variables in 16-bit word units, as the driver plans and caches them.
#ifndef KORVAN_LISTS_WORD_UNITS_H
#define KORVAN_LISTS_WORD_UNITS_H

#include "base/areas.h"
#include "base/wrapping.h"

// Converts a bit area's address and count (bits) to the words that cover them; area 29 becomes
// 14. Word areas, and areas outside 0..29, are left as they are.
inline void toWordUnits(int& area, int& address, int& count) {
    const bool bitOfWord = area == korvan::kAreaBitOfWord;
    if (!isBitArea(area) && !bitOfWord) {
        return;
    }
    const int firstBit = address;
    const int bitCount = count;
    // The word that holds the first bit, and the number of words covering all the bits.
    address = firstBit >> kWordOfBitShift;
    count =
        wrapAdd(wrapAdd(firstBit & kBitNumberMask, bitCount), kBitNumberMask) >> kWordOfBitShift;
    if (bitOfWord) {
        area = kBitOfWordHostArea;
    }
}

#endif
