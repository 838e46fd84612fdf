// DataCom's steps that the scheduler shares.
#ifndef KORVAN_DRIVER_REPLY_HANDLING_H
#define KORVAN_DRIVER_REPLY_HANDLING_H

#include "base/Communication_Protocol.h"

// Reports the write at the front of writeList failed without sending it, once for its host
// variable, and removes it with that variable's other pieces. listMutex is held.
void refuseFrontWrite(Communication_Protocol& d, const ComInfo& info);

#endif
