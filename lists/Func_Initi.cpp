// The variable lists and read planning: configuration, address texts, registration, the
// read-list rebuild and grouping.
#include <QtCore/QStringList>

#include <algorithm>
#include <vector>

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/driver_functions.h"
#include "base/mutex_lock.h"
#include "base/wrapping.h"
#include "lists/block_grouping.h"
#include "lists/word_units.h"
#include "lists/write_list.h"

// The host's configuration calls. They take no lock: the host makes them before polling starts
// or while the polling thread is idle.

void SetComInfo(ComInfo* info) {
    PLC_driver.comInfo = info;
    if (info == nullptr) {
        return;
    }
    info->clearedWord13 = 0;
    info->clearedWord10 = 0;
    if (info->maxUnits > korvan::kMaxUnitsCap) {
        info->maxUnits = korvan::kMaxUnitsCap;
    }
}

void RegistCallBackFuncIntf(ResultCallback onResult, ErrorCallback onError) {
    PLC_driver.resultCallback = onResult;
    PLC_driver.errorCallback = onError;
}

void FlashLocalRegister(void* localBits, void* localWords, void* third) {
    LB = localBits;
    LW = localWords;
    RWI = third;
}

// Address texts to numbers, and bit addresses to 16-bit words.
//
// The integer parse is QString::toInt, whose acceptance rules (surrounding white space and a
// leading sign allowed, nothing else) are part of what hosts rely on; plain digits, by far the
// most common text, take a short cut to the same result.

namespace {

constexpr int kInvalidAddress = -1;
// Digits that cannot overflow an int in base 8 or 10.
constexpr int kLongestPlainNumber = 9;

// The value of a text of 1 to 9 digits of `base` (8 or 10) and nothing else, which is what
// QString::toInt gives for it; -1 for any other text. The general parse (white space, signs,
// overflow, through a locale) costs far more, and plain digits are nearly every address.
int plainNumber(const QChar* text, int length, int base) {
    if (length < 1 || length > kLongestPlainNumber) {
        return kInvalidAddress;
    }
    int value = 0;
    for (int i = 0; i < length; ++i) {
        const unsigned int digit = static_cast<unsigned int>(text[i].unicode()) - u'0';
        if (digit >= static_cast<unsigned int>(base)) {
            return kInvalidAddress;
        }
        value = value * base + static_cast<int>(digit);
    }
    return value;
}

int parseInt(const QString& text, int base) {
    const int plain = plainNumber(text.constData(), text.size(), base);
    if (plain != kInvalidAddress) {
        return plain;
    }
    bool ok = false;
    const int value = text.toInt(&ok, base);
    return ok ? value : kInvalidAddress;
}

// "word.bit", both decimal; the bit part has no upper bound, so 3.20 is the same bit as 4.4.
int parseBitOfWord(const QString& text) {
    const int dot = text.indexOf(QLatin1Char('.'));
    if (dot >= 0) {
        const int word = plainNumber(text.constData(), dot, 10);
        const int bit = plainNumber(text.constData() + dot + 1, text.size() - dot - 1, 10);
        if (word != kInvalidAddress && bit != kInvalidAddress) {
            return wrapAdd(bit, wrapMul(word, kBitsPerWord));
        }
    }
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 2) {
        return kInvalidAddress;
    }
    bool wordOk = false;
    bool bitOk = false;
    const int word = parts.at(0).toInt(&wordOk, 10);
    const int bit = parts.at(1).toInt(&bitOk, 10);
    if (!wordOk || !bitOk) {
        return kInvalidAddress;
    }
    return wrapAdd(bit, wrapMul(word, kBitsPerWord));
}

}  // namespace

int StringAddressToInt(int area, QString text) {
    if (isOctalArea(area)) {
        return parseInt(text, 8);
    }
    if (area == korvan::kAreaBitOfWord) {
        return parseBitOfWord(text);
    }
    return parseInt(text, 10);
}

int PLCAddressChangeIntef(int area, QString text) {
    return StringAddressToInt(area, text);
}

// Registration of single variables on the cyclic read, write and once-read lists.
//
// Every list entry is the driver's own copy of the host's record; the host's record is never
// referenced after the call returns.

