// The debug log that a host gets by installing customMessageHandler.
#ifndef KORVAN_DRIVER_DEBUG_LOG_H
#define KORVAN_DRIVER_DEBUG_LOG_H

#include <QtCore/QDateTime>
#include <QtCore/QString>

constexpr const char kDebugLogPath[] = "/tmp/debug.log";

// "yyyy.MM.dd.hh:mm:ss.z" with z the milliseconds without leading zeros (7 ms prints as 7).
QString debugLogTimeStamp(const QDateTime& when);

// Appends one time-stamped line holding `msg` (Latin-1) to the file at `path`, created with mode
// 0600 when missing. Skips the line, silently, unless the path names a regular file of the
// effective user with no other link; a symbolic link, a FIFO, a directory or a device is never
// opened for writing or followed.
void appendDebugLogLine(const char* path, const char* msg);

#endif
