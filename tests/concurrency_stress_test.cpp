#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "base/mutex_lock.h"  // KORVAN_TSAN under ThreadSanitizer
#include "loaded_driver.h"

namespace {

class ConcurrencyStress : public DriverTest {};

// The PLC's words before anything is written carry the station and the address, top bit clear;
// a host's, top bit set, the station and the address again.
quint16 wordOf(int station, int address, bool host) {
    return static_cast<quint16>(host ? 0x8000 | (station - 1) << 14 | address << 8 | 0x5A
                                     : station << 12 | address);
}
QByteArray hostWords(int station, int address, int count) {
    QByteArray bytes;
    for (int i = 0; i < count; ++i) {
        const quint16 w = wordOf(station, address + i, true);
        bytes.append(static_cast<char>(w & 0xFF)).append(static_cast<char>(w >> 8));
    }
    return bytes;
}

}  // namespace

// One copy of the driver under load for a set time: the polling thread runs against a PLC that
// drops and damages some replies, while four host threads write values and bits of a word,
// register writes and once-reads, rebuild the read list and switch a station, and read the
// image. Under ThreadSanitizer they must report nothing; anywhere they must not deadlock.
// Afterwards every write and once-read queued for station 1, which stays on, has been reported,
// none more often than the reporting rules allow, every result code is one the driver defines, and
// every word of the image is one that the PLC or a host produced for that very word.
//
// It runs for KORVAN_STRESS_SECONDS, else 5 s under ThreadSanitizer and 1 s otherwise
// (scripts/stress.sh runs it for a minute). A deadlock runs into the test's time limit.
TEST_F(ConcurrencyStress, FourHostThreadsWhilePolling) {
#if defined(KORVAN_TSAN)
    double seconds = 5.0;
#else
    double seconds = 1.0;
#endif
    if (const char* text = std::getenv("KORVAN_STRESS_SECONDS"); text && std::atof(text) > 0) {
        seconds = std::atof(text);
    }
    constexpr int kWords = 64;  // words 0..63 of area 14 on each station
    info.maxUnits = 4;          // longer writes and once-reads are queued in pieces
    info.perVarStation = 1;
    info.writeMode = korvan::kWriteToPlc;
    plc = plcsim::PlcModel({1, 2});
    plc.setFill([](int station, int, std::uint32_t a) { return wordOf(station, int(a), false); });
    plcsim::Faults faults;
    faults.drop = faults.corrupt = 0.02;
    faults.misaddress = 0.01;
    faults.seed = 17;
    plc.setFaults(faults);
    // The hosts' address texts live for the whole run, as a panel's tag texts do: the driver keeps
    // copies that share their data, and a text whose last reference went inside Qt's own code
    // (uninstrumented, its atomic reference count unseen) would show as freed unsynchronised.
    std::vector<QString> texts;
    for (int a = 0; a < kWords + 16; ++a) {  // words 0..63, then bits 0..15 of word 64
        texts.push_back(a < kWords ? QString::number(a) : QString("64.%1").arg(a - kWords));
    }
    // Calls that returned a size out of range, image words not plausible, station 1 off. A list's
    // size as a call ends is 0 when the poller already carried it out; hosts back off while it
    // holds more than 200.
    std::atomic<long> wrong{0};
    const auto listSize = [&](int size) {
        wrong += size < 0 || size > korvan::kListCapacity ? 1 : 0;
        if (size > 200) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    const auto plausible = [](int station, int address, quint16 w) {
        return w == wordOf(station, address, false) || w == wordOf(station, address, true);
    };
    // Each host turn works on station 1 when even, on station 2, switched off and on, when odd;
    // its item is the turn.
    const std::function<void(int)> hosts[] = {
        // Host writes of one to six words (owner 1): all the pieces of one are queued at once,
        // with one report for them. And a bit of word 64 (owner 4), written by a word read and a
        // word write that the read's reply completes.
        [&](int turn) {
            const int count = 1 + turn % 6, address = turn * 7 % (kWords - 6);
            QByteArray values = hostWords(1 + turn % 2, address, count), bit(1, char(turn & 1));
            listSize(SetRegisterData(QString(), 14, texts[address], 1 + turn % 2, &values, count, 1,
                                     turn));
            listSize(SetRegisterData(QString(), korvan::kAreaBitOfWord, texts[kWords + turn % 16],
                                     1 + turn % 2, &bit, 1, 4, turn));
        },
        // Write records registered as they are (owner 3), and once-reads of up to six words
        // (owner 2).
        [&](int turn) {
            RW_VAR write = var(14, turn * 5 % kWords, 1, 1 + turn % 2);
            write.direction = korvan::kDirectionWrite;
            write.ownerId = 3;
            write.itemId = turn;
            write.data = hostWords(write.station, write.address, 1);
            listSize(AddListWriteVar(&write));
            RW_VAR once = var(14, 0, 1 + turn % 6, 1 + turn % 2);
            once.addressText = texts[turn * 3 % (kWords - 6)];
            once.ownerId = 2;
            once.itemId = turn;
            const int onceReads = AddListOnceReadVar(&once, korvan::kOnceReadPlanned);
            listSize(onceReads < 1 ? -1 : onceReads);
        },
        // Both stations' words in variables of one to seven words; station 2 off and on, by
        // either switch, or every station on again.
        [&](int turn) {
            const int length = 1 + turn % 7;
            QList<HOSTVAR> vars;
            for (int station : {1, 2}) {
                for (int a = 0; a < kWords; a += length) {
                    vars.append(cyclicVar(14, texts[a], std::min(length, kWords - a), station));
                }
            }
            wrong += ReCreatReadVarList(&vars) < 1 ? 1 : 0;
            if (turn % 4 < 2) {
                EnCommStation(2, turn % 4 == 0 ? korvan::kStationOff : korvan::kStationOn);
            } else if (turn % 4 == 2) {
                EnableEthernet(2, korvan::kStationOff);
            } else {
                EnableEthernet(korvan::kAllStations, korvan::kStationOn);
            }
            wrong += Ethernetcontains(1) != 0 ? 1 : 0;
        },
        // Four words at a time from either station: each one absent (0) or plausible.
        [&](int turn) {
            const int address = turn % (kWords - 4);
            QByteArray words;
            const int result =
                GetRegisterData(QString(), 14, texts[address], 1 + turn % 2, &words, 4);
            wrong += result != korvan::kReadDone || words.size() != 8 ? 1 : 0;
            for (int i = 0; i + 1 < words.size(); i += 2) {
                const quint16 w = quint8(words[i]) | quint8(words[i + 1]) << 8;
                wrong += w != 0 && !plausible(1 + turn % 2, address + i / 2, w) ? 1 : 0;
            }
        },
    };
    std::atomic<bool> stop{false}, hostsDone{false};
    int turns[4] = {};
    std::vector<std::thread> threads;
    for (int h = 0; h < 4; ++h) {
        threads.emplace_back([&, h] {
            for (int turn = 0; !stop.load(); turns[h] = ++turn) {
                hosts[h](turn);
            }
        });
    }
    // The polling thread, until the hosts are done and every write and once-read carried out.
    // An abandoned local exchange's code tells its cause (invalid, or nothing received) and owner.
    long abandoned = 0, undefinedResults = 0;
    std::thread poller([&] {
        for (bool drained = false; !drained;) {
            drained = hostsDone.load();
            if (ComCommunication() != nullptr) {
                QByteArray reply = plcReply();
                const RW_VAR* r = DataCom(&reply, reply.size());
                const int code = r->result, owner = r->ownerId;
                const bool abandon =
                    code == korvan::failureCode(korvan::kFailLocalInvalid, owner) ||
                    code == korvan::failureCode(korvan::kFailLocalSilent, owner);
                abandoned += abandon ? 1 : 0;
                undefinedResults +=
                    abandon || code == korvan::kResultRetry || code == korvan::kResultGood ? 0 : 1;
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
    // The results came from the polling thread alone (recorded unlocked), each done or failed;
    // each abandoned exchange called the error callback once, with an empty list and the flag, and
    // failed at most one variable. Only issued variables were reported, station 1's each once,
    // station 2's at most once (a variable whose pieces were dropped while it was off hears
    // nothing).
    std::map<std::pair<int, int>, int> heard;
    long failed = 0, strange = 0, misreported = 0;
    for (const auto& r : results) {
        ++heard[{r[1], r[2]}];
        failed += r[3] == korvan::kStatusFailed ? 1 : 0;
        strange += r[3] == korvan::kStatusDone || r[3] == korvan::kStatusFailed ? 0 : 1;
    }
    for (const auto& e : errors) {
        strange += e[0] == 0 && e[2] == korvan::kErrorFlag ? 0 : 1;
    }
    // Owners 1 and 4 are the first host thread's, 2 and 3 the second's.
    const auto issuedTurns = [&](int owner) {
        return owner == 1 || owner == 4 ? turns[0] : owner == 2 || owner == 3 ? turns[1] : 0;
    };
    for (const auto& [item, n] : heard) {
        misreported += n > 1 || item.second >= issuedTurns(item.first) ? 1 : 0;
    }
    for (int owner : {1, 2, 3, 4}) {
        for (int turn = 0; turn < issuedTurns(owner); turn += 2) {
            misreported += heard.count({owner, turn}) == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(strange, 0);
    EXPECT_EQ(long(errors.size()), abandoned);
    EXPECT_LE(failed, abandoned);
    EXPECT_EQ(misreported, 0);
    // The image holds only the two stations' words of area 14, each from the PLC or a host, and the
    // bits the hosts wrote to word 64.
    const Image words = image();
    EXPECT_FALSE(words.empty());
    for (const auto& [key, w] : words) {
        const int station = int(key >> 56), area = int(key >> 48 & 0xFF);
        const qint64 address = qint64(key & 0xFFFFFFFFFFFF);
        EXPECT_TRUE(area == 14 && (address == kWords ||
                                   (address < kWords && plausible(station, int(address), w))))
            << "station " << station << " area " << area << " word " << address << ": " << w;
    }
    for (const int t : turns) {
        EXPECT_GT(t, 0);
    }
}
