// The verdict on one reply to the head request: was anything received, is it as long as
// expected, do its station byte and CRC hold; and what a good reply carries is stored.
#include "base/Communication_Protocol.h"
#include "base/driver_functions.h"
#include "base/mutex_lock.h"
#include "codec/bit_word_write.h"
#include "codec/frames.h"
#include "driver/polling.h"
#include "image/register_image.h"

namespace {

enum class Arrival { Nothing, WrongLength, Complete };

// What arrived, judged by its count alone. The host's count is checked against the bytes it
// really handed over, so a count that claims more never leads to reading past them.
Arrival arrivalFor(const Protocol& head, const QByteArray* reply, int length) {
    if (reply == nullptr) {
        length = 0;
    }
    if (length == 0 && head.replyLength != korvan::kReplyNone) {
        return Arrival::Nothing;
    }
    if (head.replyLength != length && head.replyLength != korvan::kReplyAnyLength) {
        return Arrival::WrongLength;
    }
    if (length < 0 || length > (reply != nullptr ? reply->size() : 0)) {
        return Arrival::WrongLength;
    }
    return Arrival::Complete;
}

// The bytes received: the host's buffer itself, or a copy of its first `length` bytes when it
// holds more (none of a null buffer). Only called once the length has been found to fit.
const QByteArray& receivedBytes(const QByteArray* reply, int length, QByteArray& shortened) {
    if (reply == nullptr) {
        return shortened;
    }
    if (length == reply->size()) {
        return *reply;
    }
    shortened = reply->left(length);
    return shortened;
}

bool isValid(int verdict) {
    return verdict == kReplyStore || verdict == kReplyNothingToStore;
}

}  // namespace

int judgeLocalReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply,
                    int length) {
    const int owner = head.var.ownerId;
    switch (arrivalFor(head, reply, length)) {
        case Arrival::Nothing:
            return resultCode(kLocalNothingReceived, owner);
        case Arrival::WrongLength:
            return resultCode(kLocalWrongLength, owner);
        case Arrival::Complete:
            break;
    }
    QByteArray shortened;
    const QByteArray& bytes = receivedBytes(reply, length, shortened);
    const int verdict = checkReply(head.var, &bytes);
    if (!isValid(verdict)) {
        return resultCode(kLocalInvalid, owner);
    }
    if (verdict == kReplyStore) {
        // The word read of a bit-of-word write completes the queued write frame and stores
        // nothing; it asks writeList under listMutex, which cacheMutex must not enclose.
        if (head.var.mark == korvan::kMarkBitOfWordRead) {
            completePendingBitWordWrite(d, bytes);
        } else {
            MutexLock lock(d.cacheMutex);
            storeReply(d.registerCache, head, bytes);
        }
    }
    return resultCode(kLocalGood, owner);
}

// Remote replies are judged the same way, but their data do not go into the image; only the
// word read of a bit-of-word write is passed on, to complete its write frame.
int judgeRemoteReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply,
                     int length) {
    const int owner = head.var.ownerId;
    switch (arrivalFor(head, reply, length)) {
        case Arrival::Nothing:
            return resultCode(kRemoteNothingReceived, owner);
        case Arrival::WrongLength:
            return resultCode(kRemoteWrongLength, owner);
        case Arrival::Complete:
            break;
    }
    QByteArray shortened;
    const QByteArray& bytes = receivedBytes(reply, length, shortened);
    if (!isValid(checkReply(head.var, &bytes))) {
        return resultCode(kRemoteInvalid, owner);
    }
    if (head.var.mark != korvan::kMarkBitOfWordRead) {
        return resultCode(kRemoteGood, owner);
    }
    completePendingBitWordWrite(d, bytes);
    const bool lastFrame = d.comInfo != nullptr && d.comInfo->framesAnswered == 1;
    return resultCode(lastFrame ? kRemoteGood : kLocalGood, owner);
}

int DealDataOfLocalArea(QByteArray* reply, int length) {
    const QList<Protocol>& queue = PLC_driver.requestQueue;
    return queue.isEmpty() ? GetDriverReturnValue(kLocalInvalid)
                           : judgeLocalReply(PLC_driver, queue.first(), reply, length);
}

int DealDataOfRemoteArea(QByteArray* reply, int length) {
    const QList<Protocol>& queue = PLC_driver.requestQueue;
    return queue.isEmpty() ? GetDriverReturnValue(kRemoteInvalid)
                           : judgeRemoteReply(PLC_driver, queue.first(), reply, length);
}
