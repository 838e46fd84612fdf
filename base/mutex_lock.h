// The one way the driver takes its mutexes.
//
// Debian's QtCore is not instrumented for ThreadSanitizer, so TSan cannot see QMutex
// acquire/release pairs and would report every guarded access as a race. When the build runs
// under TSan, each lock and unlock is announced through the sanitizer's mutex annotations; in
// every other build the locker is a plain QMutex lock.
#ifndef KORVAN_BASE_MUTEX_LOCK_H
#define KORVAN_BASE_MUTEX_LOCK_H

#include <QtCore/QMutex>

#include "base/qt_compat.h"

#if defined(__SANITIZE_THREAD__)
#define KORVAN_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KORVAN_TSAN 1
#endif
#endif

#if defined(KORVAN_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

// The driver holds a lock for one reply's store or one step on a list, a microsecond or so, but
// a QMutex that finds itself taken puts the thread to sleep at once, and waking it takes tens of
// microseconds, far longer than the wait it avoids. So a taken mutex is first tried again for a
// short while.
constexpr int kLockSpinTries = 100;

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}

inline bool spinForMutex(QMutex& mutex) {
    for (int i = 0; i < kLockSpinTries; ++i) {
        if (qtcompat::tryLockOnce(mutex)) {
            return true;
        }
        cpuRelax();
    }
    return false;
}

inline void lockMutex(QMutex& mutex) {
#if defined(KORVAN_TSAN)
    __tsan_mutex_pre_lock(&mutex, 0);
    if (!spinForMutex(mutex)) {
        mutex.lock();
    }
    __tsan_mutex_post_lock(&mutex, 0, 0);
#else
    if (!spinForMutex(mutex)) {
        mutex.lock();
    }
#endif
}

inline void unlockMutex(QMutex& mutex) {
#if defined(KORVAN_TSAN)
    __tsan_mutex_pre_unlock(&mutex, 0);
    mutex.unlock();
    __tsan_mutex_post_unlock(&mutex, 0);
#else
    mutex.unlock();
#endif
}

// Scoped lock. Lock order: listMutex first, then stationMutex or cacheMutex; nothing is taken
// while cacheMutex is held.
class MutexLock {
public:
    explicit MutexLock(QMutex& mutex) : mutex_(mutex) { lockMutex(mutex_); }
    ~MutexLock() { unlockMutex(mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    QMutex& mutex_;
};

#endif
