// The driver object's own operations beside its class (base/Communication_Protocol.h).
#ifndef KORVAN_DRIVER_COMMUNICATION_PROTOCOL_H
#define KORVAN_DRIVER_COMMUNICATION_PROTOCOL_H

#include "korvan_qa_qb_series_port.h"

// Copies fields ownerId..extra of `from` into `to` and empties the payload of `to`.
KORVAN_API void passRetValue(const RW_VAR& from, RW_VAR& to);

#endif
