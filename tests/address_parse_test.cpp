// Address texts give what QString::toInt makes of them (split at the one dot for area 29),
// whether they take the short cut for plain digits or the general parse.
#include <gtest/gtest.h>

#include <QtCore/QStringList>

#include "korvan_qa_qb_series_port.h"

TEST(AddressParse, AgreesWithQStringToInt) {
    QStringList texts =
        QString::fromUtf8(
            "0|7|8|17|18|0012|123456789|1234567890|2147483648|99999999999|777777777|"
            "7777777777|| | 12|12 |+5|-5|-0|1 2|0x10|12a|\xd9\xa3|.|3.|.4|3.20|"
            "1.2.3| 1.2|1. 2|-1.20|1.-2|123456789.15|0.999999999|9999999.99999999")
            .split(QLatin1Char('|'));
    for (int n = 0; n < 100000; n += 7) {  // every short digit string, plain and with a dot
        texts << QString::number(n) << QString::number(n, 8)
              << QString::fromLatin1("%1.%2").arg(n).arg(n % 40);
    }
    using namespace korvan;
    // Both ends of each class of areas (octal bits, other bits, words, bits of words), and two
    // that are none.
    const int areas[] = {kAreaFirstBit,  kAreaLastOctal,     kAreaLastOctal + 1,
                         kAreaLastBit,   kAreaFirstWord,     kAreaLastWord,
                         kAreaBitOfWord, kAreaBitOfWord + 1, -1};
    for (int area : areas) {
        const bool octal = area >= kAreaFirstBit && area <= kAreaLastOctal;
        for (const QString& text : texts) {
            const QStringList parts = text.split(QLatin1Char('.'));
            bool ok = false, bitOk = false;
            const int value = area != kAreaBitOfWord
                                  ? text.toInt(&ok, octal ? 8 : 10)
                                  : static_cast<int>(unsigned(parts.at(0).toInt(&ok, 10)) * 16u +
                                                     unsigned(parts.last().toInt(&bitOk, 10)));
            const bool valid = area != kAreaBitOfWord ? ok : ok && bitOk && parts.size() == 2;
            ASSERT_EQ(StringAddressToInt(area, text), valid ? value : kAddressInvalid)
                << area << " '" << text.toStdString() << "'";
        }
    }
}

// The values hosts rely on, under either Qt major: areas 0 and 1 octal, white space around and
// a sign allowed, overflow and any other character refused, area 29 as word.bit in 32 bits.
TEST(AddressParse, DefinedValues) {
    const int bitOfWord = korvan::kAreaBitOfWord, invalid = korvan::kAddressInvalid;
    // clang-format off
    const std::tuple<int, const char*, int> cases[] = {
        {0, "17", 15}, {1, "17", 15}, {0, "18", invalid}, {0, " -17 ", -15}, {1, "20000000000", invalid},
        {5, "17", 17}, {-1, "250", 250}, {14, " +12 ", 12}, {14, "-12", -12}, {14, "", invalid},
        {14, "1 2", invalid}, {14, "0x10", invalid}, {14, "12a", invalid}, {14, "2147483648", invalid},
        {14, "-2147483648", -2147483647 - 1}, {28, "2147483647", 2147483647},
        {bitOfWord, "10.3", 163}, {bitOfWord, "3.20", 68}, {bitOfWord, "10.", invalid},
        {bitOfWord, ".3", invalid}, {bitOfWord, "10", invalid}, {bitOfWord, "1.2.3", invalid},
        {bitOfWord, " 10 . 3 ", 163}, {bitOfWord, "2147483647.15", invalid}};
    // clang-format on
    for (const auto& [area, text, expected] : cases) {
        EXPECT_EQ(StringAddressToInt(area, QString::fromLatin1(text)), expected)
            << area << " '" << text << "'";
    }
}
