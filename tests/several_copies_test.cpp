// The library as a runtime loads it: a private copy per port, loaded RTLD_LOCAL, sharing only the
// process's Qt; and loaded and unloaded again and again (LeakSanitizer, in the ASan suite, checks
// that unloading releases what it held).
#include <dlfcn.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

#include "base/mutex_lock.h"  // KORVAN_TSAN under ThreadSanitizer
#include "loaded_driver.h"

namespace {

constexpr int kPorts = 4;

// The library, or a private copy of its file (in a folder of its own, removed at once: a loaded
// copy stays mapped), with every export resolved in it alone. As port `port` its own PLC serves
// station port + 1 with words that carry the port, so that values read through another copy show.
class Library {
public:
    explicit Library(bool privateCopy) {
        std::string path = KORVAN_LIBRARY_PATH;
        char folder[] = "/tmp/korvan_copy.XXXXXX";
        if (privateCopy && mkdtemp(folder) != nullptr) {
            path = folder + std::string("/copy.so");
            std::filesystem::copy_file(KORVAN_LIBRARY_PATH, path);
        }
        handle_.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
        EXPECT_NE(handle_, nullptr) << dlerror();
        if (privateCopy) {
            std::filesystem::remove_all(folder);
        }
#define KORVAN_RESOLVE(name) \
    name = reinterpret_cast<decltype(&::name)>(dlsym(handle_.get(), ::symbolOf(#name).c_str()));
        KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
#undef KORVAN_RESOLVE
        driver = static_cast<Communication_Protocol*>(dlsym(handle_.get(), "PLC_driver"));
        EXPECT_NE(driver, nullptr);
    }
    // Block length `maxUnits`, writing through, `words` words of area 14 from 0 read cyclically.
    void configure(int port, int maxUnits, int words, const QString& zero) {
        plc = std::make_unique<plcsim::PlcModel>(std::set<int>{port + 1});
        plc->setFill([port](int, int, std::uint32_t a) { return fillOf(port, a); });
        info = portRecord();
        info.maxUnits = maxUnits;
        info.defaultStation = port + 1;
        info.writeMode = korvan::kWriteToPlc;
        SetComInfo(&info);
        QList<HOSTVAR> cyclic{cyclicVar(14, zero, words, port + 1)};
        ReCreatReadVarList(&cyclic);
    }
    static quint16 fillOf(int port, std::uint32_t address) {
        return static_cast<quint16>((port + 1) << 12 | address);
    }
    int poll() {
        Protocol* p = ComCommunication();
        if (p == nullptr) {
            return -1;
        }
        const QByteArray sent = p->frame.left(p->sendLength);
        QByteArray reply = toQt(plc->handle(plcsim::Bytes(sent.begin(), sent.end())).bytes);
        return DataCom(&reply, reply.size())->result;
    }
    quint16 word(int address, int station) {
        QByteArray w;
        GetRegisterData(QString(), 14, QString::number(address), station, &w, 1);
        return w.size() == 2 ? quint16(quint8(w[0]) | quint8(w[1]) << 8) : 0xFFFF;
    }

#define KORVAN_MEMBER(name) decltype(&::name) name = nullptr;
    KORVAN_EXPORTED_FUNCTIONS(KORVAN_MEMBER)
#undef KORVAN_MEMBER
    Communication_Protocol* driver = nullptr;
    ComInfo info;
    std::unique_ptr<plcsim::PlcModel> plc;

private:
    std::unique_ptr<void, int (*)(void*)> handle_{nullptr, dlclose};
};

// Port `port` with a cyclic read of words 0..3, a write of word 100, a once-read of word 200 and
// station 10 + port switched off, polled six rounds: its write lands in its own PLC, it reads that
// PLC's words, and only its own station is off.
void runPort(Library& lib, int port) {
    const int station = port + 1;
    lib.configure(port, 100, 4, QString::fromLatin1("0"));
    QByteArray value(2, static_cast<char>(0x11 * station));
    lib.SetRegisterData(QString(), 14, QString::fromLatin1("100"), station, &value, 1, 1, port);
    RW_VAR v = hostVar(14, "200", 1, station);
    lib.AddListOnceReadVar(&v, korvan::kOnceReadPlanned);
    lib.EnCommStation(10 + port, korvan::kStationOff);
    for (int round = 0; round < 6; ++round) {
        EXPECT_EQ(lib.poll(), korvan::kResultGood) << "round " << round;
    }
    EXPECT_EQ(lib.plc->word(station, 0x80, 100), 0x1111 * station);
    for (int a : {0, 1, 2, 3, 200}) {
        EXPECT_EQ(lib.word(a, station), Library::fillOf(port, a)) << "word " << a;
    }
    for (int other = 0; other < kPorts; ++other) {
        EXPECT_EQ(lib.Ethernetcontains(10 + other), other == port ? 1 : 0);
    }
}

}  // namespace

// Copies run as ports 1..3, then the library itself is loaded, run as port 0 and unloaded a
// hundred times beside them: each load starts afresh, the copies' images stay as they were, and
// unloading releases the library. Installing one copy's message handler replaces another's.
TEST(SeveralCopies, EachPortsCopyKeepsItsOwnStateAcrossAHundredLoads) {
    std::vector<std::unique_ptr<Library>> copies;
    std::vector<QHash<quint64, quint16>> images;
    for (int port = 1; port < kPorts; ++port) {
        copies.push_back(std::make_unique<Library>(true));
        runPort(*copies.back(), port);
        images.push_back(copies.back()->driver->registerCache);
    }
    for (int cycle = 0; cycle < 100; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        Library lib(false);
        EXPECT_EQ(lib.Ethernetcontains(10), 0);
        EXPECT_EQ(lib.word(0, 1), 0);
        runPort(lib, 0);
        for (int i = 0; i < kPorts - 1; ++i) {
            ASSERT_NE(copies[i]->driver, lib.driver);
            EXPECT_TRUE(copies[i]->driver->registerCache == images[i]) << "port " << i + 1;
        }
        lib.SetComInfo(nullptr);
    }
    EXPECT_EQ(dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);

    ASSERT_NE(copies[0]->customMessageHandler, copies[1]->customMessageHandler);
    const QtMsgHandler original = qInstallMsgHandler(copies[0]->customMessageHandler);
    EXPECT_EQ(qInstallMsgHandler(copies[1]->customMessageHandler), copies[0]->customMessageHandler);
    qInstallMsgHandler(original);
}

// Every copy polled on a thread of its own while a host thread per copy writes, once-reads and
// reads the image, for 5 s under ThreadSanitizer (which must find nothing): each image ends with
// only its own PLC's and host's words.
TEST(ConcurrencyOfCopies, PollingAndHostThreadsOfEveryCopy) {
#if defined(KORVAN_TSAN)
    const auto runFor = std::chrono::seconds(5);
#else
    const auto runFor = std::chrono::milliseconds(500);
#endif
    constexpr int kWords = 32;
    // The address texts outlive the run: the driver's copies share their data, whose reference
    // counts Qt changes out of ThreadSanitizer's sight.
    std::vector<QString> texts;
    for (int a = 0; a < kWords; ++a) {
        texts.push_back(QString::number(a));
    }
    std::vector<std::unique_ptr<Library>> copies;
    for (int port = 0; port < kPorts; ++port) {
        copies.push_back(std::make_unique<Library>(true));
        copies.back()->configure(port, 8, kWords, texts[0]);
    }
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int port = 0; port < kPorts; ++port) {
        Library& copy = *copies[port];
        threads.emplace_back([&copy, &stop] {
            while (!stop.load()) {
                copy.poll();
            }
        });
        // Host values carry the port in their top bits, like the PLCs' fills.
        threads.emplace_back([&copy, &stop, &texts, port] {
            for (int turn = 0; !stop.load(); ++turn) {
                QByteArray value(2, static_cast<char>((port + 1) << 4 | (turn & 15)));
                copy.SetRegisterData(QString(), 14, texts[turn % kWords], port + 1, &value, 1, 1,
                                     turn);
                RW_VAR once = hostVar(14, "", 2, port + 1);
                once.addressText = texts[(turn + 7) % (kWords - 1)];
                copy.AddListOnceReadVar(&once, korvan::kOnceReadPlanned);
                QByteArray words;
                copy.GetRegisterData(QString(), 14, texts[0], port + 1, &words, kWords);
            }
        });
    }
    std::this_thread::sleep_for(runFor);
    stop.store(true);
    for (std::thread& t : threads) {
        t.join();
    }
    for (int port = 0; port < kPorts; ++port) {
        const Communication_Protocol& d = *copies[port]->driver;
        EXPECT_FALSE(d.registerCache.isEmpty());
        for (auto it = d.registerCache.constBegin(); it != d.registerCache.constEnd(); ++it) {
            EXPECT_EQ(it.value() >> 12, port + 1) << "port " << port << " word " << it.key();
        }
    }
}
