// The outcome of a reply to the head request: the codec judges it, and here it is decided once
// whether a good reply is stored or completes the pending write, and which result code it gives.
// The local and the remote family take the same steps; they differ in their codes, and the
// remote family stores nothing.
#include "driver/reply_outcome.h"

#include "base/exchange.h"
#include "base/mutex_lock.h"
#include "codec/Func_Check.h"
#include "codec/bit_word_write.h"
#include "driver/result_codes.h"
#include "image/Func_DealData.h"

namespace {

// The result kinds of a frame family.
struct FamilyKinds {
    int good;
    int invalid;
    int nothingReceived;
    int wrongLength;
};
constexpr FamilyKinds kLocalKinds{kLocalGood, kLocalInvalid, kLocalNothingReceived,
                                  kLocalWrongLength};
constexpr FamilyKinds kRemoteKinds{kRemoteGood, kRemoteInvalid, kRemoteNothingReceived,
                                   kRemoteWrongLength};

}  // namespace

int takeReply(Communication_Protocol& d, const Protocol& head, const QByteArray* reply, int length,
              bool local) {
    const FamilyKinds& kinds = local ? kLocalKinds : kRemoteKinds;
    const int owner = head.var.ownerId;
    switch (judgeReply(head, reply, length)) {
        case Verdict::NothingReceived:
            return resultCode(kinds.nothingReceived, owner);
        case Verdict::WrongLength:
            return resultCode(kinds.wrongLength, owner);
        case Verdict::Invalid:
            return resultCode(kinds.invalid, owner);
        case Verdict::Store:
            if (local) {
                MutexLock lock(d.cacheMutex);
                storeReply(d.registerCache, head, receivedBytes(reply, length));
            }
            break;
        case Verdict::NothingToStore:
            // A reply with nothing to store (one to station 0) completes the word read of a
            // bit-in-word write in the remote family alone; the local one stores such a reply
            // nowhere, not even in the write frame.
            if (local || !isBitWordRead(head)) {
                break;
            }
            [[fallthrough]];
        case Verdict::CompletesWrite:
            if (Protocol* write = pendingBitWordWrite(d)) {
                completeBitWordWrite(*write, receivedBytes(reply, length));
            }
            // The word read of a remote bit-in-word write counts as a local reply's good one
            // unless one frame of its exchange was answered already.
            if (!local && !oneFrameAnswered(d)) {
                return resultCode(kLocalGood, owner);
            }
            break;
    }
    return resultCode(kinds.good, owner);
}

int DealDataOfLocalArea(QByteArray* reply, int length) {
    Communication_Protocol& d = PLC_driver;
    return requestQueued(d) ? takeReply(d, headRequest(d), reply, length, true)
                            : GetDriverReturnValue(kLocalInvalid);
}

int DealDataOfRemoteArea(QByteArray* reply, int length) {
    Communication_Protocol& d = PLC_driver;
    return requestQueued(d) ? takeReply(d, headRequest(d), reply, length, false)
                            : GetDriverReturnValue(kRemoteInvalid);
}
