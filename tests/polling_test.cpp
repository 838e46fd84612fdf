// The polling loop: which exchange ComCommunication starts, how DataCom judges replies, retries,
// abandons and reports, and whole exchanges through the host's calls against the PLC model.
#include "loaded_driver.h"

namespace {

constexpr int kCode14 = 0x80;  // the PLC's code of area 14
constexpr int kCode2 = 0x03;   // and of bit area 2

class Polling : public DriverTest {
protected:
    // Where the exchange just started comes from: W write, O once-read, R cyclic read.
    char source() const {
        const int s =
            driver.currentSource;  // kSourceReadList, kSourceWriteList, kSourceOnceReadList
        return s >= 0 && s <= 2 ? "RWO"[s] : '?';
    }
    // The source of every exchange started until nothing is due (at most 41), answered well.
    std::string order() {
        std::string started;
        while (started.size() <= 40 && ComCommunication() != nullptr) {
            started += source();
            EXPECT_EQ(poll(), 1);
        }
        return started;
    }

    // Starts the next exchange and hands DataCom `reply` with its own length.
    int answer(QByteArray reply) {
        EXPECT_NE(ComCommunication(), nullptr);
        return DataCom(&reply, reply.size())->result;
    }
    // ... the PLC's correct reply, one byte short.
    int answerShort() {
        EXPECT_NE(ComCommunication(), nullptr);
        return answer(plcReply().left(6));
    }
};

RW_VAR owned(RW_VAR v, int owner, int item) {
    v.ownerId = owner;
    v.itemId = item;
    return v;
}

}  // namespace

// The queued head is offered again, without a look at the lists, until DataCom removes it.
TEST_F(Polling, SchedulerOffersTheQueuedFrameUntilAnswered) {
    driver.writeBurst = 3;
    driver.onceBurst = 5;
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(driver.writeBurst + driver.onceBurst, 0);
    EXPECT_EQ(info.scanDone, 1);

    driver.writeList.append(writeVar(14, 0, 1, "00 00"));
    Protocol* first = ComCommunication();
    ASSERT_NE(first, nullptr);
    driver.writeList.clear();
    EXPECT_EQ(ComCommunication(), first);
    EXPECT_EQ(ComCommunication(), first);
    EXPECT_EQ(driver.requestQueue.size(), 1);

    SetComInfo(nullptr);  // without a port record nothing is planned or judged
    driver.requestQueue.clear();
    driver.readList.append(var(14, 0, 1));
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(DataCom(nullptr, 0)->result, 1);
}

// Writes first, then once-reads, at most five of each in a row, then one cyclic read, which
// lets both bursts start again; without cyclic reads spent bursts pause for one round.
TEST_F(Polling, SchedulerRunsBurstsOfFiveThenOneCyclicRead) {
    const auto queue = [this](int writes, int onceReads) {
        for (int i = 0; i < writes; ++i) {
            driver.writeList.append(owned(writeVar(14, i, 1, "00 00"), 1, i));
        }
        for (int i = 0; i < onceReads; ++i) {
            driver.onceReadList.append(var(14, 100 + i, 1));
        }
    };
    queue(7, 3);
    driver.readList << var(14, 200, 1) << var(14, 300, 1);
    EXPECT_EQ(order().substr(0, 15), "WWWWWOOORWWRRRR");

    driver.readList.clear();
    queue(12, 12);
    driver.readList.append(var(14, 200, 1));
    EXPECT_EQ(order().substr(0, 22), "WWWWWOOOOORWWWWWOOOOOR");

    driver.readList.clear();
    driver.writeList.clear();
    driver.onceReadList.clear();
    queue(6, 0);
    EXPECT_EQ(order(), "WWWWW");
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(order(), "W");
}

