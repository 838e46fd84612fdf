// The host's configuration calls. They take no lock: the host makes them before polling starts
// or while the polling thread is idle.
#include "driver/Communication_Protocol.h"

void SetComInfo(ComInfo* info) {
    PLC_driver.comInfo = info;
    if (info == nullptr) {
        return;
    }
    info->clearedWord13 = 0;
    info->clearedWord10 = 0;
    if (info->maxUnits > kMaxUnitsCap) {
        info->maxUnits = kMaxUnitsCap;
    }
}

void RegistCallBackFuncIntf(ResultCallback onResult, ErrorCallback onError) {
    PLC_driver.resultCallback = onResult;
    PLC_driver.errorCallback = onError;
}

void FlashLocalRegister(void* localBits, void* localWords, void* third) {
    LB = localBits;
    LW = localWords;
    RWI = third;
}
