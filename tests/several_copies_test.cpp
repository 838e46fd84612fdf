// Several ports in one process: a runtime loads one private copy of the library per port (a copy
// of the file, loaded RTLD_LOCAL). Each copy must keep its own driver
// object, port record, lists and register image, and polling one port must change nothing in
// another. What the copies do share is the one Qt of the process.
#include <dlfcn.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include "base/mutex_lock.h"
#include "loaded_driver.h"

namespace {

constexpr int kPorts = 4;
constexpr int kWordArea = 14;
constexpr int kWordAreaCode = 0x80;  // the PLC's code of area 14
constexpr int kCyclicWords = 4;
constexpr int kWrittenWord = 100;
constexpr int kOnceReadWord = 200;
constexpr int kFirstSwitchedOffStation = 10;
constexpr int kRoundsPerPort = 6;  // the write, the once-read, then cyclic reads

// One port's copy of the library: the file copied into a folder of its own and loaded privately,
// every export resolved in that copy alone. The folder goes at once: a loaded copy stays mapped.
class DriverCopy {
public:
    DriverCopy() {
        const std::filesystem::path original(KORVAN_LIBRARY_PATH);
        std::string folder =
            (std::filesystem::temp_directory_path() / "korvan_copy.XXXXXX").string();
        if (mkdtemp(folder.data()) != nullptr) {
            const std::filesystem::path copy = std::filesystem::path(folder) / original.filename();
            std::filesystem::copy_file(original, copy);
            handle_ = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
            std::filesystem::remove_all(folder);
        }
        if (handle_ == nullptr) {
            ADD_FAILURE() << "cannot load a copy in " << folder;
            return;
        }
#define KORVAN_RESOLVE(name) name = symbolOf<decltype(&::name)>(::symbolOf(#name).c_str());
        KORVAN_EXPORTED_FUNCTIONS(KORVAN_RESOLVE)
#undef KORVAN_RESOLVE
        driver = symbolOf<Communication_Protocol*>("PLC_driver");
    }
    ~DriverCopy() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    DriverCopy(const DriverCopy&) = delete;
    DriverCopy& operator=(const DriverCopy&) = delete;

    bool loaded() const {
        return handle_ != nullptr && driver != nullptr;
    }

#define KORVAN_MEMBER(name) decltype(&::name) name = nullptr;
    KORVAN_EXPORTED_FUNCTIONS(KORVAN_MEMBER)
#undef KORVAN_MEMBER
    Communication_Protocol* driver = nullptr;
    ComInfo info;

private:
    template <typename T>
    T symbolOf(const char* symbol) const {
        void* p = dlsym(handle_, symbol);
        EXPECT_NE(p, nullptr) << "missing export " << symbol;
        return reinterpret_cast<T>(p);
    }

    void* handle_ = nullptr;
};

std::ostream& operator<<(std::ostream& out, const RW_VAR& v) {
    return out << '(' << v.ownerId << ' ' << v.itemId << ' ' << v.station << ' ' << v.area << ' '
               << v.address << ' ' << v.count << ' ' << v.result << ' ' << v.data.toHex().data()
               << ')';
}

// Everything a copy remembers, as text: two copies' states compare as strings and a difference
// shows where it is.
std::string stateOf(const DriverCopy& copy) {
    const Communication_Protocol& d = *copy.driver;
    std::ostringstream out;
    out << "port record " << d.comInfo << " retries " << copy.info.retryCount << " frames "
        << copy.info.framesInExchange << '/' << copy.info.framesAnswered << " scan "
        << copy.info.scanDone << "\nsource " << d.currentSource << " bursts " << d.writeBurst << '/'
        << d.onceBurst << " scans " << d.scanCount << " failed " << int(d.commFailed) << "\nresult "
        << d.retVar << "\nlists";
    for (const QList<RW_VAR>* list : {&d.readList, &d.writeList, &d.onceReadList}) {
        out << " [";
        for (const RW_VAR& v : *list) {
            out << v;
        }
        out << ']';
    }
    out << "\nqueue";
    for (const Protocol& p : d.requestQueue) {
        out << ' ' << p.frame.toHex().data();
    }
    out << "\noff";
    for (const int station : d.stationMap.keys()) {
        out << ' ' << station;
    }
    out << "\nimage" << std::hex;
    for (auto it = d.registerCache.constBegin(); it != d.registerCache.constEnd(); ++it) {
        out << ' ' << it.key() << '=' << it.value();
    }
    return out.str();
}

// The words a port's PLC holds where nothing was written: its own pattern, so that values read
// through the wrong copy would show.
std::uint16_t fillOf(int port, std::uint32_t address) {
    return static_cast<std::uint16_t>((port + 1) << 12 | address);
}

// One polling round of `copy` against `plc`; the result code, or -1 when nothing was due.
int pollOnce(DriverCopy& copy, plcsim::PlcModel& plc) {
    Protocol* p = copy.ComCommunication();
    if (p == nullptr) {
        return -1;
    }
    const QByteArray sent = p->frame.left(p->sendLength);
    QByteArray reply = toQt(plc.handle(plcsim::Bytes(sent.begin(), sent.end())).bytes);
    return copy.DataCom(&reply, reply.size())->result;
}

}  // namespace

