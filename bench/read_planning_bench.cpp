// Rebuild of the cyclic read list for a panel's worth of variables (see panel_variables.h).
#include <benchmark/benchmark.h>

#include "base/Communication_Protocol.h"
#include "panel_variables.h"

namespace {

void BM_ReadListRebuild(benchmark::State& state) {
    ComInfo info;
    bench::usePlanningPort(info);
    QList<HOSTVAR> list = bench::panelVariables(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ReCreatReadVarList(&list));
    }
    state.counters["blocks"] = PLC_driver.readList.size();
    SetComInfo(nullptr);
}

BENCHMARK(BM_ReadListRebuild)
    ->Name("plan")
    ->Arg(100)
    ->Arg(300)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Arg(30000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
