// The judging of replies. The checksums of Func_Check.cpp are declared in the public header.
#ifndef KORVAN_CODEC_FUNC_CHECK_H
#define KORVAN_CODEC_FUNC_CHECK_H

#include <QtCore/QByteArray>

#include "codec/frames.h"
#include "korvan_qa_qb_series_port.h"

// What a reply's content is good for (CheckGetData's results).
constexpr int kReplyInvalid = 0;
constexpr int kReplyStore = 1;           // valid, carries read data to store
constexpr int kReplyNothingToStore = 2;  // valid, nothing to store (write, or station 0)

// The verdict on `reply` to a request for `request`: its station byte and its CRC. Function code,
// byte count and length are not examined. A request to station 0 is answered by nobody, so any
// reply, even none, passes.
int checkReply(const RW_VAR& request, ReplyBytes reply);

// The verdict on a reply to the head request, as the polling pair needs it.
enum class Verdict {
    NothingReceived,  // no bytes, while a reply was expected
    WrongLength,      // another count than expected, or more than the buffer holds
    Invalid,          // the station byte or the CRC is wrong
    Store,            // good, and carries read data for the image
    NothingToStore,   // good: a write's acknowledgement, or station 0's (any reply, even none)
    CompletesWrite,   // good read data, for the word read of a bit-in-word write
};

// Judges `reply`, of which the host received `length` bytes, as the answer to `head`. A null
// reply counts as nothing received; a length beyond the bytes the reply holds, or below 0, as a
// wrong length. Reads nothing but its arguments.
Verdict judgeReply(const Protocol& head, const QByteArray* reply, int length);

// The bytes received: the first `length` of the host's buffer, none of a null one. Only for a
// reply that judgeReply found complete.
inline ReplyBytes receivedBytes(const QByteArray* reply, int length) {
    return reply != nullptr ? ReplyBytes{replyBytes(*reply).data, length} : ReplyBytes{nullptr, 0};
}

// Judges a reply against the head of requestQueue: kReplyInvalid (also with nothing queued),
// kReplyStore or kReplyNothingToStore.
KORVAN_API int CheckGetData(const QByteArray* reply);

#endif
