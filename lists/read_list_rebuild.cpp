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
#include <algorithm>
#include <vector>

#include "driver/Communication_Protocol.h"
#include "driver/mutex_lock.h"
#include "lists/block_grouping.h"
#include "lists/read_planning.h"
#include "lists/word_units.h"

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
    entry.direction = kReadRequest;
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
