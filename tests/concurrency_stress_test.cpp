#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "base/mutex_lock.h"  // KORVAN_TSAN under ThreadSanitizer
#include "loaded_driver.h"

namespace {

#if defined(KORVAN_TSAN)
constexpr double kDefaultSeconds = 5.0;
#else
constexpr double kDefaultSeconds = 1.0;
#endif
constexpr int kWords = 64;  // words 0..63 of area 14 on each station

class ConcurrencyStress : public DriverTest {};

// A word of `station` and `address` as the PLC fills it (top bit clear) or a host writes it.
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
bool plausible(int station, int address, quint16 w) {
    return w == wordOf(station, address, false) || w == wordOf(station, address, true);
}

}  // namespace

// One copy of the driver under load: the polling thread against a PLC that drops and damages
// replies, four host threads writing, registering, rebuilding the list, switching a station and
// reading. ThreadSanitizer must report nothing, and a deadlock runs into the test's time limit.
// KORVAN_STRESS_SECONDS sets how long it runs (scripts/stress.sh: a minute).
TEST_F(ConcurrencyStress, FourHostThreadsWhilePolling) {
    const char* given = std::getenv("KORVAN_STRESS_SECONDS");
    const double seconds =
        given != nullptr && std::atof(given) > 0 ? std::atof(given) : kDefaultSeconds;
    info.maxUnits = 4;  // longer writes and once-reads are queued in pieces
    info.perVarStation = 1;
    info.writeMode = korvan::kWriteToPlc;
    plc = plcsim::PlcModel({1, 2});
    plc.setFill([](int station, int, std::uint32_t a) { return wordOf(station, int(a), false); });
    plcsim::Faults faults;
    faults.drop = faults.corrupt = 0.02;
    faults.misaddress = 0.01;
    faults.seed = 17;
    plc.setFaults(faults);
    // The address texts outlive the run, as a panel's tags do: the driver's copies share their
    // data, whose reference counts Qt's uninstrumented code changes out of ThreadSanitizer's sight.
    std::vector<QString> texts;
    for (int a = 0; a < kWords + 16; ++a) {  // words 0..63, then bits 0..15 of word 64
        texts.push_back(a < kWords ? QString::number(a) : QString("64.%1").arg(a - kWords));
    }
    // Calls and result codes that went wrong. A list size is 0 when the poller already carried the
    // entry out; hosts back off while a list holds more than 200.
    std::atomic<long> wrong{0};
    const auto listSize = [&](int size) {
        wrong += size < 0 || size > korvan::kListCapacity ? 1 : 0;
        if (size > 200) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    // Turn n works on station 1 when even, on station 2 (switched off and on) when odd; item n.
    const std::function<void(int, int)> hosts[] = {
        // Writes of 1..6 words (owner 1), in pieces reported once; a bit of word 64 (owner 4),
        // written by a word read and a word write that the read's reply completes.
        [&](int turn, int station) {
            const int count = 1 + turn % 6, address = turn * 7 % (kWords - 6);
            QByteArray values = hostWords(station, address, count), bit(1, char(turn & 1));
            listSize(
                SetRegisterData(QString(), 14, texts[address], station, &values, count, 1, turn));
            listSize(SetRegisterData(QString(), korvan::kAreaBitOfWord, texts[kWords + turn % 16],
                                     station, &bit, 1, 4, turn));
        },
        // Write records registered as they are (owner 3); once-reads of 1..6 words (owner 2).
        [&](int turn, int station) {
            RW_VAR write = owned(var(14, turn * 5 % kWords, 1, station), 3, turn);
            write.direction = korvan::kDirectionWrite;
            write.data = hostWords(station, write.address, 1);
            listSize(AddListWriteVar(&write));
            RW_VAR once = owned(var(14, 0, 1 + turn % 6, station), 2, turn);
            once.addressText = texts[turn * 3 % (kWords - 6)];
            const int onceReads = AddListOnceReadVar(&once, korvan::kOnceReadPlanned);
            listSize(onceReads < 1 ? -1 : onceReads);
        },
        // Both stations in variables of 1..7 words; station 2 off and on by either switch.
        [&](int turn, int) {
            const int length = 1 + turn % 7;
            QList<HOSTVAR> vars;
            for (int station : {1, 2}) {
                for (int a = 0; a < kWords; a += length) {
                    vars.append(cyclicVar(14, texts[a], std::min(length, kWords - a), station));
                }
            }
            wrong += ReCreatReadVarList(&vars) < 1 ? 1 : 0;
            (turn % 4 < 2 ? EnCommStation : EnableEthernet)(
                turn % 4 == 3 ? korvan::kAllStations : 2,
                turn % 2 == 0 ? korvan::kStationOff : korvan::kStationOn);
            wrong += Ethernetcontains(1) != 0 ? 1 : 0;
        },
        // Four words at a time: each one absent (0) or plausible.
        [&](int turn, int station) {
            const int address = turn % (kWords - 4);
            QByteArray words;
            const int result = GetRegisterData(QString(), 14, texts[address], station, &words, 4);
            wrong += result != korvan::kReadDone || words.size() != 8 ? 1 : 0;
            for (int i = 0; i + 1 < words.size(); i += 2) {
                const quint16 w = quint8(words[i]) | quint8(words[i + 1]) << 8;
                wrong += w != 0 && !plausible(station, address + i / 2, w) ? 1 : 0;
            }
        },
    };
    std::atomic<bool> stop{false}, hostsDone{false};
    int turns[4] = {};
    std::vector<std::thread> threads;
    for (int h = 0; h < 4; ++h) {
        threads.emplace_back([&, h] {
            for (int turn = 0; !stop.load(); turns[h] = ++turn) {
                hosts[h](turn, 1 + turn % 2);
            }
        });
    }
    // The polling thread, until the hosts are done and every write and once-read carried out.
    // An abandoned local exchange's code tells its cause (invalid, or nothing received) and owner.
    long abandoned = 0;
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
                wrong +=
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
    EXPECT_GT(*std::min_element(turns, turns + 4), 0);
    // Callbacks (from the polling thread alone: recorded unlocked) report done or failed; each
    // abandoned exchange one error, with an empty list, failing at most one variable. Issued
    // variables only: station 1's each once, station 2's at most once (it was switched off).
    std::map<std::pair<int, int>, int> heard;
    long failed = 0, misreported = 0;
    for (const auto& r : results) {
        ++heard[{r[1], r[2]}];
        failed += r[3] == korvan::kStatusFailed ? 1 : 0;
        misreported += r[3] == korvan::kStatusDone || r[3] == korvan::kStatusFailed ? 0 : 1;
    }
    for (const auto& e : errors) {
        misreported += e[0] == 0 && e[2] == korvan::kErrorFlag ? 0 : 1;
    }
    // Owners 1 and 4 are the first host thread's, 2 and 3 the second's.
    const int issued[] = {0, turns[0], turns[1], turns[1], turns[0]};
    for (const auto& [item, n] : heard) {
        const int owner = item.first;
        misreported += owner < 1 || owner > 4 || n > 1 || item.second >= issued[owner] ? 1 : 0;
    }
    for (int owner = 1; owner <= 4; ++owner) {
        for (int turn = 0; turn < issued[owner]; turn += 2) {
            misreported += heard.count({owner, turn}) == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(long(errors.size()), abandoned);
    EXPECT_LE(failed, abandoned);
    EXPECT_EQ(misreported, 0);
    // Only the two stations' words of area 14, each from the PLC or a host, and word 64's bits.
    const Image words = image();
    EXPECT_FALSE(words.empty());
    for (const auto& [key, w] : words) {
        const int station = int(key >> 56), area = int(key >> 48 & 0xFF);
        const qint64 address = qint64(key & 0xFFFFFFFFFFFF);
        EXPECT_TRUE(area == 14 && (address == kWords ||
                                   (address < kWords && plausible(station, int(address), w))))
            << "station " << station << " area " << area << " word " << address << ": " << w;
    }
}