// Writes and once-reads of a switched-off station are dropped without a callback; cyclic reads
// stay and are rotated past, once around at most.
TEST_F(Polling, SchedulerDropsOrRotatesPastSwitchedOffStations) {
    driver.writeList << writeVar(14, 0, 1, "00 00", 2) << writeVar(14, 0, 1, "00 00", 2)
                     << writeVar(14, 9, 1, "00 00");
    EnCommStation(2, 0);
    Protocol* p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->var.address, 9);
    EXPECT_EQ(driver.writeList.size(), 1);
    EXPECT_TRUE(results.empty());
    driver.requestQueue.clear();
    driver.writeList.clear();

    driver.onceReadList.append(var(14, 0, 1, 2));
    driver.readList << var(14, 1, 1, 2) << var(14, 2, 1, 2) << var(14, 3, 1, 3);
    EnCommStation(3, 0);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_TRUE(driver.onceReadList.isEmpty());
    ASSERT_EQ(driver.readList.size(), 3);  // rotated once around, order unchanged
    EXPECT_EQ(driver.readList.at(0).address, 1);
    EXPECT_EQ(driver.readList.at(2).address, 3);

    EnCommStation(3, 1);
    p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->var.address, 3);
    EXPECT_EQ(driver.readList.first().address, 3);  // the served entry is at the front
}

// A good read is stored and its entry rotates to the end of readList; a bad one is offered
// again until the retries are spent, then abandoned with the code of its last failure.
TEST_F(Polling, CyclicReadsAreStoredRotatedRetriedAndAbandoned) {
    driver.retVar.ownerId = 9;
    EXPECT_EQ(DataCom(nullptr, 5)->result, 1);  // nothing queued: nothing changes
    EXPECT_EQ(driver.retVar.ownerId, 9);

    plc.setWord(1, kCode14, 100, 0x1234);
    driver.readList << var(14, 100, 2) << var(14, 500, 1) << var(14, 600, 1);
    ASSERT_NE(ComCommunication(), nullptr);
    QByteArray reply = plcReply();
    ASSERT_EQ(reply.size(), 9);
    RW_VAR* ret = DataCom(&reply, 9);
    EXPECT_EQ(ret, &driver.retVar);
    EXPECT_EQ(ret->result, 1);
    EXPECT_EQ(ret->address, 100);
    EXPECT_EQ(word(14, 100), 0x1234);
    EXPECT_EQ(driver.readList.last().address, 100);
    EXPECT_TRUE(driver.requestQueue.isEmpty());

    EXPECT_EQ(answerShort(), 0);
    EXPECT_EQ(answerShort(), 0);
    EXPECT_EQ(driver.requestQueue.size(), 1);  // the same frame, offered again
    EXPECT_EQ(answerShort(), 71);
    EXPECT_TRUE(driver.commFailed);
    EXPECT_TRUE(driver.requestQueue.isEmpty());
    EXPECT_EQ(info.retryCount, 0);
    EXPECT_EQ(errors, (ErrorCalls{{0, 0, 1}}));
    EXPECT_EQ(driver.readList.last().address, 500);

    // The next good reply clears the failure before its own completion.
    EXPECT_EQ(poll(), 1);
    EXPECT_FALSE(driver.commFailed);
    EXPECT_EQ(errors.size(), 1u);
    EXPECT_TRUE(results.empty());
}

// A failure code tells the cause (validation 10, nothing received 40, wrong length 70), the
// family (remote: + 100) and, for owners 0..11, the owner: base + owner + 1; others base + 1.
// Callbacks that were never registered are skipped.
TEST_F(Polling, FailureCodesTellCauseFamilyAndOwner) {
    RegistCallBackFuncIntf(nullptr, nullptr);
    info.retryLimit = 0;
    for (const auto& [owner, code] :
         std::vector<std::pair<int, int>>{{0, 71}, {3, 74}, {11, 82}, {12, 71}, {-1, 71}}) {
        driver.onceReadList.append(owned(var(14, 0, 1), owner, 0));
        EXPECT_EQ(answerShort(), code) << owner;
    }
    RW_VAR remote = writeVar(14, 0, 1, "00 00");
    remote.port = 2;
    const struct {
        RW_VAR head;
        QByteArray reply;
        int code;
    } cases[] = {{writeVar(14, 0, 1, "00 00"), QByteArray(), 41},
                 {writeVar(14, 0, 1, "00 00"), QByteArray(10, '\x01'), 11},
                 {remote, QByteArray(), 141},
                 {remote, QByteArray(6, '\x01'), 171},
                 {remote, QByteArray(10, '\x01'), 111}};
    for (const auto& c : cases) {
        driver.writeList.append(c.head);
        EXPECT_EQ(answer(c.reply), c.code);
    }
    EXPECT_EQ(GetDriverReturnValue(8), 200);
    EXPECT_EQ(GetDriverReturnValue(-1), 200);
    EXPECT_EQ(ComCommunication(), nullptr);  // both bursts are spent: this round pauses

    // The host's count is checked against the bytes it handed over, and a larger buffer is
    // judged on its first `length` bytes.
    info.retryLimit = 5;
    driver.writeList.append(writeVar(14, 0, 1, "00 00"));
    ASSERT_NE(ComCommunication(), nullptr);
    QByteArray truncated = plcReply().left(4);
    EXPECT_EQ(DataCom(&truncated, 10)->result, 0);  // claims 10 bytes, holds 4
    EXPECT_EQ(DataCom(nullptr, 10)->result, 0);     // null counts as nothing received
    info.retryLimit = 0;
    EXPECT_EQ(DataCom(&truncated, 10)->result, 71);
    driver.writeList.append(writeVar(14, 0, 1, "00 00"));
    ASSERT_NE(ComCommunication(), nullptr);
    QByteArray padded = plcReply() + QByteArray(100, '\xEE');
    EXPECT_EQ(DataCom(&padded, 10)->result, 1);
}

