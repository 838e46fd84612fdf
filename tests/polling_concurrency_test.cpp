// The polling loop on one thread while host threads plan, register, switch stations, read and
// write. Run under ThreadSanitizer it must report nothing; anywhere it must not deadlock, and
// every write that reaches a served station is reported exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "host_list.h"
#include "polling_harness.h"

namespace {

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

class PollingConcurrency : public PollingTest {};

}  // namespace

TEST_F(PollingConcurrency, HostThreadsWhilePolling) {
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
            if (finished && PLC_driver.requestQueue.isEmpty() && PLC_driver.writeList.isEmpty() &&
                PLC_driver.onceReadList.isEmpty()) {
                break;
            }
        }
    });

    std::thread planner([] {
        for (int i = 0; i < kHostRounds; ++i) {
            QList<HOSTVAR> vars{cyclicVar(14, "0", 4, 1 + i % 3), cyclicVar(2, "16", 20, 1),
                                cyclicVar(29, "3.2", 1, 2)};
            ReCreatReadVarList(&vars);
        }
    });
    std::thread writer([] {
        for (int i = 0; i < kHostRounds; ++i) {
            QByteArray value = QByteArray::fromHex("0102030405");
            SetRegisterData(QString(), 14, QString::number(i % 50), 1, &value, 2, kWriteOwner, i);
            RW_VAR once;
            once.ownerId = kOnceReadOwner;
            once.area = 14;
            once.addressText = QString::number(i);
            once.count = 2;
            once.station = 2;
            once.port = 1;
            AddListOnceReadVar(&once, 0);
        }
    });
    std::thread reader([] {
        QByteArray out;
        for (int i = 0; i < kHostRounds * 4; ++i) {
            GetRegisterData(QString(), i % 2 ? 14 : 29, QStringLiteral("2.1"), 1, &out, 8);
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
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
}
