// A fuzzer's bytes read as the arguments of driver calls, and the driver put back as loaded
// between inputs, so that each input is judged on its own.
#ifndef KORVAN_FUZZ_FUZZ_INPUT_H
#define KORVAN_FUZZ_FUZZ_INPUT_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>

#include "base/Communication_Protocol.h"

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool empty() const { return at_ >= size_; }
    std::uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    int int16() { return static_cast<std::int16_t>(byte() | byte() << 8); }

    // Counts as a host may pass them: mostly small, sometimes zero, negative or extreme.
    int count() {
        const int kind = byte() % 8;
        return kind == 0   ? 0
               : kind == 1 ? -1 - byte()
               : kind == 2 ? INT_MAX
               : kind == 3 ? INT_MIN
               : kind == 4 ? int16() & 0xFFFF
                           : byte() % 40;
    }
    // Areas 0..29 most of the time, and the odd value outside.
    int area() {
        const std::uint8_t b = byte();
        return b < 240 ? b % 30 : static_cast<std::int8_t>(b) * 7;
    }
    QByteArray bytes(std::size_t length) {
        const std::size_t n = length < size_ - at_ ? length : size_ - at_;
        at_ += n;
        return QByteArray(reinterpret_cast<const char*>(data_ + at_ - n), static_cast<int>(n));
    }
    // A text of up to 15 bytes, Latin-1.
    QString text() { return QString::fromLatin1(bytes(byte() % 16)); }
    QByteArray rest() { return bytes(size_ - at_); }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

// The driver as loaded, with a port record (returned for the input to change) of block length
// 100, station 1, two retries, writing through, and callbacks that ignore what they hear.
inline ComInfo& resetDriverForFuzzing() {
    static ComInfo info;
    PLC_driver.~Communication_Protocol();
    new (&PLC_driver) Communication_Protocol();
    info = ComInfo();
    info.maxUnits = korvan::kMaxUnitsCap;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.portId = 1;
    info.writeMode = korvan::kWriteToPlc;
    SetComInfo(&info);
    RegistCallBackFuncIntf([](int, int, int, int) { return 0; },
                           [](QList<RW_VAR>*, int, int) { return 0; });
    return info;
}

#endif