// The host hears once per host variable that all its pieces are done, and of a failure at once;
// then the rest of the abandoned variable is purged, with per-variable stations only on its
// station.
TEST_F(Polling, OneResultPerHostVariableAndThePurgeOfAnAbandonedOne) {
    for (int piece = 0; piece < 3; ++piece) {
        driver.writeList.append(owned(writeVar(14, piece * 100, 1, "00 00"), 4, 8));
    }
    EXPECT_EQ(run(4), (std::vector<int>{1, 1, 1, -1}));
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, 1}}));
    EXPECT_EQ(driver.retVar.ownerId, 4);
    EXPECT_EQ(info.scanDone, 1);

    // A later piece for another port is not one of this port's pieces.
    results.clear();
    RW_VAR elsewhere = owned(writeVar(14, 500, 1, "00 00"), 4, 8);
    elsewhere.port = 2;
    driver.writeList << owned(writeVar(14, 400, 1, "00 00"), 4, 8) << elsewhere;
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, 1}}));
    driver.writeList.clear();

    results.clear();
    info.retryLimit = 0;
    info.perVarStation = 1;
    plc.setFaults(plcsim::Faults{1.0, 0, 0, 0, {}, 1});  // every reply dropped
    const RW_VAR piece = owned(writeVar(14, 0, 1, "00 00"), 4, 8);
    driver.writeList << piece << piece << owned(writeVar(14, 0, 1, "00 00", 2), 4, 8)
                     << owned(writeVar(14, 0, 1, "00 00"), 4, 9);
    EXPECT_EQ(poll(), 45);  // nothing received, owner 4
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, 2}}));
    ASSERT_EQ(driver.writeList.size(), 2);
    EXPECT_EQ(driver.writeList.at(0).station, 2);
    EXPECT_EQ(driver.writeList.at(1).itemId, 9);
    EXPECT_EQ(info.scanDone, 0);
}

// A local write too long for any frame never reaches the wire: the host hears once that the
// variable failed, its other pieces go with it, and the line's state stays as it was.
TEST_F(Polling, AWriteTooLongForAFrameFailsWithoutTouchingTheLine) {
    info.writeMode = 2;
    info.maxUnits = 1500;  // raised after SetComInfo: pieces of 3,000 bytes
    info.retryCount = 1;
    info.scanDone = 1;
    EXPECT_EQ(write(14, "0", "", 3000, 4, 8), 2);
    driver.writeList.append(owned(writeVar(14, 9, 1, "01 00"), 5, 9));
    EXPECT_EQ(poll(), 1);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(hex(sent[0].left(6)), "01 21 80 00 00 09");  // the write that fits
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, 2}, {77, 5, 9, 1}}));
    EXPECT_TRUE(errors.empty());
    EXPECT_TRUE(driver.writeList.isEmpty());
    EXPECT_EQ(driver.commFailed, 0);
    EXPECT_EQ(info.retryCount, 1);
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(image(), (Image{{key(14, 9), 1}}));  // the refused write is not mirrored

    results.clear();
    EXPECT_EQ(write(14, "0", "", 1500, 6, 1), 1);  // alone: nothing at all to send
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(results, (ResultCalls{{77, 6, 1, 2}}));
    EXPECT_TRUE(sent.size() == 1u && driver.requestQueue.isEmpty());
}

