// The polling loop against the PLC model: each kind of exchange end to end, the scheduler's
// order, retries and abandonment, result codes and the host's callbacks.
#include "loaded_driver.h"

namespace {

const int good = korvan::kResultGood, remoteGood = korvan::kResultRemoteGood,
          retry = korvan::kResultRetry, done = korvan::kStatusDone, failed = korvan::kStatusFailed;
// The code of a local request of `owner` abandoned for want of a reply.
int missed(int owner) {
    return korvan::failureCode(korvan::kFailLocalSilent, owner);
}

class Polling : public DriverTest {
protected:
    // The source of every exchange started until nothing is due (at most 41), answered well:
    // R cyclic read, W write, O once-read.
    std::string order() {
        std::string started;
        while (started.size() <= 40 && ComCommunication() != nullptr) {
            started += "RWO"[driver.currentSource];
            EXPECT_EQ(poll(), good);
        }
        return started;
    }
};

}  // namespace

// Each kind of exchange from its list to the PLC and back. Another port's variables (port 2) are
// judged as remote: good is 100, data are not stored, once-reads not reported. In remote mode this
// port's variables go out as remote frames and are judged as local.
TEST_F(Polling, EachKindOfExchangeAgainstThePlc) {
    plc.setWord(1, 0x80, 100, 0x1234);
    plc.setWord(1, 0x80, 101, 0x5678);
    plc.setWord(1, 0x03, 3, 0x8001);  // bits 48 and 63 of area 2
    plc.setWord(1, 0x80, 10, 0x0100);
    const int bitOfWord = korvan::kAreaBitOfWord;
    // list (cyclic reads, writes, once-reads), remote mode, entry, frames sent, DataCom's codes,
    // the image afterwards, the host's callbacks
    // clang-format off
    const std::tuple<int, int, RW_VAR, const char*, std::vector<int>, Image, ResultCalls> cases[] = {
        {0, 0, var(14, 100, 2), "01 20 80 00 00 64 00 02 7F DB",
         {good}, {{key(14, 100), 0x1234}, {key(14, 101), 0x5678}}, {}},
        {0, 0, var(2, 3, 1), "01 1E 03 00 00 30 00 10 7E 36",
         {good}, {{key(2, 3), 0x8001}}, {}},
        {1, 0, owned(writeVar(14, 100, 2, "CD AB 01 00"), 1, 2), "01 21 80 00 00 64 00 02 04 AB CD 00 01 53 36",
         {good}, {{key(14, 100), 0xABCD}, {key(14, 101), 1}}, {{77, 1, 2, done}}},
        // Bit 3 of word 10: the word is read, then written back with the bit set.
        {1, 0, writeVar(bitOfWord, 163, 1, "01"), "01 20 80 00 00 0A 00 01 5E 07 | 01 21 80 00 00 0A 00 01 02 01 08 93 B1",
         {good, good}, {{key(14, 10), 0x0008}}, {{77, 0, 0, done}}},
        {2, 0, owned(var(14, 100, 2), 0, 0, 2), "01 20 80 00 00 64 00 02 7F DB",
         {remoteGood}, {}, {}},
        {1, 0, owned(writeVar(bitOfWord, 164, 1, "01"), 0, 0, 2), "01 20 80 00 00 0A 00 01 5E 07 | 01 21 80 00 00 0A 00 01 02 01 18 92 7D",
         {good, remoteGood}, {{key(14, 10), 0x0010}}, {{77, 0, 0, done}}},
        {2, 1, owned(var(14, 100, 1), 3, 4), "16 03 00 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 8E",
         {good}, {{key(14, 100), 0xABCD}}, {{77, 3, 4, done}}},
        // To station 0 every PLC listens and none answers: no reply is the good one.
        {1, 0, writeVar(14, 60, 1, "34 12", 0), "00 21 80 00 00 3C 00 01 02 12 34 9F FA",
         {good}, {{key(14, 60, 0), 0x1234}}, {{77, 0, 0, done}}},
        {1, 1, writeVar(14, 50, 1, "34 12"), "18 00 01 01 01 00 0E 00 00 00 32 00 01 00 00 00 00 00 00 00 00 34 12 A2",
         {good}, {{key(14, 50), 0x1234}}, {{77, 0, 0, done}}},
    };
    // clang-format on
    QList<RW_VAR>* const lists[] = {&driver.readList, &driver.writeList, &driver.onceReadList};
    for (const auto& [list, remoteMode, entry, frames, codes, expectedImage, expected] : cases) {
        SCOPED_TRACE(frames);
        info.remoteMode = remoteMode;
        driver.registerCache.clear();
        results.clear();
        sent.clear();
        lists[list]->append(entry);
        EXPECT_EQ(run(static_cast<int>(codes.size())), codes);
        std::string sentFrames;
        for (const QByteArray& f : sent) {
            sentFrames += (sentFrames.empty() ? "" : " | ") + hex(f);
        }
        EXPECT_EQ(sentFrames, frames);
        EXPECT_EQ(image(), expectedImage);
        EXPECT_EQ(results, expected);
        driver.readList.clear();
        EXPECT_EQ(poll(), -1);
    }
    EXPECT_EQ(plc.word(1, 0x80, 50), 0x1234);
    // The driver's and the PLC's codes of every area agree, in either family.
    for (int area = 0; area < bitOfWord; ++area) {
        SCOPED_TRACE(area);
        plc.setWord(1, plcsim::PlcModel::areaCodeOfIndex(area), 7,
                    static_cast<quint16>(0x100 + area));
        for (const int remoteMode : {0, 1}) {
            info.remoteMode = remoteMode;
            driver.registerCache.clear();
            driver.readList = {var(area, 7, 1)};
            EXPECT_EQ(run(1), std::vector<int>{good});
            EXPECT_EQ(word(area, 7), 0x100 + area);
        }
    }
}

