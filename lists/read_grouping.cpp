// Grouping of one sorted bucket of variables into block reads.
//
// Neighbouring variables are read together to save exchanges on the line: a block may read
// through words that nobody asked for, but never more than the block length in one request.
#include "driver/Communication_Protocol.h"
#include "driver/wrapping.h"
#include "lists/read_planning.h"

namespace {

// The block length that selects folding by address instead of merging spans.
constexpr int kSameAddressOnlyLength = 1;

// A block length of exactly 1 cannot merge neighbours, so only variables at the same address are
// folded together, into the longest of them. Nothing is split, and overlapping variables at
// different addresses stay separate entries.
void foldSameAddress(const QList<RW_VAR>& bucket, QList<RW_VAR>& out) {
    out.append(bucket.first());
    int previousAddress = bucket.first().address;
    for (int i = 1; i < bucket.size(); ++i) {
        const RW_VAR& var = bucket.at(i);
        if (var.address != previousAddress) {
            out.append(var);
        } else if (var.count > out.last().count) {
            out.last().count = var.count;
        }
        previousAddress = var.address;
    }
}

// Grows the last block of `out` to `need` words; whatever exceeds `max` continues in copies of
// that block at its start + max, + 2 * max, ...
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

// Greedy forward pass: a variable joins the last block when it starts fewer than `max` words after
// the block's first word, whatever the gap; otherwise it opens a new block. Variables that ask for
// no word are skipped, so they can neither open a block nor stretch one.
void mergeSpans(const QList<RW_VAR>& bucket, int max, QList<RW_VAR>& out) {
    bool blockOpen = false;
    int blockStart = 0;
    int blockLength = 0;
    for (const RW_VAR& var : bucket) {
        if (var.count <= 0) {
            continue;
        }
        if (!blockOpen || var.address >= wrapAdd(blockStart, max)) {
            RW_VAR block = var;
            WhetherGroup(block.count, max, &block, &out);
            blockOpen = true;
        } else {
            const int end = wrapAdd(var.address, var.count);
            if (wrapAdd(blockStart, blockLength) < end) {
                growLastBlock(out, wrapSub(end, blockStart), max);
            }
        }
        blockStart = out.last().address;
        blockLength = out.last().count;
    }
}

}  // namespace

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
    max = effectiveBlockLength(max);
    if (max == kSameAddressOnlyLength) {
        foldSameAddress(*list, PLC_driver.readList);
    } else {
        mergeSpans(*list, max, PLC_driver.readList);
    }
}
