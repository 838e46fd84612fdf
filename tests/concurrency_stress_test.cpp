// One copy of the driver under load for a set time: the polling thread runs against a PLC that
// drops and damages some replies, while four host threads write values, register writes and
// once-reads, rebuild the read list and switch a station, and read the image. Afterwards every
// write and once-read queued for the station that stays on has been reported, none more often
// than the reporting rules allow, every result code is one the driver defines, and every word of
// the image is one that the PLC or a host produced for that very word.
//
// It runs for KORVAN_STRESS_SECONDS, else 5 s under ThreadSanitizer and 1 s otherwise
// (scripts/stress.sh runs it for a minute). A deadlock runs into the test's time limit.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "loaded_driver.h"

namespace {

#if defined(KORVAN_TSAN)
constexpr double kDefaultSeconds = 5.0;
#else
constexpr double kDefaultSeconds = 1.0;
#endif
constexpr int kSteady = 1;    // never switched off: all its work must be answered
constexpr int kSwitched = 2;  // switched off and on: its queued work may be dropped
constexpr int kWords = 64;    // words 0..63 of area 14 on each station

// The PLC's words before anything is written: the station and the address, top bit clear. A
// host's: top bit set, the station and the word's own address, and a sequence byte.
quint16 plcFill(int station, int address) {
    return static_cast<quint16>(station << 12 | address);
}
quint16 hostValue(int station, int address, int sequence) {
    return static_cast<quint16>(0x8000 | (station - 1) << 14 | address << 8 | (sequence & 0xFF));
}
bool plausible(int station, int address, quint16 w) {
    return w == plcFill(station, address) || (w & 0xFF00) == hostValue(station, address, 0);
}
QByteArray hostWords(int station, int address, int count, int sequence) {
    QByteArray bytes;
    for (int i = 0; i < count; ++i) {
        const quint16 w = hostValue(station, address + i, sequence);
        bytes.append(static_cast<char>(w & 0xFF)).append(static_cast<char>(w >> 8));
    }
    return bytes;
}

class ConcurrencyStress : public DriverTest {};

}  // namespace

