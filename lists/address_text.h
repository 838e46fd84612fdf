// Address texts to numbers.
#ifndef KORVAN_LISTS_ADDRESS_TEXT_H
#define KORVAN_LISTS_ADDRESS_TEXT_H

#include <QtCore/QString>

// The address `text` names in `area`: octal for areas 0 and 1, "word.bit" (in bits) for area 29,
// decimal otherwise; -1 (korvan::kAddressInvalid) when it names none. StringAddressToInt's rule.
int parseAddress(int area, const QString& text);

#endif