// Writes, then once-reads, at most five of each in a row, then one cyclic read, after which both
// bursts start again; with nothing due the bursts restart and the scan counts as done.
TEST_F(Polling, SchedulerOrderAndBursts) {
    driver.writeBurst = 3;
    driver.onceBurst = 5;
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(std::vector<int>({driver.writeBurst, driver.onceBurst, info.scanDone}),
              std::vector<int>({0, 0, korvan::kScanDone}));
    for (int i = 0; i < 7; ++i) {
        driver.writeList.append(owned(writeVar(14, i, 1, "00 00"), 1, i));
        driver.onceReadList.append(var(14, 100 + i, 1));
    }
    driver.readList.append(var(14, 200, 1));
    EXPECT_EQ(order().substr(0, 18), "WWWWWOOOOORWWOORRR");
    driver.readList.clear();
    const RW_VAR w = writeVar(14, 0, 1, "00 00");
    driver.writeList = QList<RW_VAR>() << w << w << w << w << w << w;
    EXPECT_EQ(order(), "WWWWW");  // without cyclic reads a spent burst pauses for one round
    EXPECT_EQ(order(), "W");
    SetComInfo(nullptr);  // without a port record nothing is planned or judged
    driver.readList.append(var(14, 0, 1));
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(DataCom(nullptr, 0)->result, good);
}

// One map of switched-off stations behind both entry points; a negative station clears it, other
// values than 0 and 1 change nothing. A switched-off station's writes and once-reads are dropped
// without a callback; its cyclic reads are rotated past, once around at most.
TEST_F(Polling, SwitchedOffStations) {
    const auto off = [this] {
        return std::vector<int>({Ethernetcontains(2), Ethernetcontains(3), Ethernetcontains(5),
                                 driver.stationMap.size()});
    };
    EnCommStation(3, korvan::kStationOff);
    EnCommStation(3, korvan::kStationOff);
    EnCommStation(5, korvan::kStationOff);
    EnCommStation(5, 7);
    EnableEthernet(5, -1);
    EXPECT_EQ(off(), std::vector<int>({0, 1, 1, 2}));
    EnableEthernet(korvan::kAllStations, korvan::kStationOff);
    EnCommStation(2, korvan::kStationOff);
    EXPECT_EQ(off(), std::vector<int>({1, 0, 0, 1}));
    driver.writeList << writeVar(14, 0, 1, "00 00", 2) << writeVar(14, 9, 1, "00 00");
    driver.onceReadList.append(var(14, 0, 1, 2));
    driver.readList << var(14, 1, 1, 2) << var(14, 2, 1, 3) << var(14, 3, 1, 3);
    EXPECT_EQ(run(2), (std::vector<int>{good, good}));
    EXPECT_EQ(hex(sent[0].mid(5, 1) + sent[1].mid(5, 1)), "09 02");  // address bytes
    EXPECT_TRUE(results.size() == 1 && driver.writeList.isEmpty() && driver.onceReadList.isEmpty());
    EnCommStation(3, korvan::kStationOff);
    EXPECT_EQ(ComCommunication(), nullptr);
    EnableEthernet(3, korvan::kStationOn);
    ASSERT_NE(ComCommunication(), nullptr);
    EXPECT_TRUE(request(0).var.address == 3 && driver.readList.first().address == 3);
}

