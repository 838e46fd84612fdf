// Result codes. A failure code tells the host the cause (validation, nothing received, wrong
// length), the frame family (local 11..82, remote 111..182) and, for owners 0..11, the owner:
// base + ownerId + 1. Any other owner shares base + 1.
#include "driver/result_codes.h"

#include "base/exchange.h"

namespace {

constexpr int kUnknownKindResult = 200;
// The owner of the head request when nothing is queued: one without an offset of its own.
constexpr int kNoOwner = -1;

int headOwner(Communication_Protocol& d) {
    return requestQueued(d) ? headRequest(d).var.ownerId : kNoOwner;
}

}  // namespace

int resultCode(int kind, int ownerId) {
    switch (kind) {
        case kLocalGood:
            return korvan::kResultGood;
        case kLocalInvalid:
            return korvan::failureCode(korvan::kFailLocalInvalid, ownerId);
        case kLocalNothingReceived:
            return korvan::failureCode(korvan::kFailLocalSilent, ownerId);
        case kLocalWrongLength:
            return korvan::failureCode(korvan::kFailLocalLength, ownerId);
        case kRemoteGood:
            return korvan::kResultRemoteGood;
        case kRemoteInvalid:
            return korvan::failureCode(korvan::kFailRemoteInvalid, ownerId);
        case kRemoteNothingReceived:
            return korvan::failureCode(korvan::kFailRemoteSilent, ownerId);
        case kRemoteWrongLength:
            return korvan::failureCode(korvan::kFailRemoteLength, ownerId);
        default:
            return kUnknownKindResult;
    }
}

int SwitchErrorReturn(int base) {
    return korvan::failureCode(base, headOwner(PLC_driver));
}

int GetDriverReturnValue(int kind) {
    return resultCode(kind, headOwner(PLC_driver));
}
