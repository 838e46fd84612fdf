// The polling pair's internals: judging a reply against the head request, and result codes.
#ifndef KORVAN_DRIVER_POLLING_H
#define KORVAN_DRIVER_POLLING_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

// Kinds of verdict on a reply, turned into result codes by GetDriverReturnValue.
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

// Result codes of a good reply, and of a failure while judging one.
constexpr int kResultLocalGood = 1;
constexpr int kResultRemoteGood = 100;
constexpr int kResultRetryPending = 0;
constexpr int kResultJudgingFailed = 71;

// Judge the reply for the head of requestQueue and return a result code. A null reply counts as
// nothing received; a length beyond the bytes the reply holds, or below 0, as a wrong length.
KORVAN_API int DealDataOfLocalArea(QByteArray* reply, int length);
KORVAN_API int DealDataOfRemoteArea(QByteArray* reply, int length);

// Reports the write at the front of writeList failed without sending it, once for its host
// variable, and removes it with that variable's other pieces. listMutex is held.
void refuseFrontWrite(const ComInfo& info);

// Result code of a verdict kind; failures are offset by the head request's ownerId.
KORVAN_API int GetDriverReturnValue(int kind);
KORVAN_API int SwitchErrorReturn(int base);

#endif