// The first reply of a bit-of-word write leaves the completed write at the head; only the second
// completes the exchange and notifies. Replies for another port's variables are judged as
// remote: good is 100, the data are not stored, once-reads are not reported, and the word read
// of a bit-of-word write still gives 1.
TEST_F(Polling, BitOfWordWritesAndRepliesForAnotherPort) {
    plc.setWord(1, kCode14, 10, 0x0100);
    driver.writeList.append(writeVar(29, 163, 1, "01"));
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(driver.requestQueue.size(), 1);
    EXPECT_TRUE(results.empty());
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(plc.word(1, kCode14, 10), 0x0108);  // one bit set, the others written back
    EXPECT_EQ(results, (ResultCalls{{77, 0, 0, 1}}));

    RW_VAR remote = var(14, 100, 2);
    remote.port = 2;
    driver.onceReadList.append(remote);
    RW_VAR bit = writeVar(29, 164, 1, "01");
    bit.port = 2;
    driver.writeList.append(bit);
    driver.registerCache.clear();
    EXPECT_EQ(run(4), (std::vector<int>{1, 100, 100, -1}));
    EXPECT_EQ(plc.word(1, kCode14, 10), 0x0118);
    EXPECT_TRUE(driver.onceReadList.isEmpty());
    EXPECT_EQ(results.size(), 2u);                              // the write's
    EXPECT_EQ(image(), (Image{{0x010E00000000000A, 0x0010}}));  // mirrored
}

TEST_F(Polling, ScanDoneOnceEveryCyclicReadHadItsTurn) {
    for (int i = 0; i < 3; ++i) {
        driver.readList.append(var(14, i * 10, 1));
    }
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(poll(), 1);
        EXPECT_EQ(info.scanDone, 0);
    }
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(info.scanDone, 1);
    EXPECT_EQ(driver.scanCount, 0);
}

// The typical cyclic read, end to end: plan, poll, answer from the PLC, read the value back.
TEST_F(Polling, TypicalCyclicRead) {
    plc.setWord(1, kCode14, 100, 0x1234);
    plc.setWord(1, kCode14, 101, 0xABCD);
    QList<HOSTVAR> vars{cyclicVar(14, "100", 2)};
    EXPECT_EQ(ReCreatReadVarList(&vars), 1);
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(hex(sent.at(0)), "01 20 80 00 00 64 00 02 7F DB");
    EXPECT_EQ(hex(read(14, "100", 2)), "34 12 CD AB");
}

TEST_F(Polling, WritesReachThePlcAndReadsComeBack) {
    info.writeMode = 2;
    rebuild({cyclicVar(14, "10", 4), cyclicVar(2, "20", 16)});
    EXPECT_EQ(write(14, "10", "01 00 02 00", 2, 1, 1), 1);
    EXPECT_EQ(write(29, "13.4", "01", 1, 2, 2), 2);
    EXPECT_EQ(write(2, "21", "01 00", 2, 3, 3), 3);
    run(8);
    EXPECT_EQ(plc.word(1, kCode14, 10), 1);
    EXPECT_EQ(plc.word(1, kCode14, 11), 2);
    EXPECT_EQ(plc.word(1, kCode14, 13), 0x0010);
    EXPECT_TRUE(plc.bit(1, kCode2, 21));
    EXPECT_FALSE(plc.bit(1, kCode2, 22));
    EXPECT_EQ(results, (ResultCalls{{77, 1, 1, 1}, {77, 2, 2, 1}, {77, 3, 3, 1}}));

    // Changed in the PLC, seen by the panel after the next cyclic reads.
    plc.setWord(1, kCode14, 12, 0x7777);
    plc.setBit(1, kCode2, 23, true);
    run(2);
    EXPECT_EQ(hex(read(14, "10", 4)), "01 00 02 00 77 77 10 00");
    EXPECT_EQ(hex(read(2, "20", 4)), "00 01 00 01");
    EXPECT_EQ(hex(read(29, "13.4", 1)), "01");
}

