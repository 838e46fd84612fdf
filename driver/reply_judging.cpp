// The verdict on one reply, for the request at the head of requestQueue: was anything received,
// is it as long as expected, and do its station byte and CRC hold. Good read data go into the
// register image from here.
#include "codec/frames.h"
#include "driver/Communication_Protocol.h"
#include "driver/bit_word_write.h"
#include "driver/mutex_lock.h"
#include "driver/polling.h"
#include "image/register_image.h"

namespace {

constexpr int kAnyReplyLength = -1;

enum class Arrival { Nothing, WrongLength, Complete };

// What arrived, judged by its count alone. The host's count is checked against the bytes it
// really handed over, so a count that claims more never leads to reading past them.
Arrival arrivalFor(const Protocol& head, const QByteArray* reply, int length) {
    if (reply == nullptr) {
        length = 0;
    }
    if (length == 0 && head.replyLength != 0) {
        return Arrival::Nothing;
    }
    if (head.replyLength != length && head.replyLength != kAnyReplyLength) {
        return Arrival::WrongLength;
    }
    if (length < 0 || length > (reply != nullptr ? reply->size() : 0)) {
        return Arrival::WrongLength;
    }
    return Arrival::Complete;
}

// The bytes received: the first `length` bytes of the host's buffer (which may be larger).
QByteArray receivedBytes(const QByteArray* reply, int length) {
    if (reply == nullptr) {
        return QByteArray();
    }
    return length < reply->size() ? reply->left(length) : *reply;
}

}  // namespace

int DealDataOfLocalArea(QByteArray* reply, int length) {
    if (PLC_driver.requestQueue.isEmpty()) {
        return GetDriverReturnValue(kLocalInvalid);
    }
    switch (arrivalFor(PLC_driver.requestQueue.first(), reply, length)) {
        case Arrival::Nothing:
            return GetDriverReturnValue(kLocalNothingReceived);
        case Arrival::WrongLength:
            return GetDriverReturnValue(kLocalWrongLength);
        case Arrival::Complete:
            break;
    }
    QByteArray bytes = receivedBytes(reply, length);
    switch (CheckGetData(&bytes)) {
        case kReplyStore: {
            // The word read of a bit-in-word write completes the queued write frame and stores
            // nothing; it asks writeList under listMutex, which cacheMutex must not enclose.
            if (PLC_driver.requestQueue.first().var.mark == kMarkBitWordRead) {
                SpecialRegisterSave(&bytes);
                return GetDriverReturnValue(kLocalGood);
            }
            MutexLock lock(PLC_driver.cacheMutex);
            SaveToLocalDataErea(&bytes);
            return GetDriverReturnValue(kLocalGood);
        }
        case kReplyNothingToStore:
            return GetDriverReturnValue(kLocalGood);
        default:
            return GetDriverReturnValue(kLocalInvalid);
    }
}

// Remote replies are judged the same way, but their data do not go into the image; only the
// word read of a bit-in-word write is passed on, to complete its write frame.
int DealDataOfRemoteArea(QByteArray* reply, int length) {
    if (PLC_driver.requestQueue.isEmpty()) {
        return GetDriverReturnValue(kRemoteInvalid);
    }
    const Protocol& head = PLC_driver.requestQueue.first();
    switch (arrivalFor(head, reply, length)) {
        case Arrival::Nothing:
            return GetDriverReturnValue(kRemoteNothingReceived);
        case Arrival::WrongLength:
            return GetDriverReturnValue(kRemoteWrongLength);
        case Arrival::Complete:
            break;
    }
    QByteArray bytes = receivedBytes(reply, length);
    const int verdict = CheckGetData(&bytes);
    if (verdict != kReplyStore && verdict != kReplyNothingToStore) {
        return GetDriverReturnValue(kRemoteInvalid);
    }
    if (head.var.mark != kMarkBitWordRead) {
        return GetDriverReturnValue(kRemoteGood);
    }
    // Touches only the queued write frame, not the image, so cacheMutex is not needed.
    SpecialRegisterSave(&bytes);
    const ComInfo* info = PLC_driver.comInfo;
    const bool lastFrame = info != nullptr && info->framesAnswered == 1;
    return GetDriverReturnValue(lastFrame ? kRemoteGood : kLocalGood);
}
