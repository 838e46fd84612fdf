// A host thread writing through SetRegisterData while the polling thread builds write frames
// and stores replies, the way the scheduler and reply handling take the locks. Run under
// ThreadSanitizer, it must report nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "codec/frames.h"
#include "driver/bit_word_write.h"
#include "driver/comm_failed.h"
#include "driver/mutex_lock.h"
#include "driver_fixture.h"
#include "image/register_image.h"
#include "replies.h"

namespace {

constexpr int kHostWrites = 3000;
constexpr quint16 kWordRead = 0x0F0F;  // what the PLC answers to every word read

void storeUnderCacheLock(QByteArray reply) {
    MutexLock lock(PLC_driver.cacheMutex);
    SaveToLocalDataErea(&reply);
}

// One exchange for the head of writeList, answered well, then a cyclic read. Returns false when
// there was nothing to write. Counts bit-of-word writes completed with the wrong word.
bool pollOnce(int& wrongCompletions) {
    {
        MutexLock lock(PLC_driver.listMutex);
        if (PLC_driver.writeList.isEmpty()) {
            return false;
        }
        write_register(PLC_driver.writeList.first());
    }
    QList<Protocol>& queue = PLC_driver.requestQueue;
    if (queue.first().var.mark == kMarkBitWordRead) {
        storeUnderCacheLock(replyCarrying("0F 0F"));
        const RW_VAR& write = queue.at(1).var;
        const unsigned int mask = 1u << (write.address & 15);
        const unsigned int expected =
            write.data.at(0) != 0 ? (kWordRead | mask) : (kWordRead & ~mask);
        const QByteArray& frame = queue.at(1).frame;
        const unsigned int sent =
            static_cast<unsigned char>(frame.at(9)) << 8 | static_cast<unsigned char>(frame.at(10));
        wrongCompletions += sent != expected ? 1 : 0;
    }
    queue.clear();

    RW_VAR cyclic;
    cyclic.area = 15;
    cyclic.address = 0;
    cyclic.count = 1;
    cyclic.station = 1;
    read_register(cyclic);
    storeUnderCacheLock(replyCarrying("12 34"));
    queue.clear();

    MutexLock lock(PLC_driver.listMutex);
    PLC_driver.writeList.removeFirst();
    return true;
}

class RegisterImageConcurrency : public DriverTest {};

TEST_F(RegisterImageConcurrency, HostWritesWhileRepliesAreStored) {
    info.writeMode = 2;
    std::atomic<bool> hostDone{false};

    std::thread host([&hostDone] {
        for (int i = 0; i < kHostWrites; ++i) {
            QByteArray value(2, static_cast<char>(i));
            const QString bit = QStringLiteral("10.%1").arg(i % 16);
            SetRegisterData(QString(), 29, bit, 1, &value, 1, 1, i);
            SetRegisterData(QString(), 14, QString::number(i % 64), 1, &value, 1, 2, i);
        }
        hostDone = true;
    });

    int wrongCompletions = 0;
    int exchanges = 0;
    for (;;) {
        const bool finished = hostDone.load();
        if (pollOnce(wrongCompletions)) {
            setCommFailed(++exchanges % 7 == 0);  // now and then the link goes down
        } else if (finished) {
            break;
        } else {
            std::this_thread::yield();
        }
    }
    host.join();

    EXPECT_EQ(wrongCompletions, 0);
    EXPECT_GT(exchanges, 0);
    EXPECT_TRUE(PLC_driver.requestQueue.isEmpty());
    EXPECT_EQ(PLC_driver.registerCache.value(quint64(1) << 56 | quint64(15) << 48), 0x1234);
}

}  // namespace
