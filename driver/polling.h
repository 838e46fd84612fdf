// The polling pair's internals: judging a reply to the head request, and result codes.
#ifndef KORVAN_DRIVER_POLLING_H
#define KORVAN_DRIVER_POLLING_H

#include <QtCore/QByteArray>

#include "base/Communication_Protocol.h"

// Kinds of verdict on a reply, turned into result codes by resultCode.
enum ReplyKind {
    kLocalGood = 0,
    kLocalInvalid = 1,
    kLocalNothingReceived = 2,
    kLocalWrongLength = 3,
    kRemoteGood = 4,
    kRemoteInvalid = 5,
    kRemoteNothingReceived = 6,
    kRemoteWrongLength = 7,
};

// The result code of a verdict kind on a reply to a request of `ownerId`: failures carry the
// owner, for owners 0..11.
int resultCode(int kind, int ownerId);

// Judge `reply`, of which the host received `length` bytes, as the answer to `head`, the head of
// d.requestQueue, store what it carries, and return the result code. A null reply counts as
// nothing received; a length beyond the bytes the reply holds, or below 0, as a wrong length.
// The local family stores read data into the register image under cacheMutex; the remote family
// stores nothing. Both complete a bit-of-word write from its read's reply.
int judgeLocalReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply,
                    int length);
int judgeRemoteReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply,
                     int length);

// Reports the write at the front of writeList failed without sending it, once for its host
// variable, and removes it with that variable's other pieces. listMutex is held.
void refuseFrontWrite(Communication_Protocol& d, const ComInfo& info);

#endif
