// Remote frames, and the exchanges that read and write a variable through them.
#ifndef KORVAN_CODEC_FUNC_REMOTE_H
#define KORVAN_CODEC_FUNC_REMOTE_H

#include "korvan_qa_qb_series_port.h"

// The remote read and write of a record, built in their own byte arrays.
Protocol remoteReadRequest(const RW_VAR& var);
Protocol remoteWriteRequest(const RW_VAR& var);

// Each starts an exchange of one remote frame: its request queued, the port record's counters set.
// Remote_WriteVar also mirrors the record into the register image, always.
KORVAN_API void Remote_ReadVar(const RW_VAR& var);
KORVAN_API void Remote_WriteVar(const RW_VAR& var);

#endif
