// The debug log's time stamp: milliseconds without leading zeros under either Qt major (Qt 5's own
// "z" pads them to three digits).
#include <gtest/gtest.h>

#include "driver/debug_log.h"

TEST(DebugLog, MillisecondsHaveNoLeadingZeros) {
    const QDate day(2026, 1, 2);
    for (const auto& [ms, stamp] : {std::make_pair(7, "2026.01.02.03:04:05.7"),
                                    std::make_pair(123, "2026.01.02.03:04:05.123"),
                                    std::make_pair(0, "2026.01.02.03:04:05.0")}) {
        EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(3, 4, 5, ms))),
                  QString::fromLatin1(stamp));
    }
}
