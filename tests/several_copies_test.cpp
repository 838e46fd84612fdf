// The library as a runtime loads it: once per port, a private copy of the file loaded RTLD_LOCAL,
// each copy with its own driver object, lists and register image, and only the process's one Qt
// shared; and loaded and unloaded again and again, each load starting from a freshly constructed
// driver (the ASan suite's LeakSanitizer checks that unloading releases what it held).
#include <dlfcn.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include "loaded_driver.h"

namespace {

constexpr int kPorts = 4;
constexpr int kArea = 14;  // the PLC's code 0x80

// The library, or a private copy of its file (in a folder of its own, removed at once: a loaded
// copy stays mapped), with every export resolved in it alone; unloaded as it goes.
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
        if (privateCopy) {
            std::filesystem::remove_all(folder);
        }
        if (handle_ == nullptr) {
            ADD_FAILURE() << "cannot load " << path;
            return;
        }
#define KORVAN_RESOLVE(name) name = symbol<decltype(&::name)>(::symbolOf(#name).c_str());
        KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
#undef KORVAN_RESOLVE
        driver = symbol<Communication_Protocol*>("PLC_driver");
    }
    ~Library() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // A port of block length `maxUnits` and default `station`, writing through to the PLC, that
    // reads `words` words of area 14 from address 0 cyclically.
    void configure(int station, int maxUnits, int words, const QString& zero) {
        info.maxUnits = maxUnits;
        info.defaultStation = station;
        info.retryLimit = 2;
        info.portId = 1;
        info.writeMode = 2;
        SetComInfo(&info);
        QList<HOSTVAR> cyclic{cyclicVar(kArea, zero, words, station)};
        ReCreatReadVarList(&cyclic);
    }
    // One polling round against `plc`: the result code, or -1 when nothing was due.
    int poll(plcsim::PlcModel& plc) {
        Protocol* p = ComCommunication();
        if (p == nullptr) {
            return -1;
        }
        const QByteArray sent = p->frame.left(p->sendLength);
        QByteArray reply = toQt(plc.handle(plcsim::Bytes(sent.begin(), sent.end())).bytes);
        return DataCom(&reply, reply.size())->result;
    }
    quint16 word(const QString& address, int station) {
        QByteArray w;
        GetRegisterData(QString(), kArea, address, station, &w, 1);
        return w.size() == 2 ? quint16(quint8(w[0]) | quint8(w[1]) << 8) : 0xFFFF;
    }

#define KORVAN_MEMBER(name) decltype(&::name) name = nullptr;
    KORVAN_EXPORTED_FUNCTIONS(KORVAN_MEMBER)
#undef KORVAN_MEMBER
    Communication_Protocol* driver = nullptr;
    ComInfo info;

private:
    template <typename T>
    T symbol(const char* name) const {
        void* p = dlsym(handle_, name);
        EXPECT_NE(p, nullptr) << "missing export " << name;
        return reinterpret_cast<T>(p);
    }

    void* handle_ = nullptr;
};

// What a copy remembers, as text, so that a difference shows where it is.
std::string stateOf(const Library& copy) {
    const Communication_Protocol& d = *copy.driver;
    std::ostringstream out;
    out << d.comInfo << " source " << d.currentSource << " bursts " << d.writeBurst << '/'
        << d.onceBurst << " scans " << d.scanCount << " failed " << int(d.commFailed) << " result "
        << d.retVar.ownerId << '/' << d.retVar.result << " lists " << d.readList.size() << '/'
        << d.writeList.size() << '/' << d.onceReadList.size() << '/' << d.requestQueue.size()
        << " off";
    for (const int station : d.stationMap.keys()) {
        out << ' ' << station;
    }
    out << " image" << std::hex;
    for (auto it = d.registerCache.constBegin(); it != d.registerCache.constEnd(); ++it) {
        out << ' ' << it.key() << '=' << it.value();
    }
    return out.str();
}

// A port's PLC words where nothing was written: its own pattern, so that values read through the
// wrong copy would show.
std::uint16_t fillOf(int port, std::uint32_t address) {
    return static_cast<std::uint16_t>((port + 1) << 12 | address);
}
std::unique_ptr<plcsim::PlcModel> plcOf(int port, int station) {
    auto plc = std::make_unique<plcsim::PlcModel>(std::set<int>{station});
    plc->setFill([port](int, int, std::uint32_t a) { return fillOf(port, a); });
    return plc;
}

}  // namespace

