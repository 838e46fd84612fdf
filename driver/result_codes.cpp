// Result codes. A failure code tells the host the cause (validation, nothing received, wrong
// length), the frame family (local 11..82, remote 111..182) and, for owners 0..11, the owner:
// base + ownerId + 1. Any other owner shares base + 1.
#include "base/Communication_Protocol.h"
#include "base/driver_functions.h"
#include "driver/polling.h"

namespace {

constexpr int kHighestOffsetOwner = 11;
constexpr int kUnknownKindResult = 200;
// The owner of the head request when nothing is queued: one without an offset of its own.
constexpr int kNoOwner = -1;

// Failure bases by verdict kind; good kinds carry no offset.
constexpr int kLocalInvalidBase = 10;
constexpr int kLocalNothingBase = 40;
constexpr int kLocalLengthBase = 70;
constexpr int kRemoteInvalidBase = 110;
constexpr int kRemoteNothingBase = 140;
constexpr int kRemoteLengthBase = 170;

int withOwner(int base, int ownerId) {
    return ownerId >= 0 && ownerId <= kHighestOffsetOwner ? base + ownerId + 1 : base + 1;
}

int headOwner() {
    const QList<Protocol>& queue = PLC_driver.requestQueue;
    return queue.isEmpty() ? kNoOwner : queue.first().var.ownerId;
}

}  // namespace

int resultCode(int kind, int ownerId) {
    switch (kind) {
        case kLocalGood:
            return kResultLocalGood;
        case kLocalInvalid:
            return withOwner(kLocalInvalidBase, ownerId);
        case kLocalNothingReceived:
            return withOwner(kLocalNothingBase, ownerId);
        case kLocalWrongLength:
            return withOwner(kLocalLengthBase, ownerId);
        case kRemoteGood:
            return kResultRemoteGood;
        case kRemoteInvalid:
            return withOwner(kRemoteInvalidBase, ownerId);
        case kRemoteNothingReceived:
            return withOwner(kRemoteNothingBase, ownerId);
        case kRemoteWrongLength:
            return withOwner(kRemoteLengthBase, ownerId);
        default:
            return kUnknownKindResult;
    }
}

int SwitchErrorReturn(int base) {
    return withOwner(base, headOwner());
}

int GetDriverReturnValue(int kind) {
    return resultCode(kind, headOwner());
}