TEST_F(Polling, SwitchedOffStationIsNeitherWrittenNorRead) {
    info.writeMode = 2;
    info.perVarStation = 1;
    rebuild({cyclicVar(14, "0", 1, 1), cyclicVar(14, "0", 1, 2)});
    EnCommStation(2, 0);
    write(14, "0", "05 00", 1, 7, 8, 2);
    run(3);
    EXPECT_EQ(plc.word(2, kCode14, 0), 0);
    EXPECT_TRUE(results.empty());  // dropped without a callback
    for (const QByteArray& frame : sent) {
        EXPECT_EQ(frame.at(0), 1);
    }
    EnableEthernet(2, 1);
    plc.setWord(2, kCode14, 0, 0x0042);
    run(2);
    EXPECT_EQ(hex(read(14, "0", 1, 2)), "42 00");
}

TEST_F(Polling, SilentPlcIsAbandonedAndRecoveredFrom) {
    info.writeMode = 2;
    info.retryLimit = 1;
    rebuild({cyclicVar(14, "0", 1)});
    plcsim::Faults silent;
    silent.silentStations = {1};
    plc.setFaults(silent);
    EXPECT_EQ(write(14, "3", "09 00", 1, 5, 6), 1);
    EXPECT_EQ(run(4), (std::vector<int>{0, 46, 0, 41}));
    EXPECT_EQ(results, (ResultCalls{{77, 5, 6, 2}}));
    EXPECT_EQ(errors.size(), 2u);
    EXPECT_TRUE(driver.commFailed);
    // While the link is down, a write shows in the image at once.
    write(14, "4", "08 00", 1, 5, 7);
    EXPECT_EQ(hex(read(14, "4", 1)), "08 00");

    plc.setFaults(plcsim::Faults());
    EXPECT_EQ(run(2), (std::vector<int>{1, 1}));
    EXPECT_FALSE(driver.commFailed);
    EXPECT_EQ(plc.word(1, kCode14, 4), 8);
}

// Remote frames for every list, but the variables belong to this port: their replies are judged
// as local, stored and reported.
TEST_F(Polling, RemoteModeWritesAndReads) {
    info.remoteMode = 1;
    info.writeMode = 2;
    plc.setWord(1, kCode14, 100, 0x0102);
    plc.setWord(1, kCode2, 3, 0x8001);
    rebuild({cyclicVar(2, "48", 16)});
    EXPECT_EQ(write(14, "50", "34 12", 1), 1);
    RW_VAR once = var(14, 100, 1);
    AddListOnceReadVar(&once, 1);
    EXPECT_EQ(run(3), (std::vector<int>{1, 1, 1}));
    std::vector<int> lengths;
    for (const QByteArray& frame : sent) {
        lengths.push_back(frame.size());
        EXPECT_EQ(static_cast<unsigned char>(frame.at(0)), frame.size());
    }
    EXPECT_EQ(lengths, (std::vector<int>{24, 22, 22}));
    EXPECT_EQ(plc.word(1, kCode14, 50), 0x1234);
    EXPECT_EQ(hex(read(14, "100", 1)), "02 01");
    EXPECT_EQ(hex(read(2, "48", 2)), "01 00");
    EXPECT_EQ(results.size(), 2u);
}

// Injected faults: a reply carrying another station with a right CRC, or one flipped byte, is
// refused and retried by the driver; drops repeat with their seed.
TEST_F(Polling, PlcModelFaultsAreRepeatableAndRefusedByTheDriver) {
    info.retryLimit = 100;
    driver.readList.append(var(14, 0, 1));
    for (double plcsim::Faults::*fault : {&plcsim::Faults::misaddress, &plcsim::Faults::corrupt}) {
        plcsim::Faults faults;
        faults.*fault = 1.0;
        plc.setFaults(faults);
        EXPECT_EQ(run(3), (std::vector<int>{0, 0, 0}));
    }
    EXPECT_EQ(plc.stats().misaddressed + plc.stats().corrupted, 6);
    plc.setFaults(plcsim::Faults());
    EXPECT_EQ(run(1), (std::vector<int>{1}));

    plcsim::Faults faults;
    faults.drop = 0.5;
    faults.seed = 42;
    const auto pattern = [&] {
        plc.setFaults(faults);
        std::string answered;
        for (int i = 0; i < 32; ++i) {
            answered +=
                plc.handle(plcsim::Bytes(sent[0].begin(), sent[0].end())).answered ? '1' : '0';
        }
        return answered;
    };
    const std::string first = pattern();
    EXPECT_EQ(pattern(), first);
    EXPECT_NE(first.find('0'), std::string::npos);
    EXPECT_NE(first.find('1'), std::string::npos);
}
