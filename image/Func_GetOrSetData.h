// The host's reads and writes of the register image. GetRegisterData and SetRegisterData are
// declared in the public header.
#ifndef KORVAN_IMAGE_FUNC_GETORSETDATA_H
#define KORVAN_IMAGE_FUNC_GETORSETDATA_H

#include "korvan_qa_qb_series_port.h"

// Writes a write record's value into registerCache under cacheMutex, without waiting for the
// PLC. Bit writes change only their own bits; words never read before start from 0.
KORVAN_API void write_data_to_local(const RW_VAR& record);

#endif
