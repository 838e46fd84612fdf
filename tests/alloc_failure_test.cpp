// The Nth allocation inside each entry point that promises a fallback fails, for every N until the
// call needs fewer: the call takes its fallback, lets no exception out, holds no lock, and the
// driver runs a whole exchange afterwards. malloc, calloc and realloc, through which operator new,
// Qt and the library allocate, are replaced here (so no sanitizer build, which replaces them too).
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
    failed = failed || allocationsLeft == 0;
    return allocationsLeft >= 0 && allocationsLeft-- == 0;
}

class AllocFailureTest : public DriverTest {
protected:
    // Runs `call` with its Nth allocation failing, N = 0, 1, ..., until it runs through; `check`
    // judges each run that met the failure.
    void exhaust(const std::function<void()>& setUp, const std::function<void()>& call,
                 const std::function<void()>& check, bool mustAllocate = true) {
        for (long n = 0; n < 10000; ++n) {
            DriverTest::SetUp();
            info.retryCount = 0;
            setUp();
            failed = false;
            allocationsLeft = n;
            try {
                call();
            } catch (const std::bad_alloc&) {
                ADD_FAILURE() << "an exception escaped at allocation " << n;
            }
            allocationsLeft = -1;
            if (!failed) {
                EXPECT_TRUE(n > 0 || !mustAllocate) << "no allocation failed";
                return;
            }
            SCOPED_TRACE("allocation " + std::to_string(n));
            check();
            for (QMutex* m : {&driver.listMutex, &driver.cacheMutex, &driver.stationMutex}) {
                ASSERT_TRUE(m->tryLock()) << "a lock is still held";
                m->unlock();
            }
            DriverTest::SetUp();
            driver.readList = {var(14, 500, 1)};
            plc.setWord(1, 0x80, 500, 0x5A5A);
            EXPECT_EQ(poll(), korvan::kResultGood);
            EXPECT_EQ(read(14, "500", 1), QByteArray("\x5A\x5A"));
        }
        ADD_FAILURE() << "the call never ran through";
    }

    int result = -1;  // what the call returned
};

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

TEST_F(AllocFailureTest, SchedulerLeavesTheEntryInPlaceAndSendsNothing) {
    exhaust([&] { driver.writeList.append(writeVar(14, 3, 2, "01010101")); },
            [&] { ComCommunication(); },
            [&] {
                EXPECT_TRUE(driver.requestQueue.isEmpty());
                EXPECT_EQ(driver.writeList.size(), 1);
                EXPECT_EQ(info.framesInExchange, 0);
                EXPECT_EQ(info.scanDone, korvan::kScanDone);
            });
}

TEST_F(AllocFailureTest, ReplyJudgingFailureIsARetry) {
    QByteArray reply;
    exhaust(
        [&] {
            driver.readList.append(var(14, 100, 40));
            ComCommunication();
            reply = plcReply().append("trailing");  // judged on its first bytes: a copy is made
        },
        [&] { DataCom(&reply, reply.size() - 8); },
        [&] {
            EXPECT_TRUE(driver.retVar.result == korvan::kResultRetry ||
                        driver.retVar.result == korvan::kResultGood);
        });
}

TEST_F(AllocFailureTest, OnceReadRegistrationKeepsWhatItQueued) {
    RW_VAR v;
    exhaust([&] { v = hostVar(20, "0", 250); },
            [&] { AddListOnceReadVar(&v, korvan::kOnceReadPlanned); },
            [&] { EXPECT_LE(driver.onceReadList.size(), 3); });
}

TEST_F(AllocFailureTest, RebuildReturnsWhatItPlanned) {
    QList<HOSTVAR> tags;
    for (int i = 0; i < 6; ++i) {
        tags.append(cyclicVar(i % 2 ? 14 : 2, QString::number(i * 150), 120));
    }
    exhaust([] {}, [&] { result = ReCreatReadVarList(&tags); },
            [&] { EXPECT_EQ(result, driver.readList.size()); });
}

// A read may need no allocation but the text parse's.
TEST_F(AllocFailureTest, HostReadGivesAnEmptyBufferOrTheValue) {
    QByteArray out;
    const QString address = QString::fromLatin1("7");  // made here: only the driver's fail
    exhaust([&] { setWord(14, 7, 0x1234); },
            [&] { result = GetRegisterData(QString(), 14, address, 1, &out, 3); },
            [&] {
                EXPECT_EQ(result, korvan::kReadDone);
                EXPECT_TRUE(out.isEmpty() || out == QByteArray("\x34\x12\0\0\0\0", 6));
            },
            false);
}

TEST_F(AllocFailureTest, HostWriteKeepsThePiecesIssued) {
    QByteArray values;
    const QString address = QString::fromLatin1("10");
    exhaust(
        [&] {
            info.maxUnits = 2;
            info.writeMode = korvan::kWriteToPlc;
            values = QByteArray(12, '\7');
        },
        [&] { result = SetRegisterData(QString(), 14, address, 1, &values, 6, 1, 1); },
        [&] {
            EXPECT_EQ(result, driver.writeList.size());
            EXPECT_LE(result, 3);
        });
}