// Each copy is set up as its own port (its station, a cyclic read, a write, a once-read, a
// switched-off station), then polled against its own PLC while the others wait: only the
// polled copy's state changes, and it reads its own PLC's words.
TEST(SeveralCopies, EachPortsCopyKeepsItsOwnState) {
    std::vector<std::unique_ptr<DriverCopy>> copies;
    std::vector<std::unique_ptr<plcsim::PlcModel>> plcs;
    for (int port = 0; port < kPorts; ++port) {
        copies.push_back(std::make_unique<DriverCopy>());
        DriverCopy& copy = *copies.back();
        ASSERT_TRUE(copy.loaded());
        for (int other = 0; other < port; ++other) {
            ASSERT_NE(copy.driver, copies[other]->driver);
            ASSERT_NE(copy.SetComInfo, copies[other]->SetComInfo);
        }
        const int station = port + 1;
        plcs.push_back(std::make_unique<plcsim::PlcModel>(std::set<int>{station}));
        plcs.back()->setFill([port](int, int, std::uint32_t a) { return fillOf(port, a); });

        copy.info.maxUnits = 100;
        copy.info.defaultStation = station;
        copy.info.retryLimit = 2;
        copy.info.portId = 1;
        copy.info.writeMode = 2;
        copy.SetComInfo(&copy.info);
        QList<HOSTVAR> cyclic{
            cyclicVar(kWordArea, QString::fromLatin1("0"), kCyclicWords, station)};
        copy.ReCreatReadVarList(&cyclic);
        QByteArray value(2, static_cast<char>(0x11 * station));
        copy.SetRegisterData(QString(), kWordArea, QString::number(kWrittenWord), station, &value,
                             1, 1, port);
        RW_VAR once = hostVar(kWordArea, "", 1, station);
        once.addressText = QString::number(kOnceReadWord);
        copy.AddListOnceReadVar(&once, 0);
        copy.EnCommStation(kFirstSwitchedOffStation + port, 0);
    }

    for (int port = 0; port < kPorts; ++port) {
        SCOPED_TRACE("polling port " + std::to_string(port));
        std::vector<std::string> before;
        for (const auto& copy : copies) {
            before.push_back(stateOf(*copy));
        }
        DriverCopy& copy = *copies[port];
        for (int round = 0; round < kRoundsPerPort; ++round) {
            EXPECT_EQ(pollOnce(copy, *plcs[port]), 1) << "round " << round;
        }
        for (int other = 0; other < kPorts; ++other) {
            if (other == port) {
                EXPECT_NE(stateOf(copy), before[port]);
            } else {
                EXPECT_EQ(stateOf(*copies[other]), before[other]) << "port " << other;
            }
        }

        const int station = port + 1;
        EXPECT_EQ(plcs[port]->word(station, kWordAreaCode, kWrittenWord), 0x1111 * station);
        QByteArray words;
        copy.GetRegisterData(QString(), kWordArea, QString::fromLatin1("0"), station, &words,
                             kCyclicWords);
        for (int i = 0; i < kCyclicWords; ++i) {
            EXPECT_EQ(quint8(words[2 * i]) | quint8(words[2 * i + 1]) << 8, fillOf(port, i));
        }
        copy.GetRegisterData(QString(), kWordArea, QString::number(kOnceReadWord), station, &words,
                             1);
        EXPECT_EQ(quint8(words[0]) | quint8(words[1]) << 8, fillOf(port, kOnceReadWord));
        for (int other = 0; other < kPorts; ++other) {
            EXPECT_EQ(copy.Ethernetcontains(kFirstSwitchedOffStation + other),
                      other == port ? 1 : 0);
        }
    }
}

