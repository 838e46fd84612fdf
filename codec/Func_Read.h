// The local read: its frame, and the exchange that reads a variable.
#ifndef KORVAN_CODEC_FUNC_READ_H
#define KORVAN_CODEC_FUNC_READ_H

#include "korvan_qa_qb_series_port.h"

// The local read of a normalised variable, assembled in `buffer`.
Protocol readRequest(const RW_VAR& var, unsigned char* buffer);

// Starts the local read of a normalised variable: its request queued, the port record's counters
// set.
KORVAN_API void read_register(const RW_VAR& var);

#endif
