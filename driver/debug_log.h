// The debug log that a host gets by installing customMessageHandler.
#ifndef KORVAN_DRIVER_DEBUG_LOG_H
#define KORVAN_DRIVER_DEBUG_LOG_H

#include <QtCore/QDateTime>
#include <QtCore/QString>

constexpr const char kDebugLogPath[] = "/tmp/debug.log";

// "yyyy.MM.dd.hh:mm:ss.z" with z the milliseconds without leading zeros (7 ms prints as 7).
QString debugLogTimeStamp(const QDateTime& when);

#endif
