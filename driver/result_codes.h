// Result codes of the polling pair's verdicts.
#ifndef KORVAN_DRIVER_RESULT_CODES_H
#define KORVAN_DRIVER_RESULT_CODES_H

#include "korvan_qa_qb_series_port.h"

// Kinds of verdict on a reply, turned into result codes by resultCode: the local family's, then
// the remote family's, each good, invalid, nothing received, wrong length.
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

// The same for the head request's owner (none when nothing is queued); SwitchErrorReturn gives
// the failure code of a korvan::FailureBase.
KORVAN_API int GetDriverReturnValue(int kind);
KORVAN_API int SwitchErrorReturn(int base);

#endif
