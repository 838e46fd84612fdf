// The read-list rebuild against the plan made the straightforward way, from the exported steps:
// every variable a record, bucketed by station and normalised area in ordered maps, each bucket
// sorted with Bubble_Sort and grouped with BitVarReCreat. Random host lists, every block length
// that behaves differently, both station modes: the lists must be equal entry by entry, texts
// included.
#include <gtest/gtest.h>

#include <QtCore/QMap>
#include <random>

#include "base/Communication_Protocol.h"
#include "base/driver_functions.h"

namespace {

HOSTVAR cyclicVar(int area, const QString& address, int count, int station, const char* name) {
    HOSTVAR h;
    h.area = static_cast<quint8>(area);
    h.station = static_cast<quint8>(station);
    h.addressText = address;
    h.nameText = QString::fromLatin1(name);
    h.count = count;
    return h;
}

QList<RW_VAR> referencePlan(const QList<HOSTVAR>& hosts, const ComInfo& info) {
    QMap<int, QMap<int, QList<RW_VAR>>> buckets;
    for (const HOSTVAR& h : hosts) {
        const int address = StringAddressToInt(h.area, h.addressText);
        const int station = info.perVarStation == 0 ? info.defaultStation : h.station;
        if (address < 0 || station == 0) {
            continue;
        }
        RW_VAR v;
        v.itemId = -1;
        v.remoteMode = info.remoteMode;
        v.port = info.portId;
        v.nameText = h.nameText;
        v.addressText = h.addressText;
        v.area = h.area;
        v.address = address;
        v.station = station;
        v.count = h.count;
        PLC_driver.update_rw_var(&v);
        buckets[station][v.area].append(v);
    }
    const QList<RW_VAR> saved = PLC_driver.readList;
    PLC_driver.readList.clear();
    for (auto& areas : buckets) {
        for (QList<RW_VAR>& bucket : areas) {
            Bubble_Sort(&bucket);
            BitVarReCreat(&bucket, info.maxUnits);
        }
    }
    QList<RW_VAR> plan = PLC_driver.readList;
    PLC_driver.readList = saved;
    return plan;
}

QList<HOSTVAR> randomHosts(std::mt19937& rng) {
    constexpr int kAreas[] = {0, 1, 2, 13, 14, 20, 28, 29, 30, 200};
    const auto pick = [&rng](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(rng);
    };
    QList<HOSTVAR> hosts;
    for (int i = pick(0, 300); i > 0; --i) {
        const int area = kAreas[pick(0, static_cast<int>(std::size(kAreas)) - 1)];
        const int first = pick(0, 3000);
        QString text = QString::number(first, area <= 1 ? 8 : 10);
        switch (pick(0, 12)) {
            case 0:
                text = QString::fromLatin1(" %1").arg(first);  // through QString::toInt
                break;
            case 1:
                text = QString::fromLatin1("-%1").arg(first);
                break;
            case 2:
                text = QString::fromLatin1("x");
                break;
            default:
                break;
        }
        if (area == 29) {
            text = QString::fromLatin1("%1.%2").arg(first / 16).arg(pick(0, 40));
        }
        const QString name = QString::fromLatin1("v%1").arg(i);
        hosts.append(cyclicVar(area, text, pick(-2, 150), pick(0, 4), ""));
        hosts.last().nameText = name;
    }
    return hosts;
}

class RebuildReferenceTest : public ::testing::Test {
protected:
    void SetUp() override {
        PLC_driver.readList.clear();
        info.portId = 1;
        SetComInfo(&info);
    }
    void TearDown() override {
        PLC_driver.readList.clear();
        SetComInfo(nullptr);
    }
    ComInfo info;
};

TEST_F(RebuildReferenceTest, GivesTheSameListAsPlanningBucketByBucket) {
    std::mt19937 rng(99);
    for (int round = 0; round < 400; ++round) {
        info.maxUnits = std::array<int, 6>{-3, 0, 1, 2, 7, 100}[round % 6];
        info.perVarStation = round % 5 == 0 ? 0 : 1;
        info.defaultStation = round % 10 == 0 ? 0 : 3;
        QList<HOSTVAR> hosts = randomHosts(rng);
        const QList<RW_VAR> expected = referencePlan(hosts, info);
        ASSERT_EQ(ReCreatReadVarList(&hosts), hosts.isEmpty() ? 0 : expected.size());
        ASSERT_EQ(PLC_driver.readList.size(), hosts.isEmpty() ? 0 : expected.size());
        for (int i = 0; i < PLC_driver.readList.size(); ++i) {
            const RW_VAR& got = PLC_driver.readList.at(i);
            const RW_VAR& want = expected.at(i);
            ASSERT_EQ(std::make_tuple(got.station, got.area, got.address, got.count),
                      std::make_tuple(want.station, want.area, want.address, want.count))
                << "round " << round << " entry " << i;
            ASSERT_EQ(got.nameText, want.nameText) << "round " << round << " entry " << i;
            ASSERT_EQ(got.addressText, want.addressText);
            ASSERT_EQ(std::make_tuple(got.ownerId, got.itemId, got.direction, got.remoteMode,
                                      got.port, got.result, got.mark, got.extra),
                      std::make_tuple(want.ownerId, want.itemId, want.direction, want.remoteMode,
                                      want.port, want.result, want.mark, want.extra));
        }
    }
}

}  // namespace
