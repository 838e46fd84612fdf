// The read-list rebuild's plan.
#ifndef KORVAN_LISTS_READ_PLANNING_H
#define KORVAN_LISTS_READ_PLANNING_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// Appends to `readList` the block reads of the host's cyclic variables with the port record's
// station and block length: per station and normalised area in ascending order, each bucket's
// blocks by address. Variables whose address text does not parse, or whose station resolves to 0,
// are left out. Out of memory, the blocks of the buckets grouped so far stay appended.
void planReadList(const QList<HOSTVAR>& hostList, const ComInfo& info, QList<RW_VAR>& readList);

#endif
