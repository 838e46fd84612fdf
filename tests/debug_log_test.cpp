// The debug log's time stamp and lines.
#include <gtest/gtest.h>

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

#include "driver/debug_log.h"
#include "korvan_qa_qb_series_port.h"

namespace {

QList<QByteArray> logLines() {
    QFile file(QString::fromLatin1(kDebugLogPath));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return file.readAll().split('\n');
}

}  // namespace

TEST(DebugLog, MillisecondsHaveNoLeadingZeros) {
    const QDate day(2026, 1, 2);
    EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(3, 4, 5, 7))),
              QStringLiteral("2026.01.02.03:04:05.7"));
    EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(23, 59, 59, 123))),
              QStringLiteral("2026.01.02.23:59:59.123"));
    EXPECT_EQ(debugLogTimeStamp(QDateTime(day, QTime(0, 0, 0, 0))),
              QStringLiteral("2026.01.02.00:00:00.0"));
}

TEST(DebugLog, AppendsOneStampedLinePerMessage) {
    QFile::remove(QString::fromLatin1(kDebugLogPath));
    QFile seed(QString::fromLatin1(kDebugLogPath));
    ASSERT_TRUE(seed.open(QIODevice::WriteOnly));
    seed.write("earlier\n");
    seed.close();

    customMessageHandler(QtFatalMsg, "line one");  // fatal is logged and the handler returns
    customMessageHandler(QtDebugMsg, "");
    customMessageHandler(QtWarningMsg, nullptr);

    const QList<QByteArray> lines = logLines();
    ASSERT_EQ(lines.size(), 5);  // three new lines after the earlier one, then the final newline
    EXPECT_EQ(lines[0], QByteArray("earlier"));
    const QRegularExpression stamp(
        QStringLiteral("^\\d{4}\\.\\d{2}\\.\\d{2}\\.\\d{2}:\\d{2}:\\d{2}\\.\\d{1,3}:"));
    EXPECT_TRUE(stamp.match(QString::fromLatin1(lines[1])).hasMatch()) << lines[1].constData();
    EXPECT_TRUE(lines[1].endsWith(":line one"));
    EXPECT_TRUE(lines[2].endsWith(':'));
    EXPECT_TRUE(stamp.match(QString::fromLatin1(lines[2])).hasMatch());
    EXPECT_TRUE(lines[3].endsWith(':'));
    EXPECT_TRUE(lines[4].isEmpty());
}
