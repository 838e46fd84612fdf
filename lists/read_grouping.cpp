// Grouping of one sorted bucket of RW_VAR records into block reads (see block_grouping.h).
#include "driver/Communication_Protocol.h"
#include "driver/wrapping.h"
#include "lists/block_grouping.h"
#include "lists/read_planning.h"

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
