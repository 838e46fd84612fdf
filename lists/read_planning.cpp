// The read-list rebuild's plan: the host's cyclic variables bucketed by station and normalised
// area, each bucket sorted by address and grouped into block reads.
//
// The variables are planned as small plain entries in one array, sorted once by station, area,
// address and position in the host's list, which gives the buckets in their order and each
// bucket in the order of a stable sort by address. Only the variables that open a block become
// records. Building a record per variable in a map of lists, then sorting and freeing them all,
// spent most of a 100,000-variable rebuild allocating and missing the cache.
#include "lists/read_planning.h"

#include <algorithm>
#include <vector>

#include "lists/address_text.h"
#include "lists/block_grouping.h"
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
        int address = parseAddress(host.area, host.addressText);
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

}  // namespace

void planReadList(const QList<HOSTVAR>& hostList, const ComInfo& info, QList<RW_VAR>& readList) {
    const int max = info.maxUnits;
    const std::vector<PlannedVar> planned = plannedVariables(hostList, info);
    const auto recordOf = [&](const PlannedVar& var) {
        return readEntry(hostList.at(var.host()), var, info);
    };
    for (auto bucket = planned.begin(); bucket != planned.end();) {
        const auto end = std::find_if(bucket, planned.end(), [&](const PlannedVar& var) {
            return var.bucket != bucket->bucket;
        });
        groupBucket(bucket, end, max, readList, recordOf);
        bucket = end;
    }
}
