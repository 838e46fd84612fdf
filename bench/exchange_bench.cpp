// The driver's own cost per exchange and per host call, with canned replies: no line, no PLC.
//
//   exchange/...         one exchange of each kind in exchange_cases.h
//   host/read/N          GetRegisterData of N words; host/write: SetRegisterData of one word
//   .../polling          the same while another thread polls at full speed
#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>

#include "base/Communication_Protocol.h"
#include "exchange_cases.h"

namespace {

using bench::kWordArea;

void runExchange(benchmark::State& state, bench::ExchangeCase exchange) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(exchange.once());
    }
}

void exchangeRead(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::read(static_cast<int>(state.range(0))));
    state.counters["words"] = static_cast<double>(state.range(0));
}
BENCHMARK(exchangeRead)->Name("exchange/read")->Arg(2)->Arg(50)->Arg(100);

void exchangeChangingRead(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::changingRead(static_cast<int>(state.range(0))));
}
BENCHMARK(exchangeChangingRead)->Name("exchange/changing")->Arg(2)->Arg(100);

void exchangeWrite(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::write());
}
BENCHMARK(exchangeWrite)->Name("exchange/write");

void exchangeBitInWord(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::bitInWord());
}
BENCHMARK(exchangeBitInWord)->Name("exchange/bit_in_word");

void exchangeRemoteRead(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::remoteRead());
}
BENCHMARK(exchangeRemoteRead)->Name("exchange/remote_read");

// One cyclic read of a panel's planned list, against the number of the panel's variables.
void exchangePanel(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::panel(static_cast<int>(state.range(0))));
    state.counters["blocks"] = PLC_driver.readList.size();
}
BENCHMARK(exchangePanel)
    ->Name("exchange/panel")
    ->Arg(100)
    ->Arg(300)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Arg(30000)
    ->Arg(100000);

// The same for a 1,000-variable panel, every reply carrying other values than the round before.
void exchangeChangingPanel(benchmark::State& state) {
    runExchange(state, bench::ExchangeCase::changingPanel(static_cast<int>(state.range(0))));
    state.counters["blocks"] = PLC_driver.readList.size();
}
BENCHMARK(exchangeChangingPanel)->Name("exchange/panel_changing")->Arg(1000);

// Polls cyclic reads of 100 words, as fast as it can, until told to stop.
class BackgroundPoller {
public:
    BackgroundPoller() {
        PLC_driver.readList.append(bench::variable(kWordArea, 0, 100));
        reply_ = bench::replyTo(ComCommunication());
        thread_ = std::thread([this] {
            while (!stop_.load(std::memory_order_relaxed)) {
                if (ComCommunication() != nullptr) {
                    DataCom(&reply_, reply_.size());
                }
            }
        });
    }
    ~BackgroundPoller() {
        stop_ = true;
        thread_.join();
    }

private:
    QByteArray reply_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

void hostRead(benchmark::State& state) {
    bench::resetDriver();
    for (int i = 0; i < 200; ++i) {
        PLC_driver.registerCache.insert((1ull << 56) | (quint64(kWordArea) << 48) | quint64(i),
                                        quint16(i));
    }
    std::unique_ptr<BackgroundPoller> poller;
    if (state.range(1) != 0) {
        poller = std::make_unique<BackgroundPoller>();
    }
    const int words = static_cast<int>(state.range(0));
    const QString address = QString::fromLatin1("100");
    QByteArray out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetRegisterData(QString(), kWordArea, address, 1, &out, words));
    }
}
BENCHMARK(hostRead)
    ->Name("host/read")
    ->ArgNames({"words", "polling"})
    ->Args({1, 0})
    ->Args({100, 0})
    ->Args({1, 1})
    ->Args({100, 1});

void hostWrite(benchmark::State& state) {
    bench::resetDriver();
    bench::benchPort().writeMode = korvan::kWriteImageOnly;  // the write list would fill up
    std::unique_ptr<BackgroundPoller> poller;
    if (state.range(0) != 0) {
        poller = std::make_unique<BackgroundPoller>();
    }
    const QString address = QString::fromLatin1("7");
    QByteArray value("\x34\x12", 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            SetRegisterData(QString(), kWordArea, address, 1, &value, 1, 1, 1));
    }
}
BENCHMARK(hostWrite)->Name("host/write")->ArgNames({"polling"})->Arg(0)->Arg(1);

}  // namespace
