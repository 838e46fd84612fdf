// The few places where Qt 4 (the panel's Qt) and Qt 5 (the development host's) differ in what
// the driver uses. Everything else is written once, in the API both share.
#ifndef KORVAN_BASE_QT_COMPAT_H
#define KORVAN_BASE_QT_COMPAT_H

#include <QtCore/qglobal.h>
#include <QtCore/QDateTime>
#include <QtCore/QLatin1String>
#include <QtCore/QMutex>
#include <QtCore/QString>

namespace qtcompat {

// One try at a free, non-recursive mutex without waiting. Qt 5's QBasicMutex::tryLock is inline
// (one atomic compare-and-swap); Qt 4 has only QMutex's out-of-line one.
inline bool tryLockOnce(QMutex& mutex) {
#if QT_VERSION < 0x050000
    return mutex.tryLock();
#else
    return static_cast<QBasicMutex&>(mutex).tryLock();
#endif
}

// `when` formatted by `format`, then its milliseconds without leading zeros (7 ms as 7): what
// Qt 4's "z" prints. Qt 5's "z" pads to three digits, so there the number is appended instead.
inline QString formatWithMilliseconds(const QDateTime& when, const char* format) {
#if QT_VERSION < 0x050000
    return when.toString(QLatin1String(format) + QLatin1String("z"));
#else
    return when.toString(QLatin1String(format)) + QString::number(when.time().msec());
#endif
}

}  // namespace qtcompat

#endif
