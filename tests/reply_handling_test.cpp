// DataCom: verdicts, retries, abandonment, completion by list, callbacks and result codes.
#include <gtest/gtest.h>

#include "driver/polling.h"
#include "polling_harness.h"

namespace {

class ReplyHandlingTest : public PollingTest {
protected:
    // Starts the next exchange and answers it with `reply` (length: its size, unless given).
    int answer(QByteArray reply, int length = -2) {
        EXPECT_NE(ComCommunication(), nullptr);
        return DataCom(&reply, length == -2 ? reply.size() : length)->result;
    }

    // The PLC's correct reply to the queued head frame.
    QByteArray plcReply() {
        const QByteArray& f = PLC_driver.requestQueue.first().frame;
        return toQt(plc.handle(plcsim::Bytes(f.begin(), f.end())).bytes);
    }

    // Read the queued head frame's correct answer with one byte short.
    int answerShort() {
        ComCommunication();
        QByteArray r = plcReply().left(6);
        return DataCom(&r, r.size())->result;
    }
};

}  // namespace

TEST_F(ReplyHandlingTest, EmptyQueueAnswersOneAndChangesNothing) {
    PLC_driver.retVar.ownerId = 9;
    EXPECT_EQ(DataCom(nullptr, 5)->result, 1);
    EXPECT_EQ(PLC_driver.retVar.ownerId, 9);
}

TEST_F(ReplyHandlingTest, GoodReadIsStoredAndRotates) {
    plc.setWord(1, 0x80, 100, 0x1234);
    PLC_driver.readList.append(readVar(14, 100, 2));
    PLC_driver.readList.append(readVar(14, 500, 1));
    ComCommunication();
    QByteArray reply = plcReply();
    ASSERT_EQ(reply.size(), 9);
    RW_VAR* ret = DataCom(&reply, 9);
    EXPECT_EQ(ret, &PLC_driver.retVar);
    EXPECT_EQ(ret->result, 1);
    EXPECT_EQ(ret->address, 100);
    EXPECT_TRUE(ret->data.isEmpty());
    EXPECT_EQ(PLC_driver.registerCache.value(0x010E000000000064ull), 0x1234);
    EXPECT_EQ(PLC_driver.readList.last().address, 100);
    EXPECT_TRUE(PLC_driver.requestQueue.isEmpty());
    EXPECT_TRUE(resultCalls().empty());
}

TEST_F(ReplyHandlingTest, RetriesThenAbandonsWithTheCodeOfTheLastFailure) {
    PLC_driver.readList.append(readVar(14, 100, 2));
    PLC_driver.readList.append(readVar(14, 500, 1));
    EXPECT_EQ(answerShort(), 0);
    EXPECT_EQ(answerShort(), 0);
    EXPECT_EQ(PLC_driver.requestQueue.size(), 1);  // the same frame, offered again
    EXPECT_EQ(answerShort(), 71);
    EXPECT_TRUE(PLC_driver.commFailed);
    EXPECT_TRUE(PLC_driver.requestQueue.isEmpty());
    EXPECT_EQ(info.retryCount, 0);
    ASSERT_EQ(errorCalls().size(), 1u);
    EXPECT_EQ(errorCalls()[0].listSize, 0);
    EXPECT_EQ(errorCalls()[0].ownerId, 0);
    EXPECT_EQ(errorCalls()[0].flag, 1);
    EXPECT_EQ(PLC_driver.readList.last().address, 100);

    // The next good reply clears the failure before its own completion.
    QByteArray good = (ComCommunication(), plcReply());
    EXPECT_EQ(DataCom(&good, good.size())->result, 1);
    EXPECT_FALSE(PLC_driver.commFailed);
    EXPECT_EQ(errorCalls().size(), 1u);
}

TEST_F(ReplyHandlingTest, FailureCodesCarryTheOwner) {
    info.retryLimit = 0;
    const struct {
        int owner;
        int code;
    } cases[] = {{0, 71}, {3, 74}, {11, 82}, {12, 71}, {-1, 71}};
    for (const auto& c : cases) {
        RW_VAR v = readVar(14, 0, 1);
        v.ownerId = c.owner;
        PLC_driver.onceReadList.append(v);
        EXPECT_EQ(answerShort(), c.code) << c.owner;
    }
}

TEST_F(ReplyHandlingTest, CodesByCauseAndFamily) {
    info.retryLimit = 0;
    PLC_driver.onceReadList.append(readVar(14, 0, 1));
    EXPECT_EQ(answer(QByteArray()), 41);  // nothing received
    PLC_driver.onceReadList.append(readVar(14, 0, 1));
    EXPECT_EQ(answer(QByteArray(7, '\x01')), 11);  // right length, bad CRC

    info.remoteMode = 1;
    RW_VAR remote = readVar(14, 0, 1);
    remote.port = 2;
    PLC_driver.onceReadList.append(remote);
    EXPECT_EQ(answer(QByteArray()), 141);
    PLC_driver.onceReadList.append(remote);
    EXPECT_EQ(answer(QByteArray(6, '\x01')), 171);
    PLC_driver.onceReadList.append(remote);
    EXPECT_EQ(answer(QByteArray(7, '\x01')), 111);

    EXPECT_EQ(GetDriverReturnValue(8), 200);
    EXPECT_EQ(GetDriverReturnValue(-1), 200);
}