// The scan is done once more exchanges completed than readList holds. A bad reply is retried until
// the retries are spent, then abandoned with its last failure's code through both callbacks; the
// scan restarts and the link counts as failed until the next good reply.
TEST_F(Polling, RetriesAbandonmentAndRecovery) {
    const int flag = korvan::kErrorFlag;
    driver.retVar.ownerId = 9;
    EXPECT_TRUE(DataCom(nullptr, 5)->result == good && driver.retVar.ownerId == 9);  // none queued
    driver.readList << var(14, 100, 2) << var(14, 500, 1);
    EXPECT_EQ(run(2), (std::vector<int>{good, good}));
    EXPECT_EQ(info.scanDone, 0);
    EXPECT_EQ(poll(), good);
    EXPECT_EQ(std::vector<int>({info.scanDone, driver.scanCount, driver.retVar.address,
                                driver.readList.last().address}),
              std::vector<int>({korvan::kScanDone, 0, 100, 100}));

    plcsim::Faults silent;
    silent.silentStations = {1};
    plc.setFaults(silent);
    EXPECT_EQ(run(3), (std::vector<int>{retry, retry, missed(korvan::kCyclicOwnerId)}));
    EXPECT_TRUE(sent[3] == sent[4] && sent[4] == sent[5] && driver.requestQueue.isEmpty());
    EXPECT_EQ(std::vector<int>({driver.commFailed, info.retryCount, info.scanDone,
                                driver.readList.last().address}),
              std::vector<int>({1, 0, 0, 500}));
    info.writeMode = korvan::kWriteToPlc;
    EXPECT_EQ(write(14, "4", "08 00", 1, 5, 6), 1);
    EXPECT_EQ(hex(read(14, "4", 1)), "08 00");  // shown at once while the link is down
    EXPECT_EQ(run(3), (std::vector<int>{retry, retry, missed(5)}));
    EXPECT_EQ(results, (ResultCalls{{77, 5, 6, failed}}));
    EXPECT_EQ(errors, (ErrorCalls{{0, korvan::kCyclicOwnerId, flag}, {0, 5, flag}}));

    plc.setFaults(plcsim::Faults());
    write(14, "4", "07 00", 1, 5, 7);
    EXPECT_EQ(run(2), (std::vector<int>{good, good}));
    EXPECT_TRUE(!driver.commFailed && plc.word(1, 0x80, 4) == 7);
    EXPECT_EQ(results.size(), 2u);  // the write's; cyclic reads are never reported
}

// A failure code tells the cause, the family and the head's owner (failureCode). The host's count
// is checked against the bytes it handed over; a larger buffer is judged on its first `length`.
TEST_F(Polling, ResultCodesTellCauseFamilyAndOwner) {
    const QByteArray goodReply = withCrc(bytesOf("01 20 02 00 00"));
    const QByteArray padded = goodReply + QByteArray(100, '\xEE');
    using namespace korvan;
    const int length = kFailLocalLength;
    const auto fail = [](int base) { return failureCode(base, 2); };
    // judged as remote, reply, its length as the host gives it, code
    const std::tuple<bool, QByteArray, int, int> cases[] = {
        // clang-format off
        {false, goodReply.left(6), 6, fail(length)}, {false, goodReply + 'x', 8, fail(length)},
        {false, goodReply, 6, fail(length)}, {false, goodReply, -1, fail(length)},
        {false, goodReply.left(4), 7, fail(length)},  // claims 7 bytes, holds 4
        {false, QByteArray(), 0, fail(kFailLocalSilent)},
        {false, QByteArray(7, 1), 7, fail(kFailLocalInvalid)},
        {true, QByteArray(), 0, fail(kFailRemoteSilent)},
        {true, QByteArray(7, 1), 7, fail(kFailRemoteInvalid)},
        {true, goodReply.left(6), 6, fail(kFailRemoteLength)},
        {false, padded, 7, kResultGood}, {true, padded, 7, kResultRemoteGood},
        // clang-format on
    };
    for (const auto& [remote, reply, given, code] : cases) {
        driver.requestQueue.clear();
        read_register(owned(var(14, 0, 1), 2, 0));
        QByteArray bytes = reply;
        EXPECT_EQ((remote ? DealDataOfRemoteArea : DealDataOfLocalArea)(&bytes, given), code)
            << hex(reply) << " " << given;
    }
    EXPECT_TRUE(DealDataOfLocalArea(nullptr, 7) == fail(kFailLocalSilent) &&
                SwitchErrorReturn(length) == fail(length));  // null: none
    driver.requestQueue.clear();  // nothing queued: no owner, and a kind without a code
    EXPECT_EQ(
        std::vector<int>({DealDataOfRemoteArea(nullptr, 0), SwitchErrorReturn(kFailRemoteSilent),
                          GetDriverReturnValue(2), GetDriverReturnValue(8)}),
        std::vector<int>({failureCode(kFailRemoteInvalid, 0), failureCode(kFailRemoteSilent, 0),
                          failureCode(kFailLocalSilent, 0), 200}));
}

