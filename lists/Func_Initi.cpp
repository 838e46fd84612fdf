// The variable lists: configuration, address texts, registration, the read-list rebuild and
// grouping. The work is done by the helpers beside this file (address_text, once_read_planning,
// read_planning, block_grouping); the functions here hand them the driver's lists and port record.
#include "lists/Func_Initi.h"

#include <algorithm>

#include "base/Communication_Protocol.h"
#include "base/mutex_lock.h"
#include "lists/address_text.h"
#include "lists/block_grouping.h"
#include "lists/once_read_planning.h"
#include "lists/read_planning.h"
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
    Communication_Protocol& d = PLC_driver;
    d.resultCallback = onResult;
    d.errorCallback = onError;
}

void FlashLocalRegister(void* localBits, void* localWords, void* third) {
    LB = localBits;
    LW = localWords;
    RWI = third;
}

int StringAddressToInt(int area, QString text) {
    return parseAddress(area, text);
}

int PLCAddressChangeIntef(int area, QString text) {
    return parseAddress(area, text);
}

// Registration of single variables on the cyclic read, write and once-read lists.
//
// Every list entry is the driver's own copy of the host's record; the host's record is never
// referenced after the call returns.

// Appends without listMutex: the caller must not run it alongside polling or a rebuild. It may
// therefore be called from within a callback, where listMutex is already held.
int AddListReadVar(RW_VAR* var) {
    QList<RW_VAR>& list = PLC_driver.readList;
    if (var != nullptr) {
        list.append(*var);
    }
    return list.size();
}

int AddListWriteVar(RW_VAR* var) {
    Communication_Protocol& d = PLC_driver;
    MutexLock lock(d.listMutex);
    if (var != nullptr) {
        appendWrite(d.writeList, *var);
    }
    return d.writeList.size();
}

int AddListOnceReadVar(RW_VAR* var, int mode) {
    Communication_Protocol& d = PLC_driver;
    if (mode == korvan::kOnceReadVerbatim) {
        MutexLock lock(d.listMutex);
        if (var != nullptr) {
            d.onceReadList.append(*var);
        }
        return d.onceReadList.size();
    }
    const ComInfo* info = d.comInfo;
    if (info == nullptr || var == nullptr || !normaliseOnceRead(*var, *info)) {
        return korvan::kAddressNotParsed;
    }
    MutexLock lock(d.listMutex);
    try {
        appendOnceReadPieces(d.onceReadList, *var, effectiveMaxUnits(*info));
    } catch (...) {
        // Out of memory while copying: pieces appended so far stay queued.
    }
    return d.onceReadList.size();
}

// The rebuild of the cyclic read list from the host's complete list of cyclic variables. The
// blocks replace readList in one go under listMutex, so the scheduler never sees a half-built
// list.

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
    Communication_Protocol& d = PLC_driver;
    MutexLock lock(d.listMutex);
    d.readList.clear();
    ComInfo* info = d.comInfo;
    // Without a port record there is no station or block length to plan with.
    if (list == nullptr || list->isEmpty() || info == nullptr) {
        return 0;
    }
    d.scanCount = 0;
    info->scanDone = 0;
    try {
        planReadList(*list, *info, d.readList);
    } catch (...) {
        // Out of memory: the blocks of the buckets grouped so far stay in readList.
    }
    return d.readList.size();
}

// Grouping of one sorted bucket of RW_VAR records into block reads (see block_grouping.h).

void WhetherGroup(int total, int max, RW_VAR* var, QList<RW_VAR>* out) {
    if (var != nullptr && out != nullptr) {
        appendInPieces(*out, *var, total, max);
    }
}

void BitVarReCreat(QList<RW_VAR>* list, int max) {
    if (list == nullptr || list->isEmpty()) {
        return;
    }
    groupBucket(list->constBegin(), list->constEnd(), max, PLC_driver.readList,
                [](const RW_VAR& var) -> const RW_VAR& { return var; });
}
