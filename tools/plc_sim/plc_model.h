// The PLC's side of the wire: a model of one or more PLC stations that answers request frames
// from its own memory, as the real controllers on a multi-drop line do.
//
// Written on its own, from the wire formats alone: it shares no frame, checksum or address code
// with the driver, so that a test running both can catch a fault in either.
#ifndef KORVAN_TOOLS_PLC_MODEL_H
#define KORVAN_TOOLS_PLC_MODEL_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "wire_format.h"

namespace plcsim {

// Faults injected into replies, for testing hosts. Fractions are 0..1; the choice is drawn
// from a generator seeded with `seed`, so a run is repeatable.
struct Faults {
    double drop = 0.0;        // the reply is not sent
    double corrupt = 0.0;     // one byte of the reply is flipped (the CRC then fails)
    double misaddress = 0.0;  // the reply carries another station number
    int delayMs = 0;          // every reply is held back this long
    std::set<int> silentStations;
    std::uint64_t seed = 1;
};

// What the PLC does with one request frame.
struct Reply {
    bool answered = false;  // false: the line stays silent
    Bytes bytes;
    int delayMs = 0;
};

// Counts of what the model has seen, for tests and the simulator's summary.
struct Stats {
    long requests = 0;
    long replies = 0;
    long ignored = 0;  // unparsable, bad check value, or a station not served
    long dropped = 0;
    long corrupted = 0;
    long misaddressed = 0;
};

// The value of a word that was never written, by station, wire area code and word address.
using Fill = std::function<std::uint16_t(int station, int areaCode, std::uint32_t address)>;

class PlcModel {
public:
    // Serves the given stations (1..255). Memory starts zeroed.
    explicit PlcModel(std::set<int> stations);

    void setFaults(const Faults& faults);
    // Memory that was never written holds `fill`'s values instead of zeros.
    void setFill(Fill fill) { fill_ = std::move(fill); }

    // Answers one complete request frame (local or remote family).
    Reply handle(const Bytes& request);

    // Memory access by wire area code, in 16-bit words; bit areas hold 16 bits per word
    // (bit n of the area is bit n & 15 of word n >> 4).
    std::uint16_t word(int station, int areaCode, std::uint32_t address) const;
    void setWord(int station, int areaCode, std::uint32_t address, std::uint16_t value);
    bool bit(int station, int areaCode, std::uint32_t bitAddress) const;
    void setBit(int station, int areaCode, std::uint32_t bitAddress, bool on);

    // Every word ever written or read, ordered by station, area code and address: the words a
    // host can have seen or changed.
    const std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t>& memory() const {
        return memory_;
    }

    const Stats& stats() const { return stats_; }
    const std::set<int>& stations() const { return stations_; }

    // Wire area code of a driver area index (remote frames name areas by index), or -1.
    static int areaCodeOfIndex(int index);
    // An area index a remote frame may name: one of the areas, or 29, a bit of a word.
    static bool knowsAreaIndex(int index);
    static bool isBitAreaCode(int code);

private:
    std::optional<Bytes> handleLocal(const Bytes& f);
    std::optional<Bytes> handleRemote(const Bytes& f);
    Bytes readBits(int station, int code, std::uint32_t bitAddress, std::uint32_t bits,
                   std::uint8_t function);
    Bytes readWords(int station, int code, std::uint32_t address, std::uint32_t words,
                    std::uint8_t function);
    // Up to `count` words from a payload holding each word low byte first.
    void writeWordsLowFirst(int station, int code, std::uint32_t address, std::uint32_t count,
                            const Bytes& payload);
    void writeBitsPacked(int station, int code, std::uint32_t bitAddress, std::uint32_t bits,
                         const std::uint8_t* packed, std::size_t length);
    Bytes writeAck(int station, std::uint8_t function, const std::uint8_t* addressing);
    Reply applyFaults(int station, Bytes reply);
    std::uint16_t readWord(int station, int code, std::uint32_t address);
    bool serves(int station) const { return stations_.count(station) != 0; }

    std::set<int> stations_;
    std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t> memory_;
    Fill fill_;
    Faults faults_;
    std::mt19937_64 random_;
    Stats stats_;
};

}  // namespace plcsim

#endif
