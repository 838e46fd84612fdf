// Result codes. A failure code tells the host the cause (validation, nothing received, wrong
// length), the frame family (local 11..82, remote 111..182) and, for owners 0..11, the owner:
// base + ownerId + 1. Any other owner shares base + 1.
#include "driver/Communication_Protocol.h"
#include "driver/polling.h"

namespace {

constexpr int kHighestOffsetOwner = 11;
constexpr int kUnknownKindResult = 200;

// Failure bases by verdict kind; good kinds carry no offset.
constexpr int kLocalInvalidBase = 10;
constexpr int kLocalNothingBase = 40;
constexpr int kLocalLengthBase = 70;
constexpr int kRemoteInvalidBase = 110;
constexpr int kRemoteNothingBase = 140;
constexpr int kRemoteLengthBase = 170;

}  // namespace

int SwitchErrorReturn(int base) {
    const QList<Protocol>& queue = PLC_driver.requestQueue;
    const int owner = queue.isEmpty() ? -1 : queue.first().var.ownerId;
    return owner >= 0 && owner <= kHighestOffsetOwner ? base + owner + 1 : base + 1;
}

int GetDriverReturnValue(int kind) {
    switch (kind) {
        case kLocalGood:
            return kResultLocalGood;
        case kLocalInvalid:
            return SwitchErrorReturn(kLocalInvalidBase);
        case kLocalNothingReceived:
            return SwitchErrorReturn(kLocalNothingBase);
        case kLocalWrongLength:
            return SwitchErrorReturn(kLocalLengthBase);
        case kRemoteGood:
            return kResultRemoteGood;
        case kRemoteInvalid:
            return SwitchErrorReturn(kRemoteInvalidBase);
        case kRemoteNothingReceived:
            return SwitchErrorReturn(kRemoteNothingBase);
        case kRemoteWrongLength:
            return SwitchErrorReturn(kRemoteLengthBase);
        default:
            return kUnknownKindResult;
    }
}
