// The host's reads and writes of the register image.
#include "image/Func_GetOrSetData.h"

#include <climits>
#include <cstring>

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/comm_failed.h"
#include "base/mutex_lock.h"
#include "base/wrapping.h"
#include "codec/bit_word_write.h"
#include "image/cache_key.h"
#include "lists/address_text.h"
#include "lists/write_list.h"

// Host reads: GetRegisterData copies words or bits out of the register image. It never waits for
// the wire; a word that was never read (or whose station never answered) reads as zero.
//
// Host buffers hold one byte per bit (1 on, 0 off) in the bit forms and words low byte first.

namespace {

// The longest byte array Qt can allocate: its block, with header and terminator, must stay within
// INT_MAX bytes. Asking for more would only end in a failed allocation.
constexpr qint64 kLargestBuffer = INT_MAX - 64;

bool isBitForm(int area) {
    return isBitArea(area) || area == korvan::kAreaBitOfWord;
}

// Bytes of the host's buffer for `count` units: one per bit in the bit forms, two per unit
// otherwise (words, and the zeros returned for an invalid address or area). -1 when that is
// more than a byte array can hold.
qint64 bufferSize(bool bitForm, int count) {
    const qint64 size = static_cast<qint64>(count) * (bitForm ? 1 : kBytesPerWord);
    return size > kLargestBuffer ? -1 : size;
}

void readBits(const QHash<quint64, quint16>& cache, QByteArray& buffer, quint64 base, qint64 first,
              int count) {
    char* out = buffer.data();
    for (int i = 0; i < count; ++i) {
        const qint64 bit = first + i;
        const auto it = cache.constFind(bitKey(base, bit));
        if (it != cache.constEnd() && (it.value() & bitMask(bit)) != 0) {
            out[i] = 1;
        }
    }
}

void readWords(const QHash<quint64, quint16>& cache, QByteArray& buffer, quint64 base, qint64 first,
               int count) {
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
        return korvan::kAddressNotParsed;
    }
    const int first = parseAddress(area, address);
    const bool valid = first >= 0;
    const bool bitForm = valid && isBitForm(area);
    if (count < 0) {
        // Qt's fill() takes a negative size as "keep the length": the buffer is zeroed as it is.
        try {
            buffer->fill(0);
        } catch (...) {
            buffer->clear();  // out of memory to detach a shared buffer: nothing
        }
        return valid ? korvan::kReadDone : korvan::kAddressNotParsed;
    }
    // No units, or more than a byte array can hold: an empty buffer.
    const qint64 size = bufferSize(bitForm, count);
    if (count == 0 || size < 0) {
        buffer->clear();
        return valid ? korvan::kReadDone : korvan::kAddressNotParsed;
    }
    if (!valid) {
        buffer->fill(0, static_cast<int>(size));
        return korvan::kAddressNotParsed;
    }
    Communication_Protocol& d = PLC_driver;
    const ComInfo* info = d.comInfo;
    if (info != nullptr && info->perVarStation == 0) {
        station = info->defaultStation;
    }
    const quint64 base = cacheKeyBase(station, area);

    MutexLock lock(d.cacheMutex);
    try {
        buffer->fill(0, static_cast<int>(size));
        if (bitForm) {
            readBits(d.registerCache, *buffer, base, first, count);
        } else if (isWordArea(area)) {
            readWords(d.registerCache, *buffer, base, first, count);
        }
    } catch (...) {
        // Out of memory for the buffer: the host gets nothing rather than a partial value.
        buffer->clear();
    }
    return korvan::kReadDone;
}

// Host writes: SetRegisterData cuts a value into write records no longer than the port's block
// length, queues them for the PLC or not according to the port's write mode, and mirrors them
// into the register image; write_data_to_local is that mirroring step.
//
// Host buffers hold one byte per bit (non-zero is on) and words low byte first. Write records
// hold bits packed least significant first and words low byte first.

namespace {

constexpr int kBitsPerByte = 8;
// Far beyond any panel's variable. A longer write is refused whole, so that the work one call
// can cause stays bounded.
constexpr int kMostUnitsPerWrite = 1 << 20;

// The host's input buffer; bytes at or beyond its end, or of a missing buffer, read as zero.
class HostBuffer {
public:
    explicit HostBuffer(const QByteArray* values)
        : bytes_(values != nullptr ? values->constData() : nullptr),
          size_(values != nullptr ? values->size() : 0) {}

    bool on(qint64 at) const { return at < size_ && bytes_[at] != 0; }

