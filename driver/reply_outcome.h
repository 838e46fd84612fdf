// What a reply to the head request leads to, in either frame family.
#ifndef KORVAN_DRIVER_REPLY_OUTCOME_H
#define KORVAN_DRIVER_REPLY_OUTCOME_H

#include <QtCore/QByteArray>

#include "base/Communication_Protocol.h"

// Judges `reply`, of which the host received `length` bytes, as the answer to `head`, the head of
// d.requestQueue, and returns the result code in the local or the remote family. A good reply to
// the word read of a bit-in-word write completes the write queued behind it; any other good local
// read reply is stored into the register image under cacheMutex. The remote family stores
// nothing. The caller holds no lock.
int takeReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply, int length,
              bool local);

// takeReply for the head request of PLC_driver; with nothing queued, the family's invalid code.
KORVAN_API int DealDataOfLocalArea(QByteArray* reply, int length);
KORVAN_API int DealDataOfRemoteArea(QByteArray* reply, int length);

#endif
