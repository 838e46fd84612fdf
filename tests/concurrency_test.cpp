// A host thread writing words and bits of a word through SetRegisterData while the polling thread
// carries the writes out against the PLC model and reads words back into the image, now and then
// with the link down (the host then mirrors its writes into the image itself). Under
// ThreadSanitizer they must report nothing; anywhere they must not deadlock, every write must be
// reported done, and the PLC's words end as the last writes left them: each bit-of-word write,
// completed from the word read just before, kept the other bits.
#include <atomic>
#include <thread>

#include "base/mutex_lock.h"
#include "loaded_driver.h"

namespace {

constexpr int kWrites = 1600;  // a multiple of 16 and 64: the last 16 bits and 64 words
constexpr int kBitOf = 100;    // the word whose bits are written

class Concurrency : public DriverTest {};

// A pattern of no symmetry, inverted every 16 writes.
char bitValue(int i) {
    return static_cast<char>((0x2C47 >> i % 16 ^ i >> 4) & 1);
}

}  // namespace

TEST_F(Concurrency, HostWritesWhileWritesCompleteAndRepliesAreStored) {
    info.writeMode = 2;
    driver.readList = {var(14, 0, 64)};
    std::atomic<bool> hostDone{false};
    std::thread host([this, &hostDone] {
        for (int i = 0; i < kWrites; ++i) {
            QByteArray bit(1, bitValue(i)), word(2, static_cast<char>(i));
            SetRegisterData(QString(), 29, QString::fromLatin1("%1.%2").arg(kBitOf).arg(i % 16), 1,
                            &bit, 1, 1, i);
            if (SetRegisterData(QString(), 14, QString::number(i % 64), 1, &word, 1, 2, i) > 100) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        }
        hostDone = true;
    });
    for (int exchanges = 1;; ++exchanges) {
        const bool finished = hostDone.load();
        EXPECT_EQ(poll(), 1);
        __atomic_store_n(&driver.commFailed, exchanges % 7 == 0, __ATOMIC_RELAXED);
        MutexLock lock(driver.listMutex);
        if (finished && driver.writeList.isEmpty()) {
            break;
        }
    }
    host.join();

    EXPECT_TRUE(driver.requestQueue.isEmpty());
    EXPECT_EQ(results.size(), 2u * kWrites);
    for (const auto& r : results) {
        ASSERT_EQ(r[3], 1) << "owner " << r[1] << " item " << r[2];
    }
    int bits = 0;
    for (int i = kWrites - 16; i < kWrites; ++i) {
        bits |= bitValue(i) << i % 16;
    }
    EXPECT_EQ(plc.word(1, 0x80, kBitOf), bits);
    for (int a = 0; a < 64; ++a) {
        EXPECT_EQ(plc.word(1, 0x80, a), (kWrites - 64 + a) % 256 * 0x101) << "word " << a;
    }
}
