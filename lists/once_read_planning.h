// Once-reads registered by address text, planned in pieces of the block length.
#ifndef KORVAN_LISTS_ONCE_READ_PLANNING_H
#define KORVAN_LISTS_ONCE_READ_PLANNING_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// Readies a once-read for the list: its address parsed from its text, the port's station unless
// stations are per-variable, mark and extra cleared, bits converted to words. Returns false when
// it is not to be queued: a text that names no address (the record is left as it was), or a
// station of 0 (the record is left in bits).
bool normaliseOnceRead(RW_VAR& var, const ComInfo& info);

// Appends the pieces of the normalised `var`, each at most `max` (at least 1) words, that `list`
// does not hold yet, while it holds fewer than korvan::kListCapacity. On return `var` holds the
// address past the last piece and the last piece's count, as if every piece had been offered.
void appendOnceReadPieces(QList<RW_VAR>& list, RW_VAR& var, int max);

#endif
