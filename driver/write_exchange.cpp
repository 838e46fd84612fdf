// Starting a write exchange: its frames queued, and the value shown in the register image.
//
// The image shows a written value once it is on its way, before the PLC confirms it. Whether it
// does is decided here, where the exchange starts, rather than in the frame builders, which only
// make frames: a local write is mirrored unless the link is down (SetRegisterData mirrors then,
// at once) and never when its record is too long for any frame (it is not sent); a remote write
// is mirrored always.
#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/comm_failed.h"
#include "base/driver_functions.h"
#include "base/exchange.h"
#include "codec/frames.h"

void write_register(const RW_VAR& var) {
    if (var.area == korvan::kAreaBitOfWord) {
        write_analog_bit(var);
    } else {
        write_analog(var);
    }
    if (!isCommFailed(PLC_driver) && fitsLocalWriteFrame(var)) {
        write_data_to_local(var);
    }
}

void Remote_WriteVar(const RW_VAR& var) {
    const Protocol request = remoteWriteRequest(var);
    startExchange(PLC_driver, request);
    write_data_to_local(var);
}
