// ComCommunication: the frame to send next.
//
// While a frame of the current exchange is queued it is offered again (after a bad reply, or as
// the second frame of a bit-in-word write). Otherwise one list entry is chosen and its frames
// are built: writes first, then once-reads, at most five of each in a row, then one cyclic
// read, which lets both bursts start again. The chosen entry stays at the front of its list
// until DataCom completes the exchange.
#include "codec/frames.h"
#include "driver/Communication_Protocol.h"
#include "driver/list_rotation.h"
#include "driver/mutex_lock.h"
#include "driver/polling.h"

namespace {

constexpr int kBurstLimit = 5;

bool switchedOff(const RW_VAR& entry) {
    return Ethernetcontains(entry.station) != 0;
}

// Entries of a switched-off station are dropped from the write and once-read lists, without a
// callback: the host switched the station off and expects nothing from it. A local write too
// long for any frame is not sent either: the host hears that it failed, and the line's state
// (retries, commFailed, the scan) is left alone, as nothing went wrong on the line.
bool startFromQueue(QList<RW_VAR>& list, int source, int& burst, const ComInfo& info,
                    void (*local)(const RW_VAR&), void (*remoteBuild)(const RW_VAR&)) {
    const bool remote = info.remoteMode != 0;
    while (!list.isEmpty()) {
        const RW_VAR& entry = list.first();
        if (switchedOff(entry)) {
            list.removeFirst();
            continue;
        }
        if (source == kSourceWriteList && !remote && !fitsLocalWriteFrame(entry)) {
            refuseFrontWrite(info);
            continue;
        }
        PLC_driver.currentSource = source;
        ++burst;
        (remote ? remoteBuild : local)(entry);
        return true;
    }
    return false;
}

// Cyclic reads of switched-off stations stay in the list and are rotated past.
void startCyclicRead(bool remote) {
    QList<RW_VAR>& list = PLC_driver.readList;
    for (int n = list.size(); n > 0; --n) {
        const RW_VAR& entry = list.first();
        if (!switchedOff(entry)) {
            PLC_driver.currentSource = kSourceReadList;
            PLC_driver.writeBurst = 0;
            PLC_driver.onceBurst = 0;
            (remote ? Remote_ReadVar : read_register)(entry);
            return;
        }
        rotateFirstToEnd(list);
    }
}

void startNextExchange(const ComInfo& info) {
    Communication_Protocol& d = PLC_driver;
    const bool remote = info.remoteMode != 0;
    // The emptiness checks come first: most exchanges are cyclic reads with nothing else queued.
    if (!d.writeList.isEmpty() && d.writeBurst < kBurstLimit &&
        startFromQueue(d.writeList, kSourceWriteList, d.writeBurst, info, write_register,
                       Remote_WriteVar)) {
        return;
    }
    if (!d.onceReadList.isEmpty() && d.onceBurst < kBurstLimit &&
        startFromQueue(d.onceReadList, kSourceOnceReadList, d.onceBurst, info, read_register,
                       Remote_ReadVar)) {
        return;
    }
    startCyclicRead(remote);
}

}  // namespace

Protocol* ComCommunication() {
    Communication_Protocol& d = PLC_driver;
    if (!d.requestQueue.isEmpty()) {
        return &d.requestQueue.first();
    }
    ComInfo* info = d.comInfo;
    if (info == nullptr) {
        return nullptr;  // no port record: nothing can be planned
    }
    MutexLock lock(d.listMutex);
    try {
        startNextExchange(*info);
    } catch (...) {
        // Out of memory while building: the entry stays where it was, nothing is sent.
        d.requestQueue.clear();
        info->framesInExchange = 0;
        info->framesAnswered = 0;
    }
    if (!d.requestQueue.isEmpty()) {
        return &d.requestQueue.first();
    }
    // scanDone is also reset by a rebuild on a host thread, so it changes under listMutex.
    d.writeBurst = 0;
    d.onceBurst = 0;
    info->scanDone = 1;
    return nullptr;
}
