// Address texts to numbers, and bit addresses to 16-bit words.
//
// The integer parse is QString::toInt, whose acceptance rules (surrounding white space and a
// leading sign allowed, nothing else) are part of what hosts rely on.
#include <QtCore/QStringList>

#include "driver/Communication_Protocol.h"
#include "driver/areas.h"
#include "driver/wrapping.h"

namespace {

constexpr int kInvalidAddress = -1;
constexpr int kBitsPerWord = 16;

int parseInt(const QString& text, int base) {
    bool ok = false;
    const int value = text.toInt(&ok, base);
    return ok ? value : kInvalidAddress;
}

// "word.bit", both decimal; the bit part has no upper bound, so 3.20 is the same bit as 4.4.
int parseBitOfWord(const QString& text) {
    const QStringList parts = text.split(QLatin1Char('.'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (parts.size() != 2) {
        return kInvalidAddress;
    }
    bool wordOk = false;
    bool bitOk = false;
    const int word = parts.at(0).toInt(&wordOk, 10);
    const int bit = parts.at(1).toInt(&bitOk, 10);
    if (!wordOk || !bitOk) {
        return kInvalidAddress;
    }
    return wrapAdd(bit, wrapMul(word, kBitsPerWord));
}

}  // namespace

int StringAddressToInt(int area, QString text) {
    if (isOctalArea(area)) {
        return parseInt(text, 8);
    }
    if (area == kBitOfWordArea) {
        return parseBitOfWord(text);
    }
    return parseInt(text, 10);
}

int PLCAddressChangeIntef(int area, QString text) {
    return StringAddressToInt(area, text);
}

int Communication_Protocol::get_plc_reg(int area) {
    return imageArea(area);
}

void Communication_Protocol::update_rw_var(RW_VAR* var) {
    if (var == nullptr) {
        return;
    }
    const bool bitOfWord = var->area == kBitOfWordArea;
    if (!isBitArea(var->area) && !bitOfWord) {
        return;
    }
    const int firstBit = var->address;
    const int bitCount = var->count;
    // The word that holds the first bit, and the number of words covering all the bits.
    var->address = firstBit >> 4;
    var->count = wrapAdd(wrapAdd(firstBit & 15, bitCount), 15) >> 4;
    if (bitOfWord) {
        var->area = kBitOfWordHostArea;
    }
}
