// Rebuild of the cyclic read list for a panel's worth of variables, spread over several stations
// and bit, word and bit-of-word areas, in no particular order.
#include <benchmark/benchmark.h>

#include <iterator>
#include <random>

#include "driver/Communication_Protocol.h"
#include "driver/areas.h"

namespace {

constexpr int kStations = 8;
constexpr int kAreas[] = {0, 2, 9, 14, 20, 29};
constexpr int kHighestWord = 20000;
constexpr int kLongestCount = 32;
constexpr unsigned kSeed = 12345;

QList<HOSTVAR> panelVariables(int size) {
    std::mt19937 rng(kSeed);
    std::uniform_int_distribution<int> station(1, kStations);
    std::uniform_int_distribution<int> areaIndex(0, static_cast<int>(std::size(kAreas)) - 1);
    std::uniform_int_distribution<int> word(0, kHighestWord);
    std::uniform_int_distribution<int> bit(0, 15);
    std::uniform_int_distribution<int> count(1, kLongestCount);
    QList<HOSTVAR> list;
    list.reserve(size);
    for (int i = 0; i < size; ++i) {
        HOSTVAR var;
        var.area = static_cast<quint8>(kAreas[areaIndex(rng)]);
        var.station = static_cast<quint8>(station(rng));
        var.count = count(rng);
        if (var.area == kBitOfWordArea) {
            var.addressText = QStringLiteral("%1.%2").arg(word(rng)).arg(bit(rng));
        } else {
            const int base = isOctalArea(var.area) ? 8 : 10;
            var.addressText = QString::number(word(rng), base);
        }
        list.append(var);
    }
    return list;
}

void BM_ReadListRebuild(benchmark::State& state) {
    ComInfo info;
    info.maxUnits = kMaxUnitsCap;
    info.perVarStation = 1;
    info.portId = 1;
    SetComInfo(&info);
    QList<HOSTVAR> list = panelVariables(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ReCreatReadVarList(&list));
    }
    state.counters["blocks"] = PLC_driver.readList.size();
    SetComInfo(nullptr);
}

BENCHMARK(BM_ReadListRebuild)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
