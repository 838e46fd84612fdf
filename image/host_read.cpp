// Host reads: GetRegisterData copies words or bits out of the register image. It never waits for
// the wire; a word that was never read (or whose station never answered) reads as zero.
//
// Host buffers hold one byte per bit (1 on, 0 off) in the bit forms and words low byte first.
#include <climits>

#include "driver/Communication_Protocol.h"
#include "driver/areas.h"
#include "driver/mutex_lock.h"
#include "image/cache_key.h"

namespace {

// Results of GetRegisterData.
constexpr int kAddressNotParsed = 0;
constexpr int kReadDone = 1;
// The longest byte array Qt can allocate: its block, with header and terminator, must stay within
// INT_MAX bytes. Asking for more would only end in a failed allocation.
constexpr qint64 kLargestBuffer = INT_MAX - 64;

bool isBitForm(int area) {
    return isBitArea(area) || area == kBitOfWordArea;
}

// Bytes of the host's buffer for `count` units: one per bit in the bit forms, two per unit
// otherwise (words, and the zeros returned for an invalid address or area). -1 when that is
// more than a byte array can hold.
qint64 bufferSize(bool bitForm, int count) {
    const qint64 size = static_cast<qint64>(count) * (bitForm ? 1 : kBytesPerWord);
    return size > kLargestBuffer ? -1 : size;
}

void readBits(QByteArray& buffer, quint64 base, qint64 first, int count) {
    const QHash<quint64, quint16>& cache = PLC_driver.registerCache;
    char* out = buffer.data();
    for (int i = 0; i < count; ++i) {
        const qint64 bit = first + i;
        const auto it = cache.constFind(bitKey(base, bit));
        if (it != cache.constEnd() && (it.value() & bitMask(bit)) != 0) {
            out[i] = 1;
        }
    }
}

void readWords(QByteArray& buffer, quint64 base, qint64 first, int count) {
    const QHash<quint64, quint16>& cache = PLC_driver.registerCache;
    char* out = buffer.data();
    const quint64 key = cacheKey(base, first);
    for (int i = 0; i < count; ++i) {
        const auto it = cache.constFind(key + static_cast<quint64>(i));
        if (it != cache.constEnd()) {
            out[kBytesPerWord * i] = static_cast<char>(it.value() & 0xFF);
            out[kBytesPerWord * i + 1] = static_cast<char>(it.value() >> 8);
        }
    }
}

}  // namespace

int GetRegisterData(QString, int area, QString address, int station, QByteArray* buffer,
                    int count) {
    if (buffer == nullptr) {
        return kAddressNotParsed;
    }
    const int first = StringAddressToInt(area, address);
    const bool valid = first >= 0;
    const bool bitForm = valid && isBitForm(area);
    if (count < 0) {
        // Qt's fill() takes a negative size as "keep the length": the buffer is zeroed as it is.
        try {
            buffer->fill(0);
        } catch (...) {
            buffer->clear();  // out of memory to detach a shared buffer: nothing
        }
        return valid ? kReadDone : kAddressNotParsed;
    }
    // No units, or more than a byte array can hold: an empty buffer.
    const qint64 size = bufferSize(bitForm, count);
    if (count == 0 || size < 0) {
        buffer->clear();
        return valid ? kReadDone : kAddressNotParsed;
    }
    if (!valid) {
        buffer->fill(0, static_cast<int>(size));
        return kAddressNotParsed;
    }
    const ComInfo* info = PLC_driver.comInfo;
    if (info != nullptr && info->perVarStation == 0) {
        station = info->defaultStation;
    }
    const quint64 base = cacheKeyBase(station, area);

    MutexLock lock(PLC_driver.cacheMutex);
    try {
        buffer->fill(0, static_cast<int>(size));
        if (bitForm) {
            readBits(*buffer, base, first, count);
        } else if (isWordArea(area)) {
            readWords(*buffer, base, first, count);
        }
    } catch (...) {
        // Out of memory for the buffer: the host gets nothing rather than a partial value.
        buffer->clear();
    }
    return kReadDone;
}
