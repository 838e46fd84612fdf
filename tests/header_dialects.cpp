// The public header as a host's compiler sees it: this file is compiled, and not run, in every
// dialect a host may use (C++98 against Qt 4; C++11, 14 and 17 against Qt 5), warnings as errors.
// It uses each of the header's names, so that every one of them is valid in each dialect.
#include "korvan_qa_qb_series_port.h"

int korvanHeaderDialectUse();

int korvanHeaderDialectUse() {
    RW_VAR var;
    Protocol request;
    ComInfo port;
    HOSTVAR tag;
    var.direction = korvan::kDirectionRead + korvan::kDirectionWrite;
    var.mark = korvan::kMarkBitOfWordRead;
    request.replyLength = korvan::kReplyAnyLength + korvan::kReplyNone;
    port.writeMode = korvan::kWriteToPlc + korvan::kWriteImageOnly;
    port.maxUnits = korvan::kMaxUnitsCap;
    tag.area = korvan::kAreaFirstBit + korvan::kAreaLastOctal + korvan::kAreaLastBit +
               korvan::kAreaFirstWord + korvan::kAreaLastWord + korvan::kAreaBitOfWord;
    const int results = korvan::kResultRetry + korvan::kResultGood + korvan::kResultRemoteGood +
                        korvan::kResultJudgingFailed;
    const int failures = korvan::failureCode(korvan::kFailLocalInvalid, 0) +
                         korvan::failureCode(korvan::kFailLocalSilent, 1) +
                         korvan::failureCode(korvan::kFailLocalLength, korvan::kFailOwners) +
                         korvan::failureBase(korvan::kFailRemoteInvalid + 1) +
                         korvan::failureBase(korvan::kFailRemoteSilent + 1) +
                         korvan::failureBase(korvan::kFailRemoteLength + 1);
    const int others = korvan::kStatusDone + korvan::kStatusFailed + korvan::kErrorFlag +
                       korvan::kScanDone + korvan::kStationOff + korvan::kStationOn +
                       korvan::kAllStations + korvan::kOnceReadPlanned +
                       korvan::kOnceReadVerbatim + korvan::kListCapacity +
                       korvan::kAddressInvalid + korvan::kAddressNotParsed + korvan::kReadDone +
                       korvan::kFinished + korvan::kCyclicOwnerId + korvan::kCyclicItemId;
    return var.direction + var.mark + request.replyLength + port.writeMode + port.maxUnits +
           tag.area + results + failures + others;
}
