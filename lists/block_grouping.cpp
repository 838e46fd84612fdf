// Grouping into block reads: a block cut into pieces of the block length, and a block grown.
#include "lists/block_grouping.h"

#include "base/wrapping.h"

void appendInPieces(QList<RW_VAR>& out, RW_VAR& var, int total, int max) {
    max = effectiveBlockLength(max);
    if (total <= max) {
        out.append(var);
        return;
    }
    const int remainder = total % max;
    const int pieces = total / max + (remainder != 0 ? 1 : 0);
    const int start = var.address;
    for (int k = 0; k < pieces; ++k) {
        const bool last = k == pieces - 1;
        var.address = wrapAdd(start, wrapMul(k, max));
        var.count = last && remainder != 0 ? remainder : max;
        out.append(var);
    }
}

void growLastBlock(QList<RW_VAR>& out, int need, int max) {
    if (need <= max) {
        out.last().count = need;
        return;
    }
    out.last().count = max;
    RW_VAR overflow = out.last();
    overflow.address = wrapAdd(overflow.address, max);
    overflow.count = need - max;
    appendInPieces(out, overflow, overflow.count, max);
}