// Each copy set up as its own port (its station, a cyclic read of words 0..3, a write of word
// 100, a once-read of word 200, station 10 + port switched off), then polled against its own PLC
// while the others wait: only the polled copy's state changes, and it reads its own PLC's words.
TEST(SeveralCopies, EachPortsCopyKeepsItsOwnState) {
    const QString zero = QString::fromLatin1("0"), once = QString::fromLatin1("200");
    std::vector<std::unique_ptr<Library>> copies;
    std::vector<std::unique_ptr<plcsim::PlcModel>> plcs;
    for (int port = 0; port < kPorts; ++port) {
        const int station = port + 1;
        copies.push_back(std::make_unique<Library>(true));
        Library& copy = *copies.back();
        ASSERT_NE(copy.driver, nullptr);
        for (int other = 0; other < port; ++other) {
            ASSERT_NE(copy.driver, copies[other]->driver);
        }
        plcs.push_back(plcOf(port, station));
        copy.configure(station, 100, 4, zero);
        QByteArray value(2, static_cast<char>(0x11 * station));
        copy.SetRegisterData(QString(), kArea, QString::fromLatin1("100"), station, &value, 1, 1,
                             port);
        RW_VAR v = hostVar(kArea, "200", 1, station);
        copy.AddListOnceReadVar(&v, 0);
        copy.EnCommStation(10 + port, 0);
    }

    for (int port = 0; port < kPorts; ++port) {
        SCOPED_TRACE("polling port " + std::to_string(port));
        std::vector<std::string> before;
        for (const auto& copy : copies) {
            before.push_back(stateOf(*copy));
        }
        Library& copy = *copies[port];
        for (int round = 0; round < 6; ++round) {  // the write, the once-read, cyclic reads
            EXPECT_EQ(copy.poll(*plcs[port]), 1) << "round " << round;
        }
        EXPECT_NE(stateOf(copy), before[port]);
        for (int other = 0; other < kPorts; ++other) {
            if (other != port) {
                EXPECT_EQ(stateOf(*copies[other]), before[other]) << "port " << other;
            }
            EXPECT_EQ(copy.Ethernetcontains(10 + other), other == port ? 1 : 0);
        }
        const int station = port + 1;
        EXPECT_EQ(plcs[port]->word(station, 0x80, 100), 0x1111 * station);
        for (int a = 0; a < 4; ++a) {
            EXPECT_EQ(copy.word(QString::number(a), station), fillOf(port, a));
        }
        EXPECT_EQ(copy.word(once, station), fillOf(port, 200));
    }
}

// Qt is loaded once per process, whatever copies use it: its message handler, for one, is the
// process's. Installing one copy's log handler replaces another's.
TEST(SeveralCopies, ShareTheOneQtOfTheProcess) {
    Library first(true), second(true);
    ASSERT_NE(first.customMessageHandler, second.customMessageHandler);
    const QtMsgHandler original = qInstallMsgHandler(first.customMessageHandler);
    EXPECT_EQ(qInstallMsgHandler(second.customMessageHandler), first.customMessageHandler);
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
    std::vector<std::unique_ptr<plcsim::PlcModel>> plcs;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int port = 0; port < kPorts; ++port) {
        copies.push_back(std::make_unique<Library>(true));
        Library& copy = *copies.back();
        ASSERT_NE(copy.driver, nullptr);
        copy.configure(1, 8, kWords, texts[0]);
        plcs.push_back(plcOf(port, 1));
        threads.emplace_back([&copy, &plc = *plcs.back(), &stop] {
            while (!stop.load()) {
                copy.poll(plc);
            }
        });
        // Host values carry the port in their top bits, like the PLCs' fills.
        threads.emplace_back([&copy, &stop, &texts, port] {
            for (int turn = 0; !stop.load(); ++turn) {
                const int w = (port + 1) << 12 | 0x800 | (turn & 0x7FF);
                QByteArray value;
                value.append(static_cast<char>(w & 0xFF)).append(static_cast<char>(w >> 8));
                copy.SetRegisterData(QString(), kArea, texts[turn % kWords], 1, &value, 1, 1, turn);
                RW_VAR once = hostVar(kArea, "", 2, 1);
                once.addressText = texts[(turn + 7) % (kWords - 1)];
                copy.AddListOnceReadVar(&once, 0);
                QByteArray words;
                copy.GetRegisterData(QString(), kArea, texts[0], 1, &words, kWords);
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

// A hundred loads with a little of everything in between: each starts from nothing left by the
// last (no station switched off, an empty image) and runs whole exchanges.
TEST(LoadUnload, HundredCyclesWithWorkInBetween) {
    plcsim::PlcModel plc({1});
    const QString zero = QString::fromLatin1("0"), seven = QString::fromLatin1("7");
    for (int cycle = 0; cycle < 100; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        Library lib(false);
        ASSERT_NE(lib.driver, nullptr);
        EXPECT_EQ(lib.Ethernetcontains(3), 0);
        EXPECT_EQ(lib.word(seven, 1), 0);
        lib.configure(1, 10, 8, zero);
        QByteArray value(2, static_cast<char>(cycle));
        lib.SetRegisterData(QString(), kArea, seven, 1, &value, 1, 1, cycle);
        lib.EnCommStation(3, 0);
        EXPECT_EQ(lib.poll(plc), 1);
        EXPECT_EQ(lib.poll(plc), 1);
        EXPECT_EQ(lib.poll(plc), 1);
        EXPECT_EQ(plc.word(1, 0x80, 7), (cycle & 0xFF) * 0x101);
        lib.SetComInfo(nullptr);
    }
}

// Unloading really releases the library: nothing else in this process holds it.
TEST(LoadUnload, UnloadingReleasesTheLibrary) {
    { Library lib(false); }
    EXPECT_EQ(dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
}
