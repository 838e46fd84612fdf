// Which exchange ComCommunication starts, and when it offers the same frame again.
#include <gtest/gtest.h>

#include "polling_harness.h"

namespace {

class SchedulerTest : public PollingTest {
protected:
    // The source of every exchange started until nothing is left, answering each well.
    std::string order() {
        std::string started;
        while (Protocol* p = ComCommunication()) {
            started += source();
            const plcsim::Reply r = plc.handle(plcsim::Bytes(p->frame.begin(), p->frame.end()));
            QByteArray reply = toQt(r.bytes);
            EXPECT_EQ(DataCom(&reply, reply.size())->result, 1);
            if (started.size() > 40) {
                break;
            }
        }
        return started;
    }
};

}  // namespace

TEST_F(SchedulerTest, NothingToSendRaisesScanDoneAndResetsBursts) {
    PLC_driver.writeBurst = 3;
    PLC_driver.onceBurst = 5;
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(PLC_driver.writeBurst + PLC_driver.onceBurst, 0);
    EXPECT_EQ(info.scanDone, 1);
}

TEST_F(SchedulerTest, QueuedFrameIsOfferedUntilAnswered) {
    PLC_driver.writeList.append(writeVar(14, 0, 1, QByteArray(2, '\0')));
    Protocol* first = ComCommunication();
    ASSERT_NE(first, nullptr);
    PLC_driver.writeList.clear();  // the lists are not even looked at
    EXPECT_EQ(ComCommunication(), first);
    EXPECT_EQ(ComCommunication(), first);
    EXPECT_EQ(PLC_driver.requestQueue.size(), 1);
}

TEST_F(SchedulerTest, BurstsOfFiveWritesAndFiveOnceReadsThenOneCyclicRead) {
    for (int i = 0; i < 7; ++i) {
        PLC_driver.writeList.append(writeVar(14, i, 1, QByteArray(2, '\0'), 1, i));
    }
    for (int i = 0; i < 3; ++i) {
        PLC_driver.onceReadList.append(readVar(14, 100 + i, 1));
    }
    PLC_driver.readList.append(readVar(14, 200, 1));
    PLC_driver.readList.append(readVar(14, 300, 1));
    EXPECT_EQ(order().substr(0, 15), "WWWWWOOORWWRRRR");
}

TEST_F(SchedulerTest, BurstsAlternateWhenEveryListStaysBusy) {
    for (int i = 0; i < 12; ++i) {
        PLC_driver.writeList.append(writeVar(14, i, 1, QByteArray(2, '\0'), 1, i));
        PLC_driver.onceReadList.append(readVar(14, 100 + i, 1));
    }
    PLC_driver.readList.append(readVar(14, 200, 1));
    EXPECT_EQ(order().substr(0, 22), "WWWWWOOOOORWWWWWOOOOOR");
}

TEST_F(SchedulerTest, WithoutCyclicReadsSpentBurstsPauseOnce) {
    for (int i = 0; i < 6; ++i) {
        PLC_driver.writeList.append(writeVar(14, i, 1, QByteArray(2, '\0'), 1, i));
    }
    EXPECT_EQ(order(), "WWWWW");  // the sixth waits for the next round
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(order(), "W");
}

TEST_F(SchedulerTest, SwitchedOffStationsAreDroppedOrRotatedPast) {
    PLC_driver.writeList.append(writeVar(14, 0, 1, QByteArray(2, '\0')));
    PLC_driver.writeList.first().station = 2;
    PLC_driver.writeList.append(PLC_driver.writeList.first());
    PLC_driver.writeList.append(writeVar(14, 9, 1, QByteArray(2, '\0')));
    EnCommStation(2, 0);
    Protocol* p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->var.address, 9);
    EXPECT_EQ(PLC_driver.writeList.size(), 1);  // both entries for station 2 are gone
    EXPECT_TRUE(resultCalls().empty());
    PLC_driver.requestQueue.clear();
    PLC_driver.writeList.clear();

    PLC_driver.onceReadList.append(readVar(14, 0, 1, 2));
    PLC_driver.readList.append(readVar(14, 1, 1, 2));
    PLC_driver.readList.append(readVar(14, 2, 1, 2));
    PLC_driver.readList.append(readVar(14, 3, 1, 3));
    EnCommStation(3, 0);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    ASSERT_EQ(PLC_driver.readList.size(), 3);  // rotated once around, order unchanged
    EXPECT_EQ(PLC_driver.readList.at(0).address, 1);
    EXPECT_EQ(PLC_driver.readList.at(2).address, 3);

    EnCommStation(3, 1);
    p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->var.address, 3);
    EXPECT_EQ(PLC_driver.readList.first().address, 3);  // the served entry is at the front
}

TEST_F(SchedulerTest, RemoteModeUsesTheRemoteBuilders) {
    info.remoteMode = 1;
    PLC_driver.writeList.append(writeVar(14, 100, 1, QByteArray("\x34\x12", 2)));
    PLC_driver.onceReadList.append(readVar(14, 100, 2));
    PLC_driver.readList.append(readVar(2, 3, 1));
    std::vector<int> lengths;
    while (Protocol* p = ComCommunication()) {
        lengths.push_back(static_cast<unsigned char>(p->frame.at(0)));
        EXPECT_EQ(lengths.back(), p->frame.size());  // remote frames start with their length
        PLC_driver.requestQueue.clear();
        if (source() == 'W') {
            PLC_driver.writeList.clear();
        } else if (source() == 'O') {
            PLC_driver.onceReadList.clear();
        } else {
            break;
        }
    }
    EXPECT_EQ(lengths, (std::vector<int>{24, 22, 22}));
}

TEST_F(SchedulerTest, NoPortRecordMeansNothingToSend) {
    PLC_driver.readList.append(readVar(14, 0, 1));
    SetComInfo(nullptr);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(DataCom(nullptr, 0)->result, 1);
}
