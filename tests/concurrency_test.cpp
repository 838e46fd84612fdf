// Host threads calling into the driver while the polling thread runs. Under ThreadSanitizer they
// must report nothing; anywhere they must not deadlock.
#include <atomic>
#include <thread>

#include "base/mutex_lock.h"
#include "codec/bit_word_write.h"
#include "loaded_driver.h"

namespace {

constexpr int kHostWrites = 3000;

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
