// Planning of the cyclic read list: sorting one station's variables of one area by address and
// grouping them into block reads of at most the port's block length.
//
// These are exported with C++ linkage (their symbols carry the argument types); the host's entry
// point for the whole rebuild is ReCreatReadVarList in the public header.
#ifndef KORVAN_LISTS_READ_PLANNING_H
#define KORVAN_LISTS_READ_PLANNING_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// Appends `var` to `out` cut into pieces of at most `max` units, counted from `total` rather than
// from var's own count. When `total` fits in one piece, `var` is appended untouched; otherwise
// `var` is left holding the last piece. A `max` below 1 counts as 1. Takes no lock.
KORVAN_API void WhetherGroup(int total, int max, RW_VAR* var, QList<RW_VAR>* out);

// Sorts by ascending address (signed); entries at equal addresses keep their order.
KORVAN_API void Bubble_Sort(QList<RW_VAR>* list);

// Appends the block reads of one bucket (one station, one normalised area, sorted by address) to
// PLC_driver.readList. The caller holds listMutex.
KORVAN_API void BitVarReCreat(QList<RW_VAR>* list, int max);

#endif
