#include "plc_model.h"

#include <algorithm>

namespace plcsim {

namespace {

constexpr int kBroadcast = 0;
constexpr std::size_t kAckAddressingBytes = 6;

// Area codes of the PLC family, by the driver-side area index used in remote frames.
constexpr int kCodeOfIndex[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0D, 0x08, 0x09,
                                0x0A, 0x0B, 0x0C, 0x12, 0x80, 0x81, 0x82, 0x8D, 0x85, 0x83,
                                0x88, 0x8E, 0x86, 0x87, 0x8C, 0x91, 0x89, 0x8A, 0x8B};
constexpr int kIndexCount = sizeof(kCodeOfIndex) / sizeof(kCodeOfIndex[0]);
constexpr int kBitOfWordIndex = 29;
constexpr int kWordCodeOfBitOfWord = 0x80;

std::uint32_t be(const Bytes& f, std::size_t at, int width) {
    std::uint32_t v = 0;
    for (int i = 0; i < width; ++i) {
        v = v << 8 | f[at + i];
    }
    return v;
}

void appendCrc(Bytes& b) {
    const std::uint16_t c = crc16(b.data(), b.size());
    b.push_back(static_cast<std::uint8_t>(c & 0xFF));
    b.push_back(static_cast<std::uint8_t>(c >> 8));
}

}  // namespace

PlcModel::PlcModel(std::set<int> stations) : stations_(std::move(stations)), random_(1) {}

void PlcModel::setFaults(const Faults& faults) {
    faults_ = faults;
    random_.seed(faults.seed);
}

int PlcModel::areaCodeOfIndex(int index) {
    return index >= 0 && index < kIndexCount ? kCodeOfIndex[index] : -1;
}

bool PlcModel::knowsAreaIndex(int index) {
    return areaCodeOfIndex(index) >= 0 || index == kBitOfWordIndex;
}

bool PlcModel::isBitAreaCode(int code) {
    return code > 0 && code < 0x80;
}

std::uint16_t PlcModel::word(int station, int areaCode, std::uint32_t address) const {
    const auto it = memory_.find({station, areaCode, address});
    if (it != memory_.end()) {
        return it->second;
    }
    return fill_ ? fill_(station, areaCode, address) : 0;
}

// A word on its way into a reply is kept, so that memory() lists what the host has seen.
std::uint16_t PlcModel::readWord(int station, int code, std::uint32_t address) {
    const std::uint16_t w = word(station, code, address);
    memory_.emplace(std::make_tuple(station, code, address), w);
    return w;
}

void PlcModel::setWord(int station, int areaCode, std::uint32_t address, std::uint16_t value) {
    memory_[{station, areaCode, address}] = value;
}

bool PlcModel::bit(int station, int areaCode, std::uint32_t bitAddress) const {
    return (word(station, areaCode, bitAddress >> 4) >> (bitAddress & 15)) & 1;
}

void PlcModel::setBit(int station, int areaCode, std::uint32_t bitAddress, bool on) {
    std::uint16_t w = word(station, areaCode, bitAddress >> 4);
    const auto mask = static_cast<std::uint16_t>(1u << (bitAddress & 15));
    w = on ? static_cast<std::uint16_t>(w | mask) : static_cast<std::uint16_t>(w & ~mask);
    setWord(station, areaCode, bitAddress >> 4, w);
}

Reply PlcModel::handle(const Bytes& request) {
    ++stats_.requests;
    std::optional<Bytes> reply;
    switch (familyOf(request)) {
        case Family::Local:
            reply = handleLocal(request);
            break;
        case Family::Remote:
            reply = handleRemote(request);
            break;
        case Family::Neither:
            ++stats_.ignored;
            break;
    }
    if (!reply) {
        return Reply{};
    }
    const int station = (*reply)[0];
    return applyFaults(station, std::move(*reply));
}

// Bits a .. a + n - 1 packed least significant bit first into 16-bit groups, low byte first.
Bytes PlcModel::readBits(int station, int code, std::uint32_t bitAddress, std::uint32_t bits,
                         std::uint8_t function) {
    const std::uint32_t bytes = (bits + 15) / 16 * 2;
    Bytes r{static_cast<std::uint8_t>(station), function, static_cast<std::uint8_t>(bytes)};
    r.resize(3 + bytes, 0);
    for (std::uint32_t i = 0; i < bits; ++i) {
        const std::uint32_t at = bitAddress + i;
        if ((readWord(station, code, at >> 4) >> (at & 15)) & 1) {
            r[3 + i / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
        }
    }
    appendCrc(r);
    return r;
}

// Words high byte first.
Bytes PlcModel::readWords(int station, int code, std::uint32_t address, std::uint32_t words,
                          std::uint8_t function) {
    Bytes r{static_cast<std::uint8_t>(station), function, static_cast<std::uint8_t>(2 * words)};
    for (std::uint32_t i = 0; i < words; ++i) {
        const std::uint16_t w = readWord(station, code, address + i);
        r.push_back(static_cast<std::uint8_t>(w >> 8));
        r.push_back(static_cast<std::uint8_t>(w & 0xFF));
    }
    appendCrc(r);
    return r;
}

void PlcModel::writeBitsPacked(int station, int code, std::uint32_t bitAddress, std::uint32_t bits,
                               const std::uint8_t* packed, std::size_t length) {
    for (std::uint32_t i = 0; i < bits && i / 8 < length; ++i) {
        setBit(station, code, bitAddress + i, (packed[i / 8] >> (i % 8)) & 1);
    }
}

// A write is acknowledged with 10 bytes: station, function, six bytes of the request's
// addressing (area and address), CRC.
Bytes PlcModel::writeAck(int station, std::uint8_t function, const std::uint8_t* addressing) {
    Bytes r(2 + kAckAddressingBytes);
    r[0] = static_cast<std::uint8_t>(station);
    r[1] = function;
    std::copy(addressing, addressing + kAckAddressingBytes, r.begin() + 2);
    appendCrc(r);
    return r;
}

std::optional<Bytes> PlcModel::handleLocal(const Bytes& f) {
    const int station = f[0];
    const std::uint8_t fn = f[1];
    const int code = f[2];
    const std::uint32_t address = be(f, 3, 3);
    const std::uint32_t count = be(f, 6, 2);
    const bool known =
        std::find(std::begin(kCodeOfIndex), std::end(kCodeOfIndex), code) != std::end(kCodeOfIndex);
    if (!known || (station != kBroadcast && !serves(station))) {
        ++stats_.ignored;
        return std::nullopt;
    }

    if (fn == kFnReadBits || fn == kFnReadWords) {
        const std::uint32_t most = fn == kFnReadBits ? kMostBitsRead : kMostWordsRead;
        if (f.size() != kLocalReadLength || station == kBroadcast || count > most) {
            ++stats_.ignored;
            return std::nullopt;
        }
        // A word function on a bit area reads 16-bit groups.
        return fn == kFnReadBits ? readBits(station, code, address, count, fn)
                                 : readWords(station, code, address, count, fn);
    }

    if (f.size() < kLocalWriteHeader + 2) {
        ++stats_.ignored;
        return std::nullopt;
    }
    // The length byte keeps only 8 bits; the payload runs up to the CRC.
    Bytes payload(f.begin() + kLocalWriteHeader, f.end() - 2);
    if (fn == kFnWriteWords) {
        // Words travel high byte first.
        for (std::size_t i = 0; i + 1 < payload.size(); i += 2) {
            std::swap(payload[i], payload[i + 1]);
        }
    }
    const std::set<int> targets = station == kBroadcast ? stations_ : std::set<int>{station};
    for (int s : targets) {
        if (fn == kFnWriteBits || isBitAreaCode(code)) {
            // Bit areas take a bit address and packed bits, whatever the function.
            writeBitsPacked(s, code, address, count, payload.data(), payload.size());
        } else {
            writeWordsLowFirst(s, code, address, count, payload);
        }
    }
    if (station == kBroadcast) {
        return std::nullopt;
    }
    return writeAck(station, fn, &f[2]);
}

void PlcModel::writeWordsLowFirst(int station, int code, std::uint32_t address, std::uint32_t count,
                                  const Bytes& payload) {
    for (std::uint32_t i = 0; i < count && 2 * i + 1 < payload.size(); ++i) {
        setWord(station, code, address + i,
                static_cast<std::uint16_t>(payload[2 * i] | payload[2 * i + 1] << 8));
    }
}

std::optional<Bytes> PlcModel::handleRemote(const Bytes& f) {
    const int direction = f[2];
    const int station = f[4];
    const int index = static_cast<int>(be(f, 5, 2));
    const std::uint32_t address = be(f, 7, 4);
    const std::uint32_t count = be(f, 11, 2);
    const bool bitOfWord = index == kBitOfWordIndex;
    const int code = bitOfWord ? kWordCodeOfBitOfWord : areaCodeOfIndex(index);
    if (code < 0 || (station != kBroadcast && !serves(station))) {
        ++stats_.ignored;
        return std::nullopt;
    }

    if (direction == 0) {
        if (station == kBroadcast || count > kMostWordsRead) {
            ++stats_.ignored;
            return std::nullopt;
        }
        // Reads name 16-bit groups in bit areas and words elsewhere.
        return isBitAreaCode(code) ? readBits(station, code, address * 16, count * 16, kFnReadBits)
                                   : readWords(station, code, address, count, kFnReadWords);
    }

    const Bytes payload(f.begin() + kRemoteHeader, f.end() - 1);
    const std::set<int> targets = station == kBroadcast ? stations_ : std::set<int>{station};
    for (int s : targets) {
        if (bitOfWord) {
            setBit(s, code, address, !payload.empty() && payload[0] != 0);
        } else if (isBitAreaCode(code)) {
            writeBitsPacked(s, code, address, count, payload.data(), payload.size());
        } else {
            writeWordsLowFirst(s, code, address, count, payload);  // as remote payloads are held
        }
    }
    if (station == kBroadcast) {
        return std::nullopt;
    }
    return writeAck(station, kFnWriteWords, &f[5]);
}

Reply PlcModel::applyFaults(int station, Bytes reply) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double dropDraw = unit(random_);
    const double corruptDraw = unit(random_);
    const double misaddressDraw = unit(random_);
    if (faults_.silentStations.count(station) != 0 || dropDraw < faults_.drop) {
        ++stats_.dropped;
        return Reply{};
    }
    if (misaddressDraw < faults_.misaddress) {
        ++stats_.misaddressed;
        reply[0] = static_cast<std::uint8_t>(station % 255 + 1);
        reply.resize(reply.size() - 2);
        appendCrc(reply);
    }
    if (corruptDraw < faults_.corrupt) {
        ++stats_.corrupted;
        const std::size_t at = random_() % reply.size();
        reply[at] ^= static_cast<std::uint8_t>(random_() % 255 + 1);
    }
    ++stats_.replies;
    return Reply{true, std::move(reply), faults_.delayMs};
}

}  // namespace plcsim