// Qt is loaded once per process, whatever copies use it: its message handler, for one, is the
// process's. Installing one copy's log handler replaces another's.
TEST(SeveralCopies, ShareTheOneQtOfTheProcess) {
    DriverCopy first;
    DriverCopy second;
    ASSERT_TRUE(first.loaded() && second.loaded());
    ASSERT_NE(first.customMessageHandler, second.customMessageHandler);

    const QtMsgHandler original = qInstallMsgHandler(first.customMessageHandler);
    EXPECT_EQ(qInstallMsgHandler(second.customMessageHandler), first.customMessageHandler);
    qInstallMsgHandler(original);
}

// Every copy polled on a thread of its own against its own PLC while a host thread per copy
// writes, once-reads and reads the image, as a runtime with several ports does: for 5 s under
// ThreadSanitizer (which must find nothing), briefly otherwise. Each image ends with only its own
// PLC's and host's words.
TEST(ConcurrencyOfCopies, PollingAndHostThreadsOfEveryCopy) {
#if defined(KORVAN_TSAN)
    const auto runFor = std::chrono::seconds(5);
#else
    const auto runFor = std::chrono::milliseconds(500);
#endif
    constexpr int kWords = 32;
    std::vector<std::unique_ptr<DriverCopy>> copies;
    std::vector<std::unique_ptr<plcsim::PlcModel>> plcs;
    // The host's address texts outlive the run: the driver's copies share their data, and Qt's
    // reference counts are out of ThreadSanitizer's sight.
    std::vector<QString> texts;
    for (int a = 0; a < kWords; ++a) {
        texts.push_back(QString::number(a));
    }
    for (int port = 0; port < kPorts; ++port) {
        copies.push_back(std::make_unique<DriverCopy>());
        DriverCopy& copy = *copies.back();
        ASSERT_TRUE(copy.loaded());
        plcs.push_back(std::make_unique<plcsim::PlcModel>(std::set<int>{1}));
        plcs.back()->setFill([port](int, int, std::uint32_t a) { return fillOf(port, a); });
        copy.info.maxUnits = 8;
        copy.info.defaultStation = 1;
        copy.info.retryLimit = 2;
        copy.info.portId = 1;
        copy.info.writeMode = 2;
        copy.SetComInfo(&copy.info);
        QList<HOSTVAR> cyclic{cyclicVar(kWordArea, texts[0], kWords)};
        copy.ReCreatReadVarList(&cyclic);
    }
    // Host values carry the port in their top bits, like the PLCs' fills.
    const auto hostWord = [](int port, long turn) {
        return static_cast<quint16>((port + 1) << 12 | 0x800 | (turn & 0x7FF));
    };
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int port = 0; port < kPorts; ++port) {
        DriverCopy& copy = *copies[port];
        plcsim::PlcModel& plc = *plcs[port];
        threads.emplace_back([&copy, &plc, &stop] {
            while (!stop.load()) {
                pollOnce(copy, plc);
            }
        });
        threads.emplace_back([&copy, &stop, &texts, hostWord, port] {
            for (long turn = 0; !stop.load(); ++turn) {
                const int address = static_cast<int>(turn % kWords);
                const quint16 w = hostWord(port, turn);
                QByteArray value;
                value.append(static_cast<char>(w & 0xFF)).append(static_cast<char>(w >> 8));
                copy.SetRegisterData(QString(), kWordArea, texts[address], 1, &value, 1, 1,
                                     static_cast<int>(turn));
                RW_VAR once = hostVar(kWordArea, "", 2, 1);
                once.addressText = texts[(address + 7) % (kWords - 1)];
                copy.AddListOnceReadVar(&once, 0);
                QByteArray words;
                copy.GetRegisterData(QString(), kWordArea, texts[0], 1, &words, kWords);
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
