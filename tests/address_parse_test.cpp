// Address texts give what QString::toInt makes of them (split at the one dot for area 29),
// whether they take the short cut for plain digits or the general parse.
#include <gtest/gtest.h>

#include <QtCore/QStringList>

#include "korvan_qa_qb_series_port.h"

namespace {

int byDefinition(int area, const QString& text) {
    bool ok = false;
    if (area == 29) {
        const QStringList parts = text.split(QLatin1Char('.'));
        bool bitOk = false;
        const int word = parts.size() == 2 ? parts.at(0).toInt(&ok, 10) : 0;
        const int bit = parts.size() == 2 ? parts.at(1).toInt(&bitOk, 10) : 0;
        return ok && bitOk ? static_cast<int>(unsigned(word) * 16u + unsigned(bit)) : -1;
    }
    const int value = text.toInt(&ok, area == 0 || area == 1 ? 8 : 10);
    return ok ? value : -1;
}

}  // namespace

TEST(AddressParse, AgreesWithQStringToInt) {
    const QStringList texts =
        QString::fromUtf8(
            "0|7|8|17|18|100|0012|123456789|1234567890|2147483647|"
            "2147483648|99999999999|777777777|7777777777|| | 12|12 |+5|-5|-0|"
            "1 2|0x10|12a|a12|\xd9\xa3|.|3.|.4|3.4|3.20|10.3|1.2.3| 1.2|1. 2|"
            "-1.20|1.-2|123456789.15|1234567890.1|0.999999999|9999999.99999999")
            .split(QLatin1Char('|'));
    for (int area : {0, 1, 2, 13, 14, 28, 29, 30, -1}) {
        for (const QString& text : texts) {
            EXPECT_EQ(StringAddressToInt(area, text), byDefinition(area, text))
                << area << " '" << text.toStdString() << "'";
        }
    }
    for (int n = 0; n < 100000; n += 7) {  // every short digit string, plain and with a dot
        for (const QString& text : {QString::number(n), QString::number(n, 8),
                                    QString::fromLatin1("%1.%2").arg(n).arg(n % 40)}) {
            for (int area : {0, 14, 29}) {
                ASSERT_EQ(StringAddressToInt(area, text), byDefinition(area, text))
                    << area << " '" << text.toStdString() << "'";
            }
        }
    }
}