TEST_F(ReplyHandlingTest, ReplyBufferAndCountAreCheckedAgainstEachOther) {
    info.retryLimit = 5;
    PLC_driver.onceReadList.append(readVar(14, 0, 1));
    ComCommunication();
    QByteArray reply = plcReply();
    QByteArray truncated = reply.left(4);
    EXPECT_EQ(DataCom(&truncated, 7)->result, 0);  // claims 7 bytes, holds 4
    EXPECT_EQ(DataCom(nullptr, 7)->result, 0);     // null counts as nothing received
    info.retryLimit = 0;
    EXPECT_EQ(DataCom(&truncated, 7)->result, 71);

    // A larger host buffer is judged on its first `length` bytes.
    PLC_driver.onceReadList.append(readVar(14, 0, 1));
    ComCommunication();
    QByteArray padded = plcReply() + QByteArray(100, '\xEE');
    EXPECT_EQ(DataCom(&padded, 7)->result, 1);
}

TEST_F(ReplyHandlingTest, OneResultPerHostVariableOverItsPieces) {
    for (int piece = 0; piece < 3; ++piece) {
        PLC_driver.writeList.append(writeVar(14, piece * 100, 1, QByteArray(2, '\0'), 4, 8));
    }
    EXPECT_EQ(pollAll(), (std::vector<int>{1, 1, 1}));
    ASSERT_EQ(resultCalls().size(), 1u);
    EXPECT_EQ(resultCalls()[0], (ResultCall{77, 4, 8, 1}));
    EXPECT_EQ(PLC_driver.retVar.ownerId, 4);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
}

TEST_F(ReplyHandlingTest, AbandonedPieceFailsAtOnceAndPurgesTheRest) {
    info.retryLimit = 0;
    info.perVarStation = 1;
    plc.setFaults(plcsim::Faults{1.0, 0, 0, 0, {}, 1});
    RW_VAR piece = writeVar(14, 0, 1, QByteArray(2, '\0'), 4, 8);
    PLC_driver.writeList.append(piece);
    PLC_driver.writeList.append(piece);
    piece.station = 2;  // same variable on another station: kept with per-variable stations
    PLC_driver.writeList.append(piece);
    PLC_driver.writeList.append(writeVar(14, 0, 1, QByteArray(2, '\0'), 4, 9));
    EXPECT_EQ(poll(), 45);  // nothing received, owner 4
    ASSERT_EQ(resultCalls().size(), 1u);
    EXPECT_EQ(resultCalls()[0], (ResultCall{77, 4, 8, 2}));
    ASSERT_EQ(PLC_driver.writeList.size(), 2);
    EXPECT_EQ(PLC_driver.writeList.at(0).station, 2);
    EXPECT_EQ(PLC_driver.writeList.at(1).itemId, 9);
    EXPECT_EQ(info.scanDone, 0);
}

TEST_F(ReplyHandlingTest, BitOfWordWriteCompletesOnTheSecondReply) {
    plc.setWord(1, 0x80, 10, 0x0100);
    PLC_driver.writeList.append(writeVar(29, 163, 1, QByteArray(1, '\1')));
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(PLC_driver.requestQueue.size(), 1);  // the completed write is next
    EXPECT_TRUE(resultCalls().empty());
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(plc.word(1, 0x80, 10), 0x0108);  // one bit set, the others written back
    EXPECT_EQ(resultCalls().size(), 1u);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
}

TEST_F(ReplyHandlingTest, RemoteOnceReadCompletesWithoutCallback) {
    info.remoteMode = 1;
    RW_VAR remote = readVar(14, 100, 2);
    remote.port = 2;
    PLC_driver.onceReadList.append(remote);
    EXPECT_EQ(poll(), 100);
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    EXPECT_TRUE(resultCalls().empty());
    EXPECT_TRUE(PLC_driver.registerCache.isEmpty());  // remote data are not stored
}

TEST_F(ReplyHandlingTest, ScanDoneOnceEveryCyclicReadHadItsTurn) {
    for (int i = 0; i < 3; ++i) {
        PLC_driver.readList.append(readVar(14, i * 10, 1));
    }
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(poll(), 1);
        EXPECT_EQ(info.scanDone, 0);
    }
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(PLC_driver.scanCount, 0);
}

TEST_F(ReplyHandlingTest, UnregisteredCallbacksAreSkipped) {
    RegistCallBackFuncIntf(nullptr, nullptr);
    info.retryLimit = 0;
    PLC_driver.writeList.append(writeVar(14, 0, 1, QByteArray(2, '\0')));
    EXPECT_EQ(answer(QByteArray()), 42);
    PLC_driver.writeList.append(writeVar(14, 0, 1, QByteArray(2, '\0')));
    EXPECT_EQ(poll(), 1);
}
