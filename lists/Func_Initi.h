// The variable lists' functions beside the host interface of the public header: read planning
// steps that the driver exports with it.
#ifndef KORVAN_LISTS_FUNC_INITI_H
#define KORVAN_LISTS_FUNC_INITI_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// WhetherGroup appends `var` to `out` cut into pieces of at most `max` units, counted from
// `total` rather than from var's own count; when `total` fits one piece, `var` is appended
// untouched, otherwise left holding the last piece. Bubble_Sort sorts by ascending address,
// keeping the order of equal addresses. BitVarReCreat appends the block reads of one sorted
// bucket (one station, one area) to readList; the caller holds listMutex. A `max` below 1 counts
// as 1.
KORVAN_API void WhetherGroup(int total, int max, RW_VAR* var, QList<RW_VAR>* out);
KORVAN_API void Bubble_Sort(QList<RW_VAR>* list);
KORVAN_API void BitVarReCreat(QList<RW_VAR>* list, int max);

#endif
