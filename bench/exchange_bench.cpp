// The driver's own cost per exchange and per host call, with canned replies: no line, no PLC.
//
//   exchange/read/N      one cyclic read of N words: ComCommunication, then DataCom with the
//                        correct reply, storing N words
//   exchange/write       one queued word write and its exchange
//   exchange/bit_in_word one bit-in-word write: read frame, reply, write frame, reply
//   exchange/remote_read one remote read of 2 words
//   host/read/N          GetRegisterData of N words; host/write: SetRegisterData of one word
//   .../polling          the same while another thread polls at full speed
#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>

#include "driver/Communication_Protocol.h"
#include "plc_model.h"

namespace {

constexpr int kWordArea = 14;

ComInfo port;

void resetDriver() {
    Communication_Protocol& d = PLC_driver;
    d.readList.clear();
    d.writeList.clear();
    d.onceReadList.clear();
    d.requestQueue.clear();
    d.registerCache.clear();
    d.commFailed = 0;
    port = ComInfo();
    port.maxUnits = 100;
    port.defaultStation = 1;
    port.retryLimit = 3;
    port.portId = 1;
    port.writeMode = 2;
    SetComInfo(&port);
    RegistCallBackFuncIntf([](int, int, int, int) { return 0; },
                           [](QList<RW_VAR>*, int, int) { return 0; });
}

RW_VAR variable(int area, int address, int count, int port = 1) {
    RW_VAR v;
    v.port = port;
    v.station = 1;
    v.area = area;
    v.address = address;
    v.count = count;
    return v;
}

// The PLC's reply to the frame the driver offers now, computed once, outside the timing.
QByteArray replyTo(plcsim::PlcModel& plc, const Protocol* request) {
    const plcsim::Reply r = plc.handle(plcsim::Bytes(request->frame.begin(), request->frame.end()));
    return QByteArray(reinterpret_cast<const char*>(r.bytes.data()),
                      static_cast<int>(r.bytes.size()));
}

plcsim::PlcModel& plc() {
    static plcsim::PlcModel model({1});
    return model;
}

void exchangeRead(benchmark::State& state) {
    resetDriver();
    const int words = static_cast<int>(state.range(0));
    PLC_driver.readList.append(variable(kWordArea, 100, words));
    QByteArray reply = replyTo(plc(), ComCommunication());
    PLC_driver.requestQueue.clear();
    for (auto _ : state) {
        ComCommunication();
        benchmark::DoNotOptimize(DataCom(&reply, reply.size()));
    }
    state.counters["words"] = words;
}
BENCHMARK(exchangeRead)->Name("exchange/read")->Arg(2)->Arg(50)->Arg(100);

void exchangeWrite(benchmark::State& state) {
    resetDriver();
    RW_VAR write = variable(kWordArea, 100, 1);
    write.direction = 1;
    write.data = QByteArray("\x34\x12", 2);
    PLC_driver.writeList.append(write);
    QByteArray ack = replyTo(plc(), ComCommunication());
    PLC_driver.requestQueue.clear();
    PLC_driver.writeList.clear();
    for (auto _ : state) {
        AddListWriteVar(&write);
        ComCommunication();
        benchmark::DoNotOptimize(DataCom(&ack, ack.size()));
        PLC_driver.writeBurst = 0;
    }
}
BENCHMARK(exchangeWrite)->Name("exchange/write");

void exchangeBitInWord(benchmark::State& state) {
    resetDriver();
    RW_VAR write = variable(29, 163, 1);
    write.direction = 1;
    write.data = QByteArray(1, '\1');
    PLC_driver.writeList.append(write);
    QByteArray wordReply = replyTo(plc(), ComCommunication());
    DataCom(&wordReply, wordReply.size());
    QByteArray ack = replyTo(plc(), ComCommunication());
    DataCom(&ack, ack.size());
    for (auto _ : state) {
        AddListWriteVar(&write);
        ComCommunication();
        DataCom(&wordReply, wordReply.size());
        ComCommunication();
        benchmark::DoNotOptimize(DataCom(&ack, ack.size()));
        PLC_driver.writeBurst = 0;
    }
}
BENCHMARK(exchangeBitInWord)->Name("exchange/bit_in_word");

void exchangeRemoteRead(benchmark::State& state) {
    resetDriver();
    port.remoteMode = 1;
    PLC_driver.readList.append(variable(kWordArea, 100, 2, 2));
    QByteArray reply = replyTo(plc(), ComCommunication());
    PLC_driver.requestQueue.clear();
    for (auto _ : state) {
        ComCommunication();
        benchmark::DoNotOptimize(DataCom(&reply, reply.size()));
    }
}
BENCHMARK(exchangeRemoteRead)->Name("exchange/remote_read");

// Polls cyclic reads of 100 words, as fast as it can, until told to stop.
class BackgroundPoller {
public:
    BackgroundPoller() {
        PLC_driver.readList.append(variable(kWordArea, 0, 100));
        reply_ = replyTo(plc(), ComCommunication());
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
    resetDriver();
    for (int i = 0; i < 200; ++i) {
        PLC_driver.registerCache.insert((1ull << 56) | (14ull << 48) | quint64(i), quint16(i));
    }
    std::unique_ptr<BackgroundPoller> poller;
    if (state.range(1) != 0) {
        poller = std::make_unique<BackgroundPoller>();
    }
    const int words = static_cast<int>(state.range(0));
    const QString address = QStringLiteral("100");
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
    resetDriver();
    port.writeMode = 0;  // image only: the write list would fill up
    std::unique_ptr<BackgroundPoller> poller;
    if (state.range(0) != 0) {
        poller = std::make_unique<BackgroundPoller>();
    }
    const QString address = QStringLiteral("7");
    QByteArray value("\x34\x12", 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            SetRegisterData(QString(), kWordArea, address, 1, &value, 1, 1, 1));
    }
}
BENCHMARK(hostWrite)->Name("host/write")->ArgNames({"polling"})->Arg(0)->Arg(1);

}  // namespace