// The word read of a bit-in-word write to station 0 passes with any reply of its length; only the
// remote family completes the write frame from such a stray reply.
TEST_F(Polling, AStrayReplyFromStationZeroCompletesABitWordWriteInTheRemoteFamilyAlone) {
    for (const bool remote : {false, true}) {
        driver.requestQueue.clear();
        driver.writeList.clear();
        const RW_VAR write =
            owned(writeVar(korvan::kAreaBitOfWord, 163, 1, "01", 0), 0, 0, remote ? 2 : 1);
        driver.writeList.append(write);
        write_analog_bit(write);
        QByteArray stray = withCrc(bytesOf("05 20 02 12 F0"));
        EXPECT_EQ((remote ? DealDataOfRemoteArea : DealDataOfLocalArea)(&stray, stray.size()),
                  good);
        // The written word, high byte first: the stray word with bit 3 set, or as built.
        EXPECT_EQ(hex(request(1).frame.mid(9, 2)), remote ? "12 F8" : "00 00") << remote;
    }
}

// A local write too long for any frame is reported failed without reaching the wire, its other
// pieces with it. The host hears once per host variable that all its pieces are done, or at once
// of a failure, whose remaining pieces are purged (with per-variable stations, on its station
// only). Callbacks never registered are skipped.
TEST_F(Polling, ResultsPerHostVariablePurgesAndWritesTooLong) {
    const int silent4 = missed(4);
    info.writeMode = korvan::kWriteToPlc;
    info.maxUnits = 1500;  // raised after SetComInfo: pieces of 3,000 bytes
    info.retryCount = 1;
    info.scanDone = korvan::kScanDone;
    EXPECT_EQ(write(14, "0", "", 3000, 4, 8), 2);
    driver.writeList.append(owned(writeVar(14, 9, 1, "01 00"), 5, 9));
    EXPECT_EQ(poll(), good);
    EXPECT_EQ(hex(sent.at(0).left(6)), "01 21 80 00 00 09");  // the write that fits
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, failed}, {77, 5, 9, done}}));
    EXPECT_EQ(std::vector<int>({driver.commFailed, info.retryCount, info.scanDone,
                                driver.writeList.size(), static_cast<int>(errors.size())}),
              std::vector<int>({0, 1, korvan::kScanDone, 0, 0}));
    EXPECT_EQ(image(), (Image{{key(14, 9), 1}}));  // the refused write is not mirrored
    results.clear();
    const RW_VAR piece = owned(writeVar(14, 0, 1, "00 00"), 4, 8);
    driver.writeList << piece << piece << piece << owned(piece, 4, 8, 2);  // the last: another port
    EXPECT_EQ(run(3), (std::vector<int>{good, good, good}));
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, done}}));
    EXPECT_EQ(driver.retVar.ownerId, 4);
    driver.writeList.clear();
    results.clear();
    info.retryLimit = 0;
    info.perVarStation = 1;
    plc.setFaults(plcsim::Faults{1.0, 0, 0, 0, {}, 1});  // every reply dropped
    driver.writeList << piece << piece << owned(writeVar(14, 0, 1, "00 00", 2), 4, 8)
                     << owned(writeVar(14, 0, 1, "00 00"), 4, 9);
    EXPECT_EQ(poll(), silent4);
    EXPECT_EQ(results, (ResultCalls{{77, 4, 8, failed}}));
    ASSERT_EQ(driver.writeList.size(), 2);
    EXPECT_EQ(std::make_pair(driver.writeList.at(0).station, driver.writeList.at(1).itemId),
              std::make_pair(2, 9));
    RegistCallBackFuncIntf(nullptr, nullptr);
    driver.writeList.clear();
    driver.onceReadList << piece << owned(var(14, 0, 1), 4, 9);
    EXPECT_EQ(run(3), (std::vector<int>{silent4, silent4, -1}));
    EXPECT_TRUE(results.size() == 1 && errors.size() == 1);
}
