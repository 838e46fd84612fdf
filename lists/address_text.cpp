// Address texts to numbers.
//
// The integer parse is QString::toInt, whose acceptance rules (surrounding white space and a
// leading sign allowed, nothing else) are part of what hosts rely on; plain digits, by far the
// most common text, take a short cut to the same result.
#include "lists/address_text.h"

#include <QtCore/QStringList>

#include "base/areas.h"
#include "base/wrapping.h"

namespace {

constexpr int kInvalidAddress = korvan::kAddressInvalid;
// Digits that cannot overflow an int in base 8 or 10.
constexpr int kLongestPlainNumber = 9;

// The value of a text of 1 to 9 digits of `base` (8 or 10) and nothing else, which is what
// QString::toInt gives for it; -1 for any other text. The general parse (white space, signs,
// overflow, through a locale) costs far more, and plain digits are nearly every address.
int plainNumber(const QChar* text, int length, int base) {
    if (length < 1 || length > kLongestPlainNumber) {
        return kInvalidAddress;
    }
    int value = 0;
    for (int i = 0; i < length; ++i) {
        const unsigned int digit = static_cast<unsigned int>(text[i].unicode()) - u'0';
        if (digit >= static_cast<unsigned int>(base)) {
            return kInvalidAddress;
        }
        value = value * base + static_cast<int>(digit);
    }
    return value;
}

int parseInt(const QString& text, int base) {
    const int plain = plainNumber(text.constData(), text.size(), base);
    if (plain != kInvalidAddress) {
        return plain;
    }
    bool ok = false;
    const int value = text.toInt(&ok, base);
    return ok ? value : kInvalidAddress;
}

// "word.bit", both decimal; the bit part has no upper bound, so 3.20 is the same bit as 4.4.
int parseBitOfWord(const QString& text) {
    const int dot = text.indexOf(QLatin1Char('.'));
    if (dot >= 0) {
        const int word = plainNumber(text.constData(), dot, 10);
        const int bit = plainNumber(text.constData() + dot + 1, text.size() - dot - 1, 10);
        if (word != kInvalidAddress && bit != kInvalidAddress) {
            return wrapAdd(bit, wrapMul(word, kBitsPerWord));
        }
    }
    const QStringList parts = text.split(QLatin1Char('.'));
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

int parseAddress(int area, const QString& text) {
    if (isOctalArea(area)) {
        return parseInt(text, 8);
    }
    if (area == korvan::kAreaBitOfWord) {
        return parseBitOfWord(text);
    }
    return parseInt(text, 10);
}
