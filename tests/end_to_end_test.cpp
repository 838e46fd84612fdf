// Whole exchanges through the host's calls only: plan, poll against the PLC model, read and
// write values through the register image.
#include <gtest/gtest.h>

#include "host_list.h"
#include "polling_harness.h"

namespace {

constexpr int kCode14 = 0x80;
constexpr int kCode2 = 0x03;

class EndToEndTest : public PollingTest {
protected:
    QByteArray read(int area, const char* address, int count, int station = 1) {
        QByteArray out;
        GetRegisterData(QString(), area, QString::fromLatin1(address), station, &out, count);
        return out;
    }

    int write(int area, const char* address, QByteArray values, int count, int owner = 1,
              int item = 1) {
        return SetRegisterData(QString(), area, QString::fromLatin1(address), 1, &values, count,
                               owner, item);
    }

    // Polls `rounds` exchanges and returns the result codes.
    std::vector<int> run(int rounds) {
        std::vector<int> codes;
        while (rounds-- > 0) {
            codes.push_back(poll());
        }
        return codes;
    }
};

}  // namespace

TEST_F(EndToEndTest, TypicalCyclicRead) {
    plc.setWord(1, kCode14, 100, 0x1234);
    plc.setWord(1, kCode14, 101, 0xABCD);
    QList<HOSTVAR> vars{cyclicVar(14, "100", 2)};
    EXPECT_EQ(ReCreatReadVarList(&vars), 1);
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(sent.at(0).toHex(' '), QByteArray("01 20 80 00 00 64 00 02 7f db"));
    EXPECT_EQ(read(14, "100", 2), QByteArray::fromHex("3412CDAB"));
}

TEST_F(EndToEndTest, WritesReachThePlcAndReadsComeBack) {
    info.writeMode = 2;
    QList<HOSTVAR> vars{cyclicVar(14, "10", 4), cyclicVar(2, "20", 16)};
    ReCreatReadVarList(&vars);

    EXPECT_EQ(write(14, "10", QByteArray::fromHex("01000200"), 2), 1);
    EXPECT_EQ(write(29, "13.4", QByteArray(1, '\1'), 1, 2, 2), 2);
    EXPECT_EQ(write(2, "21", QByteArray::fromHex("0100"), 2, 3, 3), 3);
    run(8);
    EXPECT_EQ(plc.word(1, kCode14, 10), 1);
    EXPECT_EQ(plc.word(1, kCode14, 11), 2);
    EXPECT_EQ(plc.word(1, kCode14, 13), 0x0010);
    EXPECT_TRUE(plc.bit(1, kCode2, 21));
    EXPECT_FALSE(plc.bit(1, kCode2, 22));
    ASSERT_EQ(resultCalls().size(), 3u);
    for (const ResultCall& c : resultCalls()) {
        EXPECT_EQ(c.status, 1);
    }

    // Changed in the PLC, seen by the panel after the next cyclic reads.
    plc.setWord(1, kCode14, 12, 0x7777);
    plc.setBit(1, kCode2, 23, true);
    run(2);
    EXPECT_EQ(read(14, "10", 4), QByteArray::fromHex("0100020077771000"));
    EXPECT_EQ(read(2, "20", 4), QByteArray::fromHex("00010001"));
    EXPECT_EQ(read(29, "13.4", 1), QByteArray(1, '\1'));
}

TEST_F(EndToEndTest, SwitchedOffStationIsNeitherWrittenNorRead) {
    info.writeMode = 2;
    info.perVarStation = 1;
    QList<HOSTVAR> vars{cyclicVar(14, "0", 1, 1), cyclicVar(14, "0", 1, 2)};
    ReCreatReadVarList(&vars);
    EnCommStation(2, 0);
    QByteArray value = QByteArray::fromHex("0500");
    SetRegisterData(QString(), 14, QStringLiteral("0"), 2, &value, 1, 1, 1);
    run(3);
    EXPECT_EQ(plc.word(2, kCode14, 0), 0);
    EXPECT_TRUE(resultCalls().empty());  // dropped without a callback
    for (const QByteArray& frame : sent) {
        EXPECT_EQ(frame.at(0), 1);
    }
    EnableEthernet(2, 1);
    plc.setWord(2, kCode14, 0, 0x0042);
    run(2);
    EXPECT_EQ(read(14, "0", 1, 2), QByteArray::fromHex("4200"));
}

TEST_F(EndToEndTest, SilentPlcIsAbandonedAndRecoveredFrom) {
    info.writeMode = 2;
    info.retryLimit = 1;
    QList<HOSTVAR> vars{cyclicVar(14, "0", 1)};
    ReCreatReadVarList(&vars);
    plcsim::Faults silent;
    silent.silentStations = {1};
    plc.setFaults(silent);
    EXPECT_EQ(write(14, "3", QByteArray::fromHex("0900"), 1, 5, 6), 1);
    EXPECT_EQ(run(4), (std::vector<int>{0, 46, 0, 41}));
    EXPECT_EQ(resultCalls().at(0), (ResultCall{77, 5, 6, 2}));
    EXPECT_EQ(errorCalls().size(), 2u);
    EXPECT_TRUE(PLC_driver.commFailed);
    // While the link is down, a write shows in the image at once.
    write(14, "4", QByteArray::fromHex("0800"), 1, 5, 7);
    EXPECT_EQ(read(14, "4", 1), QByteArray::fromHex("0800"));

    plc.setFaults(plcsim::Faults());
    EXPECT_EQ(run(2), (std::vector<int>{1, 1}));
    EXPECT_FALSE(PLC_driver.commFailed);
    EXPECT_EQ(plc.word(1, kCode14, 4), 8);
}

TEST_F(EndToEndTest, CorruptedAndMisaddressedRepliesAreRetried) {
    info.retryLimit = 100;
    QList<HOSTVAR> vars{cyclicVar(14, "0", 8)};
    ReCreatReadVarList(&vars);
    plc.setWord(1, kCode14, 7, 0x0707);
    plcsim::Faults faults;
    faults.corrupt = 0.3;
    faults.misaddress = 0.3;
    faults.seed = 7;
    plc.setFaults(faults);
    int good = 0;
    for (int i = 0; i < 50; ++i) {
        const int code = poll();
        EXPECT_TRUE(code == 0 || code == 1) << code;
        good += code == 1;
    }
    EXPECT_GT(good, 5);
    EXPECT_GT(plc.stats().corrupted + plc.stats().misaddressed, 5);
    EXPECT_EQ(read(14, "7", 1), QByteArray::fromHex("0707"));
}

TEST_F(EndToEndTest, RemoteModeWritesAndReads) {
    info.remoteMode = 1;
    info.writeMode = 2;
    RW_VAR once = readVar(14, 100, 1);
    once.port = 1;
    plc.setWord(1, kCode14, 100, 0x0102);
    EXPECT_EQ(write(14, "50", QByteArray::fromHex("3412"), 1), 1);
    AddListOnceReadVar(&once, 1);
    // Remote frames, but the variables belong to this port: their replies are judged as local.
    EXPECT_EQ(run(2), (std::vector<int>{1, 1}));
    EXPECT_EQ(static_cast<unsigned char>(sent.at(0).at(0)), 24);
    EXPECT_EQ(static_cast<unsigned char>(sent.at(1).at(0)), 22);
    EXPECT_EQ(plc.word(1, kCode14, 50), 0x1234);
    EXPECT_EQ(read(14, "100", 1), QByteArray::fromHex("0201"));
    EXPECT_EQ(resultCalls().size(), 2u);
}
