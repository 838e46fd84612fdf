// Mirroring of a write record into the register image.
//
// The register image defines it; the frame builders call it when they issue a write. The two
// sit side by side above the driver core, so the declaration lives here, below both of them.
#ifndef KORVAN_DRIVER_REGISTER_MIRROR_H
#define KORVAN_DRIVER_REGISTER_MIRROR_H

#include "korvan_qa_qb_series_port.h"

// Writes the record's value into registerCache under cacheMutex, without waiting for the PLC.
// Bit writes change only their own bits; words never read before start from 0.
KORVAN_API void write_data_to_local(const RW_VAR& record);

#endif
