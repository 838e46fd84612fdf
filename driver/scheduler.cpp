// ComCommunication: the frame to send next.
//
// While a frame of the current exchange is queued it is offered again (after a bad reply, or as
// the second frame of a bit-in-word write). Otherwise one list entry is chosen and its exchange
// started: writes first, then once-reads, at most five of each in a row, then one cyclic read,
// which lets both bursts start again. The chosen entry stays at the front of its list until
// DataCom completes the exchange.
#include "base/Communication_Protocol.h"
#include "base/exchange.h"
#include "base/mutex_lock.h"
#include "codec/Func_Read.h"
#include "codec/Func_Remote.h"
#include "codec/Func_Write.h"
#include "driver/list_rotation.h"
#include "driver/reply_handling.h"

namespace {

using Start = void (*)(const RW_VAR&);

bool switchedOff(const RW_VAR& entry) {
    return Ethernetcontains(entry.station) != 0;
}

// Entries of a switched-off station are dropped from the write and once-read lists, without a
// callback: the host switched the station off and expects nothing from it. A local write too
// long for any frame is not sent either: the host hears that it failed, and the line's state
// (retries, commFailed, the scan) is left alone, as nothing went wrong on the line.
bool startFromQueue(Communication_Protocol& d, QList<RW_VAR>& list, int source, const ComInfo& info,
                    Start local, Start remote) {
    const bool remoteFamily = info.remoteMode != 0;
    while (!list.isEmpty()) {
        const RW_VAR& entry = list.first();
        if (switchedOff(entry)) {
            list.removeFirst();
            continue;
        }
        if (source == kSourceWriteList && !remoteFamily && !fitsLocalWriteFrame(entry)) {
            refuseFrontWrite(d, info);
            continue;
        }
        noteSource(d, source);
        (remoteFamily ? remote : local)(entry);
        return true;
    }
    return false;
}

// Cyclic reads of switched-off stations stay in the list and are rotated past.
void startCyclicRead(Communication_Protocol& d, const ComInfo& info) {
    QList<RW_VAR>& list = d.readList;
    for (int n = list.size(); n > 0; --n) {
        const RW_VAR& entry = list.first();
        if (!switchedOff(entry)) {
            noteSource(d, kSourceReadList);
            (info.remoteMode != 0 ? Remote_ReadVar : read_register)(entry);
            return;
        }
        rotateFirstToEnd(list);
    }
}

void startNextExchange(Communication_Protocol& d, const ComInfo& info) {
    // The emptiness checks come first: most exchanges are cyclic reads with nothing else queued.
    if (!d.writeList.isEmpty() && burstLeft(d, kSourceWriteList) &&
        startFromQueue(d, d.writeList, kSourceWriteList, info, write_register, Remote_WriteVar)) {
        return;
    }
    if (!d.onceReadList.isEmpty() && burstLeft(d, kSourceOnceReadList) &&
        startFromQueue(d, d.onceReadList, kSourceOnceReadList, info, read_register,
                       Remote_ReadVar)) {
        return;
    }
    startCyclicRead(d, info);
}

}  // namespace

Protocol* ComCommunication() {
    Communication_Protocol& d = PLC_driver;
    if (requestQueued(d)) {
        return &headRequest(d);
    }
    ComInfo* info = d.comInfo;
    if (info == nullptr) {
        return nullptr;  // no port record: nothing can be planned
    }
    MutexLock lock(d.listMutex);
    try {
        startNextExchange(d, *info);
    } catch (...) {
        // Out of memory while building: the entry stays where it was, nothing is sent.
        dropExchange(d);
    }
    if (requestQueued(d)) {
        return &headRequest(d);
    }
    // scanDone is also reset by a rebuild on a host thread, so it changes under listMutex.
    resetBursts(d);
    info->scanDone = 1;
    return nullptr;
}