TEST_F(ConcurrencyStress, FourHostThreadsWhilePolling) {
    const char* text = std::getenv("KORVAN_STRESS_SECONDS");
    const double seconds =
        text != nullptr && std::atof(text) > 0 ? std::atof(text) : kDefaultSeconds;
    info.maxUnits = 4;  // longer writes and once-reads are queued in pieces
    info.perVarStation = 1;
    info.writeMode = 2;
    plc = plcsim::PlcModel({kSteady, kSwitched});
    plc.setFill([](int station, int, std::uint32_t a) { return plcFill(station, int(a)); });
    plcsim::Faults faults;
    faults.drop = faults.corrupt = 0.02;
    faults.misaddress = 0.01;
    faults.seed = 17;
    plc.setFaults(faults);
    // The hosts' address texts live for the whole run, as a panel's tag texts do: the driver keeps
    // copies that share their data, and a text whose last reference went inside Qt's own code
    // (uninstrumented, its atomic reference count unseen) would show as freed unsynchronised.
    std::vector<QString> texts;
    for (int a = 0; a < kWords; ++a) {
        texts.push_back(QString::number(a));
    }

    // Each host thread's variables that ask for a result, {owner, item} and station.
    std::vector<std::pair<std::pair<int, int>, int>> issued[2];
    // Calls that returned a size out of range, image words not plausible, the steady station off.
    std::atomic<long> wrong{0};
    const auto stationOf = [](int turn) { return turn % 2 == 0 ? kSteady : kSwitched; };
    // The size of a list as a call ends, 0 when the poller already carried it out; hosts back
    // off while it holds more than 200.
    const auto listSize = [&](int size) {
        wrong += size < 0 || size > kMaxListEntries ? 1 : 0;
        if (size > 200) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    const std::function<void(int)> hosts[] = {
        // Host writes of one to six words (owner 1): all the pieces of one are queued at once,
        // with one report for them.
        [&](int turn) {
            const int station = stationOf(turn), count = 1 + turn % 6;
            const int address = turn * 7 % (kWords - 6);
            QByteArray values = hostWords(station, address, count, turn);
            issued[0].push_back({{1, turn}, station});
            listSize(
                SetRegisterData(QString(), 14, texts[address], station, &values, count, 1, turn));
        },
        // Write records registered as they are (owner 3), and once-reads of up to six words
        // (owner 2).
        [&](int turn) {
            const int station = stationOf(turn);
            RW_VAR write = var(14, turn * 5 % kWords, 1, station);
            write.direction = kWriteRequest;
            write.ownerId = 3;
            write.itemId = turn;
            write.data = hostWords(station, write.address, 1, turn);
            issued[1].push_back({{3, turn}, station});
            listSize(AddListWriteVar(&write));
            RW_VAR once = var(14, 0, 1 + turn % 6, station);
            once.addressText = texts[turn * 3 % (kWords - 6)];
            once.ownerId = 2;
            once.itemId = turn;
            issued[1].push_back({{2, turn}, station});
            const int onceReads = AddListOnceReadVar(&once, 0);
            listSize(onceReads < 1 ? -1 : onceReads);
        },
        // Both stations' words in variables of one to seven words; the switched station off and
        // on, by either switch, or every station on again.
        [&](int turn) {
            const int length = 1 + turn % 7;
            QList<HOSTVAR> vars;
            for (int station : {kSteady, kSwitched}) {
                for (int a = 0; a < kWords; a += length) {
                    vars.append(cyclicVar(14, texts[a], std::min(length, kWords - a), station));
                }
            }
            wrong += ReCreatReadVarList(&vars) < 1 ? 1 : 0;
            if (turn % 4 < 2) {
                EnCommStation(kSwitched, turn % 4);
            } else {
                EnableEthernet(turn % 4 == 2 ? kSwitched : -1, turn % 4 == 2 ? 0 : 1);
            }
            wrong += Ethernetcontains(kSteady) != 0 ? 1 : 0;
        },
        // Four words at a time from either station: each one absent (0) or plausible.
        [&](int turn) {
            const int station = stationOf(turn), address = turn % (kWords - 4);
            QByteArray words;
            const int result = GetRegisterData(QString(), 14, texts[address], station, &words, 4);
            wrong += result != 1 || words.size() != 8 ? 1 : 0;
            for (int i = 0; i + 1 < words.size(); i += 2) {
                const quint16 w = quint8(words[i]) | quint8(words[i + 1]) << 8;
                wrong += w != 0 && !plausible(station, address + i / 2, w) ? 1 : 0;
            }
        },
    };
    std::atomic<bool> stop{false}, hostsDone{false};
    long turns[4] = {};
    std::vector<std::thread> threads;
    for (int h = 0; h < 4; ++h) {
        threads.emplace_back([&, h] {
            for (int turn = 0; !stop.load(); turns[h] = ++turn) {
                hosts[h](turn);
            }
        });
    }
    // The polling thread, until the hosts are done and every write and once-read carried out.
    // An abandoned local exchange's code is its cause's base (10 invalid, 40 nothing received)
    // plus the owner plus 1.
    long exchanges = 0, abandoned = 0, undefinedResults = 0;
    std::thread poller([&] {
        for (bool drained = false; !drained;) {
            drained = hostsDone.load();
            if (ComCommunication() != nullptr) {
                QByteArray reply = plcReply();
                const RW_VAR* r = DataCom(&reply, reply.size());
                const int code = r->result, owner = r->ownerId;
                const bool abandon = code == 11 + owner || code == 41 + owner;
                ++exchanges;
                abandoned += abandon ? 1 : 0;
                undefinedResults +=
                    abandon || code == kResultRetryPending || code == kResultLocalGood ? 0 : 1;
            }
            drained = drained && driver.requestQueue.isEmpty() && driver.writeList.isEmpty() &&
                      driver.onceReadList.isEmpty();
        }
    });
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop.store(true);
    for (std::thread& t : threads) {
        t.join();
    }
    hostsDone.store(true);
    poller.join();

    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(undefinedResults, 0);
    EXPECT_TRUE(driver.requestQueue.isEmpty());
    for (const long t : turns) {
        EXPECT_GT(t, 0);
    }
    // The results came from the polling thread alone (recorded unlocked), each done or failed;
    // each abandoned exchange called the error callback once, with an empty list and flag 1, and
    // failed at most one variable. Only issued variables were reported, the steady station's
    // each once, the switched station's at most once (a variable whose pieces were dropped while
    // it was off hears nothing).
    std::map<std::pair<int, int>, int> station, heard;
    for (const auto& list : issued) {
        station.insert(list.begin(), list.end());
    }
    long failed = 0, strange = 0, misreported = 0;
    for (const auto& r : results) {
        ++heard[{r[1], r[2]}];
        failed += r[3] == 2 ? 1 : 0;
        strange += r[3] == 1 || r[3] == 2 ? 0 : 1;
    }
    for (const auto& e : errors) {
        strange += e[0] == 0 && e[2] == 1 ? 0 : 1;
    }
    for (const auto& [item, n] : heard) {
        misreported += n > 1 || station.count(item) == 0 ? 1 : 0;
    }
    for (const auto& [item, s] : station) {
        misreported += s == kSteady && heard.count(item) == 0 ? 1 : 0;
    }
    EXPECT_EQ(strange, 0);
    EXPECT_EQ(long(errors.size()), abandoned);
    EXPECT_LE(failed, abandoned);
    EXPECT_EQ(misreported, 0);
    // The image holds only the two stations' words of area 14, each from the PLC or a host.
    const Image words = image();
    EXPECT_FALSE(words.empty());
    for (const auto& [key, w] : words) {
        const int s = int(key >> 56), area = int(key >> 48 & 0xFF);
        const qint64 address = qint64(key & 0xFFFFFFFFFFFF);
        EXPECT_TRUE(area == 14 && address < kWords && plausible(s, int(address), w))
            << "station " << s << " area " << area << " word " << address << ": " << w;
    }
    std::printf("stress: %.1f s, %ld exchanges, %ld abandoned, host turns %ld %ld %ld %ld\n",
                seconds, exchanges, abandoned, turns[0], turns[1], turns[2], turns[3]);
}
