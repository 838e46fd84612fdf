// A panel's worth of cyclic variables for the read-planning measurements: spread over several
// stations and bit, word and bit-of-word areas, in no particular order, the same on every run.
#ifndef KORVAN_BENCH_PANEL_VARIABLES_H
#define KORVAN_BENCH_PANEL_VARIABLES_H

#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

namespace bench {

QList<HOSTVAR> panelVariables(int size);

// A port record set up for planning panelVariables(): per-variable stations, block length 100.
// Hands it to SetComInfo.
void usePlanningPort(ComInfo& info);

}  // namespace bench

#endif
