// The library as a runtime loads it: once per port, a private copy of the file loaded RTLD_LOCAL,
// each copy with its own driver object, lists and register image, and only the process's one Qt
// shared; and loaded and unloaded again and again, each load starting from a freshly constructed
// driver (the ASan suite's LeakSanitizer checks that unloading releases what it held).
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
// copy stays mapped), with every export resolved in it alone; unloaded as it goes. As port
// `port` it has its own PLC, serving station port + 1 with words that carry the port, so that
// values read through the wrong copy show.
class Library {
public:
    explicit Library(bool privateCopy) {
        std::filesystem::path path(KORVAN_LIBRARY_PATH);
        std::string folder =
            (std::filesystem::temp_directory_path() / "korvan_copy.XXXXXX").string();
        if (privateCopy && mkdtemp(folder.data()) != nullptr) {
            const std::filesystem::path copy = std::filesystem::path(folder) / path.filename();
            std::filesystem::copy_file(path, copy);
            path = copy;
        }
        handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(handle_, nullptr) << dlerror();
        if (privateCopy) {
            std::filesystem::remove_all(folder);
        }
#define KORVAN_RESOLVE(name) \
    name = reinterpret_cast<decltype(&::name)>(dlsym(handle_, ::symbolOf(#name).c_str()));
        KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
#undef KORVAN_RESOLVE
        driver = static_cast<Communication_Protocol*>(dlsym(handle_, "PLC_driver"));
    }
    ~Library() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }

    // Block length `maxUnits`, writing through to the PLC, `words` words of area 14 read from
    // address 0 cyclically.
    void configure(int port, int maxUnits, int words, const QString& zero) {
        plc = std::make_unique<plcsim::PlcModel>(std::set<int>{port + 1});
        plc->setFill([port](int, int, std::uint32_t a) { return fillOf(port, a); });
        info.maxUnits = maxUnits;
        info.defaultStation = port + 1;
        info.retryLimit = 2;
        info.portId = 1;
        info.writeMode = korvan::kWriteToPlc;
        SetComInfo(&info);
        QList<HOSTVAR> cyclic{cyclicVar(14, zero, words, port + 1)};
        ReCreatReadVarList(&cyclic);
    }
    static quint16 fillOf(int port, std::uint32_t address) {
        return static_cast<quint16>((port + 1) << 12 | address);
    }
    // One polling round: the result code, or -1 when nothing was due.
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
    void* handle_ = nullptr;
};

// Port `port` as a runtime sets it up: a block length of 100, a cyclic read of words 0..3, a
// write of word 100, a once-read of word 200, station 10 + port switched off. Polled six rounds
// (the write, the once-read, cyclic reads), its write lands in its own PLC, it reads that PLC's
// words and it has its own station switched off alone.
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

// Copies of ports 1..3 each run as their port, then the library itself is loaded, run as port 0
// and unloaded a hundred times beside them: each load starts from nothing the last one left, and
// the copies' images stay as they were. Unloading really releases the library, as nothing else in
// this process holds it. Qt is loaded once per process, whatever copies use it: its message
// handler, for one, is the process's, so that installing one copy's log handler replaces
// another's.
TEST(SeveralCopies, EachPortsCopyKeepsItsOwnStateAcrossAHundredLoads) {
    std::vector<std::unique_ptr<Library>> copies;
    std::vector<QHash<quint64, quint16>> images;
    for (int port = 1; port < kPorts; ++port) {
        copies.push_back(std::make_unique<Library>(true));
        ASSERT_NE(copies.back()->driver, nullptr);
        runPort(*copies.back(), port);
        images.push_back(copies.back()->driver->registerCache);
    }
    for (int cycle = 0; cycle < 100; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        Library lib(false);
        ASSERT_NE(lib.driver, nullptr);
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

// Every copy polled on a thread of its own against its own PLC while a host thread per copy
// writes, once-reads and reads the image: for 5 s under ThreadSanitizer (which must find
// nothing), briefly otherwise. Each image ends with only its own PLC's and host's words.
TEST(ConcurrencyOfCopies, PollingAndHostThreadsOfEveryCopy) {
#if defined(KORVAN_TSAN)
    const auto runFor = std::chrono::seconds(5);
#else
    const auto runFor = std::chrono::milliseconds(500);
#endif
    constexpr int kWords = 32;
    // The host's address texts outlive the run: the driver's copies share their data, and Qt's
    // reference counts are out of ThreadSanitizer's sight.
    std::vector<QString> texts;
    for (int a = 0; a < kWords; ++a) {
        texts.push_back(QString::number(a));
    }
    std::vector<std::unique_ptr<Library>> copies;
    for (int port = 0; port < kPorts; ++port) {
        copies.push_back(std::make_unique<Library>(true));
        ASSERT_NE(copies.back()->driver, nullptr);
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
