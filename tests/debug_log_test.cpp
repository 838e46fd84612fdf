// The debug log's time stamp: milliseconds without leading zeros under either Qt major (Qt 5's own
// "z" pads them to three digits). The lines themselves are checked through the loaded library.
#include <gtest/gtest.h>

#include "driver/debug_log.h"

TEST(DebugLog, MillisecondsHaveNoLeadingZeros) {
    const QDate day(2026, 1, 2);
    EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(3, 4, 5, 7))) + QLatin1Char(' ') +
                  debugLogTimeStamp(QDateTime(day, QTime(23, 59, 59, 123))) + QLatin1Char(' ') +
                  debugLogTimeStamp(QDateTime(day, QTime(0, 0, 0, 0))),
              QString::fromLatin1("2026.01.02.03:04:05.7 2026.01.02.23:59:59.123 "
                                  "2026.01.02.00:00:00.0"));
}