namespace {

constexpr int kVerbatimMode = 1;

// Two once-reads ask for the same words for the same host item. The texts, the payload and the
// remaining fields do not matter.
bool sameOnceRead(const RW_VAR& a, const RW_VAR& b) {
    return a.ownerId == b.ownerId && a.itemId == b.itemId && a.station == b.station &&
           a.area == b.area && a.address == b.address && a.count == b.count && a.port == b.port;
}

bool containsOnceRead(const QList<RW_VAR>& list, const RW_VAR& var) {
    for (const RW_VAR& entry : list) {
        if (sameOnceRead(entry, var)) {
            return true;
        }
    }
    return false;
}

// Appends the pieces of the normalised `var`, each at most `max` words, that are not queued yet.
// On return `var` holds the address past the last piece and the last piece's count, as if every
// piece had been offered; once the list is full no later piece can be taken, so offering the rest
// one by one would change nothing.
void appendOnceReadPieces(QList<RW_VAR>& list, RW_VAR* var, int max) {
    const int total = var->count;
    if (total <= 0) {
        return;
    }
    const int start = var->address;
    for (int remaining = total; remaining > 0 && list.size() < korvan::kListCapacity;) {
        const int piece = remaining >= max ? max : remaining;
        var->count = piece;
        if (!containsOnceRead(list, *var)) {
            list.append(*var);
        }
        remaining -= piece;
        var->address = wrapAdd(var->address, piece);
    }
    var->address = wrapAdd(start, total);
    var->count = total % max == 0 ? max : total % max;
}

int addOnceReadNormalised(RW_VAR* var) {
    const ComInfo* info = PLC_driver.comInfo;
    if (info == nullptr || var == nullptr) {
        return korvan::kAddressNotParsed;
    }
    const int address = StringAddressToInt(var->area, var->addressText);
    if (address < 0) {
        return korvan::kAddressNotParsed;
    }
    var->station = info->perVarStation == 0 ? info->defaultStation : var->station;
    var->address = address;
    var->mark = 0;
    var->extra = 0;
    if (var->station == 0) {
        return 0;
    }
    toWordUnits(var->area, var->address, var->count);

    MutexLock lock(PLC_driver.listMutex);
    try {
        appendOnceReadPieces(PLC_driver.onceReadList, var, effectiveMaxUnits(*info));
    } catch (...) {
        // Out of memory while copying: pieces appended so far stay queued.
    }
    return PLC_driver.onceReadList.size();
}

}  // namespace

// Appends without listMutex: the caller must not run it alongside polling or a rebuild. It may
// therefore be called from within a callback, where listMutex is already held.
int AddListReadVar(RW_VAR* var) {
    if (var != nullptr) {
        PLC_driver.readList.append(*var);
    }
    return PLC_driver.readList.size();
}

int AddListWriteVar(RW_VAR* var) {
    MutexLock lock(PLC_driver.listMutex);
    if (var != nullptr) {
        appendWrite(PLC_driver.writeList, *var);
    }
    return PLC_driver.writeList.size();
}

int AddListOnceReadVar(RW_VAR* var, int mode) {
    if (mode == kVerbatimMode) {
        MutexLock lock(PLC_driver.listMutex);
        if (var != nullptr) {
            PLC_driver.onceReadList.append(*var);
        }
        return PLC_driver.onceReadList.size();
    }
    return addOnceReadNormalised(var);
}

// The rebuild of the cyclic read list from the host's complete list of cyclic variables.
//
// Variables are bucketed by station and by normalised area, each bucket is sorted by address
// and grouped into block reads, and the blocks replace readList in one go under listMutex, so
// the scheduler never sees a half-built list.
//
// The variables are planned as small plain entries in one array, sorted once by station, area,
// address and position in the host's list, which gives the buckets in their order and each
// bucket in the order of a stable sort by address. Only the variables that open a block become
// records. Building a record per variable in a map of lists, then sorting and freeing them all,
// spent most of a 100,000-variable rebuild allocating and missing the cache.

namespace {

// Entries made by the rebuild belong to no host owner or item.
constexpr int kRebuildOwnerId = 0;
constexpr int kRebuildItemId = -1;
constexpr int kNoStation = 0;

// One host variable that takes part, in word units, with its sort keys packed into two numbers
// (station and normalised area; address and position in the host's list), which compare faster
// than four fields.
struct PlannedVar {
    quint64 bucket;
    quint64 position;
    int address;
    int count;

    PlannedVar(int station, int area, int address, int count, int host)
        : bucket(static_cast<quint64>(static_cast<quint32>(station) ^ kSignBit) << 32 |
                 static_cast<quint32>(area)),
          position(static_cast<quint64>(static_cast<quint32>(address)) << 32 |
                   static_cast<quint32>(host)),
          address(address),
          count(count) {}
    int station() const { return static_cast<int>(static_cast<quint32>(bucket >> 32) ^ kSignBit); }
    int area() const { return static_cast<int>(static_cast<quint32>(bucket)); }
    int host() const { return static_cast<int>(static_cast<quint32>(position)); }

