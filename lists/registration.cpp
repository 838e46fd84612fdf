// Registration of single variables on the cyclic read, write and once-read lists.
//
// Every list entry is the driver's own copy of the host's record; the host's record is never
// referenced after the call returns.
#include "driver/Communication_Protocol.h"
#include "driver/mutex_lock.h"
#include "driver/wrapping.h"

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
    for (int remaining = total; remaining > 0 && list.size() < kMaxListEntries;) {
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
        return 0;
    }
    const int address = StringAddressToInt(var->area, var->addressText);
    if (address < 0) {
        return 0;
    }
    var->station = info->perVarStation == 0 ? info->defaultStation : var->station;
    var->address = address;
    var->mark = 0;
    var->extra = 0;
    if (var->station == 0) {
        return 0;
    }
    PLC_driver.update_rw_var(var);

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
    if (var != nullptr && PLC_driver.writeList.size() < kMaxListEntries) {
        PLC_driver.writeList.append(*var);
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
