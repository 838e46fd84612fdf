// The rebuild of the cyclic read list from the host's complete list of cyclic variables.
//
// Variables are bucketed by station and by normalised area, each bucket is sorted by address
// and grouped into block reads, and the blocks replace readList in one go under listMutex, so
// the scheduler never sees a half-built list.
#include <algorithm>

#include <QtCore/QMap>

#include "driver/Communication_Protocol.h"
#include "driver/mutex_lock.h"
#include "lists/read_planning.h"

namespace {

// Entries made by the rebuild belong to no host owner or item.
constexpr int kRebuildOwnerId = 0;
constexpr int kRebuildItemId = -1;
constexpr int kReadDirection = 0;
constexpr int kNoStation = 0;

// Station -> normalised area -> that bucket's variables in the host's order. Both levels iterate
// in ascending key order, which gives readList its station-then-area order.
typedef QMap<int, QMap<int, QList<RW_VAR>>> Buckets;

// The working record of one host variable, before normalisation; result, mark and extra stay 0.
RW_VAR readEntry(const HOSTVAR& host, int address, int station, const ComInfo& info) {
    RW_VAR var;
    var.ownerId = kRebuildOwnerId;
    var.itemId = kRebuildItemId;
    var.direction = kReadDirection;
    var.remoteMode = info.remoteMode;
    var.port = info.portId;
    var.nameText = host.nameText;
    var.addressText = host.addressText;
    var.area = host.area;
    var.address = address;
    var.station = station;
    var.count = host.count;
    return var;
}

// Variables whose address text does not parse, or whose station resolves to 0, are left out.
Buckets bucketVariables(const QList<HOSTVAR>& hostList, const ComInfo& info) {
    Buckets buckets;
    for (const HOSTVAR& host : hostList) {
        const int address = StringAddressToInt(host.area, host.addressText);
        if (address < 0) {
            continue;
        }
        const int station = info.perVarStation == 0 ? info.defaultStation : host.station;
        if (station == kNoStation) {
            continue;
        }
        RW_VAR var = readEntry(host, address, station, info);
        PLC_driver.update_rw_var(&var);
        buckets[station][var.area].append(var);
    }
    return buckets;
}

void planReadList(const QList<HOSTVAR>& hostList, ComInfo& info) {
    const int max = info.maxUnits;
    PLC_driver.scanCount = 0;
    info.scanDone = 0;
    Buckets buckets = bucketVariables(hostList, info);
    for (QMap<int, QList<RW_VAR>>& areas : buckets) {
        for (QList<RW_VAR>& bucket : areas) {
            Bubble_Sort(&bucket);
            BitVarReCreat(&bucket, max);
        }
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
