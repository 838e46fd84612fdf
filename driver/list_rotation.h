// Moving the first entry of a list to its end: how the cyclic read list goes round.
#ifndef KORVAN_DRIVER_LIST_ROTATION_H
#define KORVAN_DRIVER_LIST_ROTATION_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// Moves the first entry to the end, keeping the others in order; does nothing to a list of
// fewer than two entries. Never throws.
void rotateFirstToEnd(QList<RW_VAR>& list);

#endif
