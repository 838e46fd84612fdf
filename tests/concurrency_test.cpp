// Host threads calling into the driver while the polling thread runs. Under ThreadSanitizer they
// must report nothing; anywhere they must not deadlock.
#include <atomic>
#include <mutex>
#include <thread>

#include "base/mutex_lock.h"
#include "codec/bit_word_write.h"
#include "loaded_driver.h"

namespace {

constexpr int kHostWrites = 3000;
constexpr int kHostRounds = 300;
constexpr int kWriteOwner = 1;
constexpr int kOnceReadOwner = 2;

std::mutex callsGuard;
std::map<std::pair<int, int>, int> resultsByItem;

int countResult(int, int ownerId, int itemId, int status) {
    std::lock_guard<std::mutex> lock(callsGuard);
    resultsByItem[{ownerId, itemId}] += status == 1 ? 1 : 1000;
    return 0;
}

class Concurrency : public DriverTest {
protected:
    // Stores a reply the way reply handling does, under cacheMutex.
    void storeWord(const char* word) {
        QByteArray reply = withCrc(bytesOf("01 20 02") + bytesOf(word));
        MutexLock lock(driver.cacheMutex);
        SaveToLocalDataErea(&reply);
    }
    // Completes a bit-of-word write with the word read, as reply handling does: with no lock held,
    // since the completion asks writeList under listMutex.
    void completeWrite(const char* word) {
        QByteArray reply = withCrc(bytesOf("01 20 02") + bytesOf(word));
        SpecialRegisterSave(&reply);
    }

    // One exchange for the head of writeList, its word read answered 0F 0F, then a cyclic read
    // answered 12 34. False when there was nothing to write. Counts bit-of-word writes completed
    // with another word than the read one with the record's bit changed.
    bool writeAndRead(int& wrongCompletions) {
        {
            MutexLock lock(driver.listMutex);
            if (driver.writeList.isEmpty()) {
                return false;
            }
            write_register(driver.writeList.first());
        }
        if (request(0).var.mark == kMarkBitWordRead) {
            completeWrite("0F 0F");
            const RW_VAR& write = request(1).var;
            const unsigned int mask = 1u << (write.address & 15);
            const unsigned int expected =
                write.data.at(0) != 0 ? (0x0F0F | mask) : (0x0F0F & ~mask);
            const QByteArray& frame = request(1).frame;
            const unsigned int sent = static_cast<unsigned char>(frame.at(9)) << 8 |
                                      static_cast<unsigned char>(frame.at(10));
            wrongCompletions += sent != expected ? 1 : 0;
        }
        driver.requestQueue.clear();
        read_register(var(15, 0, 1));
        storeWord("12 34");
        driver.requestQueue.clear();
        MutexLock lock(driver.listMutex);
        driver.writeList.removeFirst();
        return true;
    }
};

}  // namespace

// A host thread writes through SetRegisterData while the polling thread builds write frames,
// completes bit-of-word writes and stores replies, taking the locks as the driver does.
TEST_F(Concurrency, HostWritesWhileRepliesAreStored) {
    info.writeMode = 2;
    std::atomic<bool> hostDone{false};
    std::thread host([this, &hostDone] {
        for (int i = 0; i < kHostWrites; ++i) {
            QByteArray value(2, static_cast<char>(i));
            SetRegisterData(QString(), 29, QString::fromLatin1("10.%1").arg(i % 16), 1, &value, 1,
                            1, i);
            SetRegisterData(QString(), 14, QString::number(i % 64), 1, &value, 1, 2, i);
        }
        hostDone = true;
    });

    int wrongCompletions = 0;
    int exchanges = 0;
    for (;;) {
        const bool finished = hostDone.load();
        if (writeAndRead(wrongCompletions)) {
            // Now and then the link goes down; host threads read the flag atomically.
            __atomic_store_n(&driver.commFailed, ++exchanges % 7 == 0, __ATOMIC_RELAXED);
        } else if (finished) {
            break;
        } else {
            std::this_thread::yield();
        }
    }
    host.join();

    EXPECT_EQ(wrongCompletions, 0);
    EXPECT_GT(exchanges, 0);
    EXPECT_TRUE(driver.requestQueue.isEmpty());
    EXPECT_EQ(word(15, 0), 0x1234);
}

// The polling loop on one thread while host threads plan, register, switch stations, read and
// write; every write that reaches a served station is reported exactly once.
TEST_F(Concurrency, HostThreadsWhilePolling) {
    resultsByItem.clear();
    info.writeMode = 2;
    info.perVarStation = 1;
    info.retryLimit = 3;
    RegistCallBackFuncIntf(countResult, recordError);

    std::atomic<bool> hostsDone{false};
    std::thread poller([&] {
        // Polls until the hosts are done and every write and once-read has been carried out;
        // by then no other thread touches the lists.
        for (;;) {
            const bool finished = hostsDone.load();
            poll();
            if (finished && driver.requestQueue.isEmpty() && driver.writeList.isEmpty() &&
                driver.onceReadList.isEmpty()) {
                break;
            }
        }
    });
    std::thread planner([this] {
        for (int i = 0; i < kHostRounds; ++i) {
            QList<HOSTVAR> vars{cyclicVar(14, "0", 4, 1 + i % 3), cyclicVar(2, "16", 20, 1),
                                cyclicVar(29, "3.2", 1, 2)};
            ReCreatReadVarList(&vars);
        }
    });
    std::thread writer([this] {
        for (int i = 0; i < kHostRounds; ++i) {
            QByteArray value = bytesOf("01 02 03 04 05");
            SetRegisterData(QString(), 14, QString::number(i % 50), 1, &value, 2, kWriteOwner, i);
            RW_VAR once = hostVar(14, "", 2, 2);
            once.ownerId = kOnceReadOwner;
            once.addressText = QString::number(i);
            AddListOnceReadVar(&once, 0);
        }
    });
    std::thread reader([this] {
        QByteArray out;
        for (int i = 0; i < kHostRounds * 4; ++i) {
            GetRegisterData(QString(), i % 2 ? 14 : 29, QString::fromLatin1("2.1"), 1, &out, 8);
            if (i % 100 == 0) {
                EnCommStation(3, i % 200 == 0 ? 0 : 1);
            }
        }
    });
    planner.join();
    writer.join();
    reader.join();
    hostsDone = true;
    poller.join();

    // Every station answers: each write item was reported done exactly once, and once-reads
    // only as done.
    std::lock_guard<std::mutex> lock(callsGuard);
    int writeItems = 0;
    for (const auto& [key, calls] : resultsByItem) {
        if (key.first == kWriteOwner) {
            ++writeItems;
            EXPECT_EQ(calls, 1) << key.second;
        } else {
            EXPECT_EQ(key.first, kOnceReadOwner);
            EXPECT_LT(calls, 1000);
        }
    }
    EXPECT_EQ(writeItems, kHostRounds);
    EXPECT_TRUE(driver.writeList.isEmpty());
    EXPECT_TRUE(driver.onceReadList.isEmpty());
}
