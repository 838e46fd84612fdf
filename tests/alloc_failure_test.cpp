// Memory exhaustion at every point of each entry point that promises a fallback: the Nth
// allocation inside the call fails, for every N until the call needs fewer. Each time the call
// must take its defined fallback, leave no lock held, and leave the driver able to run a whole
// exchange afterwards.
//
// malloc, calloc and realloc are replaced in this program; operator new, Qt and the loaded library
// all allocate through them. It is built only without sanitizers, which replace them too.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "loaded_driver.h"

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* p, size_t size);

namespace {

// Allocations still allowed before the one that fails; negative: none fails.
thread_local long allocationsLeft = -1;
thread_local bool failed = false;

bool failThisAllocation() {
    if (allocationsLeft < 0) {
        return false;
    }
    if (allocationsLeft-- == 0) {
        failed = true;
        return true;
    }
    return false;
}

}  // namespace

extern "C" void* malloc(size_t size) {
    return failThisAllocation() ? nullptr : __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
    return failThisAllocation() ? nullptr : __libc_calloc(count, size);
}
extern "C" void* realloc(void* p, size_t size) {
    return failThisAllocation() ? nullptr : __libc_realloc(p, size);
}

namespace {

class AllocFailureTest : public DriverTest {
protected:
    // Runs `call` with its Nth allocation failing, for N = 0, 1, ... until it runs through
    // without reaching the failure; `check` judges each failed run. Returns how many failed.
    int exhaust(const std::function<void()>& setUp, const std::function<void()>& call,
                const std::function<void()>& check) {
        int failures = 0;
        for (long n = 0; n < 10000; ++n) {
            DriverTest::SetUp();
            info.retryCount = 0;
            setUp();
            failed = false;
            allocationsLeft = n;
            bool escaped = false;
            try {
                call();
            } catch (const std::bad_alloc&) {
                escaped = true;
            }
            allocationsLeft = -1;
            if (!failed) {
                return failures;
            }
            ++failures;
            EXPECT_FALSE(escaped) << "an exception escaped at allocation " << n;
            check();
            expectUnlockedAndUsable(n);
        }
        ADD_FAILURE() << "the call never ran through";
        return failures;
    }

    void expectUnlockedAndUsable(long n) {
        for (QMutex* m : {&driver.listMutex, &driver.cacheMutex, &driver.stationMutex}) {
            ASSERT_TRUE(m->tryLock()) << "a lock is still held after allocation " << n;
            m->unlock();
        }
        driver.requestQueue.clear();
        driver.writeList.clear();
        driver.onceReadList.clear();
        driver.readList = {var(14, 500, 1)};
        plc.setWord(1, 0x80, 500, 0x5A5A);
        EXPECT_EQ(poll(), 1) << "after allocation " << n;
        QByteArray out;
        GetRegisterData(QString(), 14, QString::fromLatin1("500"), 1, &out, 1);
        EXPECT_EQ(out, QByteArray("\x5A\x5A")) << "after allocation " << n;
    }
};

}  // namespace

TEST_F(AllocFailureTest, SchedulerLeavesTheEntryInPlaceAndSendsNothing) {
    const int failures = exhaust([&] { driver.writeList.append(writeVar(14, 3, 2, "01010101")); },
                                 [&] { ComCommunication(); },
                                 [&] {
                                     EXPECT_TRUE(driver.requestQueue.isEmpty());
                                     EXPECT_EQ(driver.writeList.size(), 1);
                                     EXPECT_EQ(info.framesInExchange, 0);
                                     EXPECT_EQ(info.scanDone, 1);
                                 });
    EXPECT_GT(failures, 0);
}

TEST_F(AllocFailureTest, ReplyJudgingFailureIsARetry) {
    QByteArray reply;
    const int failures = exhaust(
        [&] {
            driver.readList.append(var(14, 100, 40));
            const QByteArray f = ComCommunication()->frame;
            reply = toQt(plc.handle(plcsim::Bytes(f.begin(), f.end())).bytes);
            reply.append("trailing");  // judged on its first `length` bytes: a copy is made
        },
        [&] { DataCom(&reply, reply.size() - 8); },
        [&] {
            const int code = driver.retVar.result;
            EXPECT_TRUE(code == 0 || code == 1) << code;
        });
    EXPECT_GT(failures, 0);
}

TEST_F(AllocFailureTest, OnceReadRegistrationKeepsWhatItQueued) {
    RW_VAR v;
    const int failures =
        exhaust([&] { v = hostVar(20, "0", 250); }, [&] { AddListOnceReadVar(&v, 0); },
                [&] { EXPECT_LE(driver.onceReadList.size(), 3); });
    EXPECT_GT(failures, 0);
}

TEST_F(AllocFailureTest, RebuildReturnsWhatItPlanned) {
    int planned = -1;
    QList<HOSTVAR> tags;
    for (int i = 0; i < 6; ++i) {
        HOSTVAR h;
        h.area = static_cast<quint8>(i % 2 ? 14 : 2);
        h.addressText = QString::number(i * 150);
        h.count = 120;
        tags.append(h);
    }
    const int failures = exhaust([] {}, [&] { planned = ReCreatReadVarList(&tags); },
                                 [&] { EXPECT_EQ(planned, driver.readList.size()); });
    EXPECT_GT(failures, 0);
}

TEST_F(AllocFailureTest, HostReadGivesAnEmptyBufferOrTheValue) {
    QByteArray out;
    int result = -1;
    const QString address =
        QString::fromLatin1("7");  // made here: only the driver's allocations fail
    const int failures =
        exhaust([&] { driver.registerCache.insert((1ull << 56) | (14ull << 48) | 7, 0x1234); },
                [&] { result = GetRegisterData(QString(), 14, address, 1, &out, 3); },
                [&] {
                    EXPECT_EQ(result, 1);
                    EXPECT_TRUE(out.isEmpty() || out == QByteArray("\x34\x12\0\0\0\0", 6));
                });
    EXPECT_GE(failures, 0);  // a read may need no allocation the text parse does not make
}

TEST_F(AllocFailureTest, HostWriteKeepsThePiecesIssued) {
    int result = -1;
    QByteArray values;
    const QString address = QString::fromLatin1("10");
    const int failures = exhaust(
        [&] {
            info.maxUnits = 2;
            info.writeMode = 2;
            values = QByteArray(12, '\7');
        },
        [&] { result = SetRegisterData(QString(), 14, address, 1, &values, 6, 1, 1); },
        [&] {
            EXPECT_EQ(result, driver.writeList.size());
            EXPECT_LE(result, 3);
        });
    EXPECT_GT(failures, 0);
}