    // Flipping the sign bit makes unsigned order the order of signed stations.
    static constexpr quint32 kSignBit = 0x80000000u;
};

// Addresses are never negative here, so the packed position orders like address, then host.
bool plannedBefore(const PlannedVar& a, const PlannedVar& b) {
    return a.bucket != b.bucket ? a.bucket < b.bucket : a.position < b.position;
}

// Variables whose address text does not parse, or whose station resolves to 0, are left out.
std::vector<PlannedVar> plannedVariables(const QList<HOSTVAR>& hostList, const ComInfo& info) {
    std::vector<PlannedVar> planned;
    planned.reserve(static_cast<std::size_t>(hostList.size()));
    for (int i = 0; i < hostList.size(); ++i) {
        const HOSTVAR& host = hostList.at(i);
        int address = StringAddressToInt(host.area, host.addressText);
        if (address < 0) {
            continue;
        }
        const int station = info.perVarStation == 0 ? info.defaultStation : host.station;
        if (station == kNoStation) {
            continue;
        }
        int area = host.area;
        int count = host.count;
        toWordUnits(area, address, count);
        planned.emplace_back(station, area, address, count, i);
    }
    std::sort(planned.begin(), planned.end(), plannedBefore);
    return planned;
}

// The record of a block opened by `var`; result, mark and extra stay 0.
RW_VAR readEntry(const HOSTVAR& host, const PlannedVar& var, const ComInfo& info) {
    RW_VAR entry;
    entry.ownerId = kRebuildOwnerId;
    entry.itemId = kRebuildItemId;
    entry.direction = korvan::kDirectionRead;
    entry.remoteMode = info.remoteMode;
    entry.port = info.portId;
    entry.nameText = host.nameText;
    entry.addressText = host.addressText;
    entry.area = var.area();
    entry.address = var.address;
    entry.station = var.station();
    entry.count = var.count;
    return entry;
}

void planReadList(const QList<HOSTVAR>& hostList, ComInfo& info) {
    const int max = info.maxUnits;
    PLC_driver.scanCount = 0;
    info.scanDone = 0;
    const std::vector<PlannedVar> planned = plannedVariables(hostList, info);
    const auto recordOf = [&](const PlannedVar& var) {
        return readEntry(hostList.at(var.host()), var, info);
    };
    for (auto bucket = planned.begin(); bucket != planned.end();) {
        const auto end = std::find_if(bucket, planned.end(), [&](const PlannedVar& var) {
            return var.bucket != bucket->bucket;
        });
        groupBucket(bucket, end, max, PLC_driver.readList, recordOf);
        bucket = end;
    }
}

}  // namespace

// The order of an exchange sort with a strict compare, in which equal addresses never trade
// places: the first of several variables at one address opens their block. A stable sort gives
// that order without the quadratic cost; panels carry tens of thousands of variables.
void Bubble_Sort(QList<RW_VAR>* list) {
    if (list == nullptr || list->size() < 2) {
        return;
    }
    std::stable_sort(list->begin(), list->end(),
                     [](const RW_VAR& a, const RW_VAR& b) { return a.address < b.address; });
}

int ReCreatReadVarList(QList<HOSTVAR>* list) {
    MutexLock lock(PLC_driver.listMutex);
    PLC_driver.readList.clear();
    ComInfo* info = PLC_driver.comInfo;
    // Without a port record there is no station or block length to plan with.
    if (list == nullptr || list->isEmpty() || info == nullptr) {
        return 0;
    }
    try {
        planReadList(*list, *info);
    } catch (...) {
        // Out of memory: the blocks of the buckets grouped so far stay in readList.
    }
    return PLC_driver.readList.size();
}

// Grouping of one sorted bucket of RW_VAR records into block reads (see block_grouping.h).

void growLastBlock(QList<RW_VAR>& out, int need, int max) {
    if (need <= max) {
        out.last().count = need;
        return;
    }
    out.last().count = max;
    RW_VAR overflow = out.last();
    overflow.address = wrapAdd(overflow.address, max);
    overflow.count = need - max;
    WhetherGroup(overflow.count, max, &overflow, &out);
}

void WhetherGroup(int total, int max, RW_VAR* var, QList<RW_VAR>* out) {
    if (var == nullptr || out == nullptr) {
        return;
    }
    max = effectiveBlockLength(max);
    if (total <= max) {
        out->append(*var);
        return;
    }
    const int remainder = total % max;
    const int pieces = total / max + (remainder != 0 ? 1 : 0);
    const int start = var->address;
    for (int k = 0; k < pieces; ++k) {
        const bool last = k == pieces - 1;
        var->address = wrapAdd(start, wrapMul(k, max));
        var->count = last && remainder != 0 ? remainder : max;
        out->append(*var);
    }
}

void BitVarReCreat(QList<RW_VAR>* list, int max) {
    if (list == nullptr || list->isEmpty()) {
        return;
    }
    groupBucket(list->constBegin(), list->constEnd(), max, PLC_driver.readList,
                [](const RW_VAR& var) -> const RW_VAR& { return var; });
}
