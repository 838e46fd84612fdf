// Grouping of one sorted bucket of variables into block reads, for any kind of bucket entry.
//
// Neighbouring variables are read together to save exchanges on the line: a block may read
// through words that nobody asked for, but never more than the block length in one request.
// An entry needs an `address` and a `count` in words; `recordOf(entry)` gives the RW_VAR a block
// opened by it starts from. BitVarReCreat groups lists of RW_VAR with it, the read-list rebuild
// its own compact entries, which become records only when they open a block.
#ifndef KORVAN_LISTS_BLOCK_GROUPING_H
#define KORVAN_LISTS_BLOCK_GROUPING_H

#include <QtCore/QList>

#include "base/Communication_Protocol.h"
#include "base/wrapping.h"

// The block length that selects folding by address instead of merging spans.
constexpr int kSameAddressOnlyLength = 1;

// Appends `var` to `out` cut into pieces of at most `max` units (below 1 counts as 1), counted
// from `total` rather than from var's own count: when `total` fits one piece, `var` is appended
// untouched, otherwise left holding the last piece. WhetherGroup's rule.
void appendInPieces(QList<RW_VAR>& out, RW_VAR& var, int total, int max);

// Grows the last block of `out` to `need` words; whatever exceeds `max` continues in copies of
// that block at its start + max, + 2 * max, ...
void growLastBlock(QList<RW_VAR>& out, int need, int max);

// A block length of exactly 1 cannot merge neighbours, so only variables at the same address are
// folded together, into the longest of them. Nothing is split, and overlapping variables at
// different addresses stay separate entries. Variables that ask for no word are skipped, as
// under the span rule: such a read could never be answered.
template <typename Iterator, typename RecordOf>
void foldSameAddress(Iterator first, Iterator last, QList<RW_VAR>& out, RecordOf recordOf) {
    bool opened = false;
    int previousAddress = 0;
    for (Iterator it = first; it != last; ++it) {
        if (it->count <= 0) {
            continue;
        }
        if (!opened || it->address != previousAddress) {
            out.append(recordOf(*it));
            opened = true;
        } else if (it->count > out.last().count) {
            out.last().count = it->count;
        }
        previousAddress = it->address;
    }
}

// Greedy forward pass: a variable joins the last block when it starts fewer than `max` words after
// the block's first word, whatever the gap; otherwise it opens a new block. Variables that ask for
// no word are skipped, so they can neither open a block nor stretch one.
template <typename Iterator, typename RecordOf>
void mergeSpans(Iterator first, Iterator last, int max, QList<RW_VAR>& out, RecordOf recordOf) {
    bool blockOpen = false;
    int blockStart = 0;
    int blockLength = 0;
    for (Iterator it = first; it != last; ++it) {
        if (it->count <= 0) {
            continue;
        }
        if (!blockOpen || it->address >= wrapAdd(blockStart, max)) {
            RW_VAR block = recordOf(*it);
            appendInPieces(out, block, block.count, max);
            blockOpen = true;
        } else {
            const int end = wrapAdd(it->address, it->count);
            if (wrapAdd(blockStart, blockLength) < end) {
                growLastBlock(out, wrapSub(end, blockStart), max);
            }
        }
        blockStart = out.last().address;
        blockLength = out.last().count;
    }
}

// Appends the block reads of the non-empty bucket [first, last), sorted by address.
template <typename Iterator, typename RecordOf>
void groupBucket(Iterator first, Iterator last, int max, QList<RW_VAR>& out, RecordOf recordOf) {
    max = effectiveBlockLength(max);
    if (max == kSameAddressOnlyLength) {
        foldSameAddress(first, last, out, recordOf);
    } else {
        mergeSpans(first, last, max, out, recordOf);
    }
}

#endif