    // Copies up to `length` bytes from `at` and returns how many there were.
    int copy(qint64 at, char* to, int length) const {
        const int n = static_cast<int>(qBound<qint64>(0, size_ - at, length));
        if (n > 0) {
            memcpy(to, bytes_ + at, static_cast<size_t>(n));
        }
        return n;
    }

private:
    const char* bytes_;
    qint64 size_;
};

// What a host write works on: the driver object it queues records in and mirrors them into, and
// what it reads from the host's port record, read once per call.
struct HostWrite {
    Communication_Protocol& d;
    int blockLength;
    int writeMode;
};

void mirrorBit(QHash<quint64, quint16>& cache, quint64 base, qint64 bitAddress, bool on) {
    quint16& word = cache[bitKey(base, bitAddress)];  // a word never seen starts from 0
    word = withBits(word, bitMask(bitAddress), on);
}

// The record's value written into the image, under its lock.
void mirror(Communication_Protocol& d, const RW_VAR& record) {
    const quint64 base = cacheKeyBase(record.station, record.area);
    const qint64 first = record.address;
    const QByteArray& data = record.data;

    MutexLock lock(d.cacheMutex);
    QHash<quint64, quint16>& cache = d.registerCache;
    if (isBitArea(record.area)) {
        // Only the bits the payload carries: a count beyond it has nothing to mirror.
        const qint64 bits = qMin<qint64>(record.count, qint64{data.size()} * kBitsPerByte);
        for (qint64 j = 0; j < bits; ++j) {
            const unsigned int packed =
                static_cast<unsigned char>(data.at(static_cast<int>(j / kBitsPerByte)));
            mirrorBit(cache, base, first + j, (packed >> (j % kBitsPerByte) & 1u) != 0);
        }
    } else if (isWordArea(record.area)) {
        const quint64 key = cacheKey(base, first);
        for (int u = 0; u + 1 < data.size(); u += kBytesPerWord) {
            const unsigned int low = static_cast<unsigned char>(data.at(u));
            const unsigned int high = static_cast<unsigned char>(data.at(u + 1));
            cache.insert(key + static_cast<quint64>(u / kBytesPerWord),
                         static_cast<quint16>(low | high << 8));
        }
    } else if (record.area == korvan::kAreaBitOfWord) {
        mirrorBit(cache, base, first, bitOfWordValue(record));
    }
}

// A record for the PLC is queued (the caller holds listMutex); the image shows it at once when
// it is not for the PLC, or while the link is down (write_register does not mirror then).
void issue(RW_VAR& record, const HostWrite& w) {
    if (w.writeMode == korvan::kWriteToPlc) {
        appendWrite(w.d.writeList, record);
        if (!isCommFailed(w.d)) {
            return;
        }
    }
    mirror(w.d, record);
}

void issueBits(RW_VAR& record, const HostBuffer& in, int count, const HostWrite& w) {
    const qint64 piece = qint64{w.blockLength} * kBitsPerByte;
    qint64 position = 0;
    for (int remaining = count; remaining > 0;) {
        const int n = static_cast<int>(qMin<qint64>(remaining, piece));
        record.count = n;
        record.data = QByteArray((n + kBitsPerByte - 1) / kBitsPerByte, '\0');
        char* packed = record.data.data();
        for (int j = 0; j < n; ++j) {
            if (in.on(position + j)) {
                packed[j / kBitsPerByte] =
                    static_cast<char>(packed[j / kBitsPerByte] | 1 << (j % kBitsPerByte));
            }
        }
        position += n;
        issue(record, w);
        remaining -= n;
        record.address = wrapAdd(record.address, n);
    }
}

void issueWords(RW_VAR& record, const HostBuffer& in, int count, const HostWrite& w) {
    const int piece = w.blockLength;
    qint64 position = 0;
    for (int remaining = count; remaining > 0;) {
        const int n = qMin(remaining, piece);
        record.count = n;
        record.data = QByteArray(n * kBytesPerWord, '\0');
        position += in.copy(position, record.data.data(), n * kBytesPerWord);
        issue(record, w);
        remaining -= n;
        record.address = wrapAdd(record.address, n);
    }
}

// One record per bit; bit 15 of a word is followed by bit 0 of the next.
void issueBitsOfWords(RW_VAR& record, const HostBuffer& in, int count, const HostWrite& w) {
    record.count = 1;
    record.data = QByteArray(1, '\0');
    for (int i = 0; i < count; ++i) {
        record.data[0] = in.on(i) ? 1 : 0;
        issue(record, w);
        record.address = wrapAdd(record.address, 1);
    }
}

// Every record of the value, one after the other. Out of memory, the records issued so far stay
// queued and mirrored.
void issueAll(RW_VAR& record, const HostBuffer& in, int count, const HostWrite& w) {
    try {
        if (isBitArea(record.area)) {
            issueBits(record, in, count, w);
        } else if (isWordArea(record.area)) {
            issueWords(record, in, count, w);
        } else if (record.area == korvan::kAreaBitOfWord) {
            issueBitsOfWords(record, in, count, w);
        }
    } catch (...) {
    }
}

int writeListSize(Communication_Protocol& d) {
    MutexLock lock(d.listMutex);
    return d.writeList.size();
}

}  // namespace

int SetRegisterData(QString nameText, int area, QString address, int station, QByteArray* values,
                    int count, int ownerId, int itemId) {
    Communication_Protocol& d = PLC_driver;
    const int first = parseAddress(area, address);
    const ComInfo* info = d.comInfo;
    if (first < 0 || info == nullptr) {
        return korvan::kAddressNotParsed;
    }
    if (count > kMostUnitsPerWrite) {
        return writeListSize(d);
    }
    // The host's maxUnits as it is now: the host owns the record and may have raised it after
    // SetComInfo. A piece too long for a frame is refused when its turn comes.
    const HostWrite w{d, effectiveMaxUnits(*info), info->writeMode};

    RW_VAR record;
    record.ownerId = ownerId;
    record.itemId = itemId;
    record.direction = korvan::kDirectionWrite;
    record.remoteMode = info->remoteMode;
    record.port = info->portId;
    record.nameText = nameText;
    record.addressText = address;
    record.area = area;
    record.address = first;
    record.station = info->perVarStation == 0 ? info->defaultStation : station;
    record.count = 1;

    const HostBuffer in(values);
    if (w.writeMode != korvan::kWriteToPlc) {
        issueAll(record, in, count, w);
        return writeListSize(d);
    }
    // The pieces of one value are queued under one hold of listMutex, so that the polling thread
    // cannot complete the first before the last is queued: it reports the variable once, when
    // all of them are done.
    MutexLock lock(d.listMutex);
    issueAll(record, in, count, w);
    return d.writeList.size();
}

void write_data_to_local(const RW_VAR& record) {
    mirror(PLC_driver, record);
}

// Kept for hosts that ask whether the driver has finished a job: it always has.
int QueryFinishFlag() {
    return 1;
}
