// DataCom: the reply to the head request, and what follows from it.
//
// A good reply advances the exchange; the last one completes it: a write or once-read leaves its
// list and its host variable is reported once all its pieces are done, a cyclic read rotates to
// the end of readList. A bad reply is retried until the port's retry limit is exceeded; then the
// exchange is abandoned, the host hears of it through both callbacks, and the remaining pieces of
// the same host variable are purged.
//
// Callbacks run on the polling thread with listMutex held.
#include "codec/request_queue.h"
#include "driver/Communication_Protocol.h"
#include "driver/comm_failed.h"
#include "driver/list_rotation.h"
#include "driver/mutex_lock.h"
#include "driver/polling.h"

namespace {

constexpr int kStatusDone = 1;
constexpr int kStatusFailed = 2;
constexpr int kErrorFlagAbandoned = 1;

bool sameHostVariable(const RW_VAR& a, const RW_VAR& b) {
    return a.ownerId == b.ownerId && a.itemId == b.itemId;
}

void reportResult(const ComInfo& info, const RW_VAR& entry, int status) {
    if (PLC_driver.resultCallback != nullptr) {
        PLC_driver.resultCallback(info.hostTag, entry.ownerId, entry.itemId, status);
    }
}

// The host hears once per host variable that all its pieces are done, and of a failure at once.
void notify(const QList<RW_VAR>& list, const ComInfo& info, bool failed) {
    const RW_VAR& entry = list.first();
    bool morePieces = false;
    for (int i = 1; i < list.size() && !morePieces; ++i) {
        const RW_VAR& later = list.at(i);
        morePieces = sameHostVariable(later, entry) && later.port == info.portId;
    }
    if (!morePieces || failed) {
        reportResult(info, entry, failed ? kStatusFailed : kStatusDone);
    }
}

// Removes the remaining pieces of the abandoned host variable, and with per-variable stations
// only those of its station.
void purge(QList<RW_VAR>& list, const RW_VAR& abandoned, bool matchStation) {
    for (int i = 0; i < list.size();) {
        const RW_VAR& entry = list.at(i);
        if (sameHostVariable(entry, abandoned) &&
            (!matchStation || entry.station == abandoned.station)) {
            list.removeAt(i);
        } else {
            ++i;
        }
    }
}

}  // namespace

void refuseFrontWrite(const ComInfo& info) {
    QList<RW_VAR>& list = PLC_driver.writeList;
    const RW_VAR refused = list.first();
    reportResult(info, refused, kStatusFailed);
    purge(list, refused, info.perVarStation != 0);
}

namespace {

QList<RW_VAR>* sourceList(int source) {
    switch (source) {
        case kSourceReadList:
            return &PLC_driver.readList;
        case kSourceWriteList:
            return &PLC_driver.writeList;
        case kSourceOnceReadList:
            return &PLC_driver.onceReadList;
        default:
            return nullptr;
    }
}

// Completion of the exchange for the entry it served, the first of its list. listMutex is held.
void complete(const ComInfo& info, bool local, bool failed) {
    Communication_Protocol& d = PLC_driver;
    QList<RW_VAR>* list = sourceList(d.currentSource);
    if (list == nullptr || list->isEmpty()) {
        return;
    }
    if (d.currentSource == kSourceReadList) {
        passRetValue(list->first(), d.retVar);
        rotateFirstToEnd(*list);
        return;
    }
    // Once-reads are reported on the local path only.
    if (d.currentSource == kSourceWriteList || local) {
        notify(*list, info, failed);
    }
    passRetValue(list->first(), d.retVar);
    list->removeFirst();
}

void reportAbandoned(const ComInfo& info) {
    Communication_Protocol& d = PLC_driver;
    if (d.errorCallback != nullptr) {
        QList<RW_VAR> nothing;
        d.errorCallback(&nothing, d.retVar.ownerId, kErrorFlagAbandoned);
    }
    if (d.currentSource == kSourceWriteList || d.currentSource == kSourceOnceReadList) {
        purge(*sourceList(d.currentSource), d.retVar, info.perVarStation != 0);
    }
}

RW_VAR* finish(int code) {
    MutexLock lock(PLC_driver.listMutex);
    PLC_driver.retVar.result = code;
    return &PLC_driver.retVar;
}

// Counts local exchanges completed since the scan started; once more than readList holds have
// completed, every cyclic read has had its turn.
void countScan(ComInfo& info) {
    Communication_Protocol& d = PLC_driver;
    if (info.scanDone == 0 && ++d.scanCount > d.readList.size()) {
        d.scanCount = 0;
        info.scanDone = 1;
    }
}

}  // namespace

RW_VAR* DataCom(QByteArray* reply, int length) {
    Communication_Protocol& d = PLC_driver;
    d.retVar.result = kResultLocalGood;
    ComInfo* info = d.comInfo;
    if (d.requestQueue.isEmpty() || info == nullptr) {
        return &d.retVar;
    }

    bool local = d.requestQueue.first().var.port == info->portId;
    int code = kResultJudgingFailed;
    try {
        code = local ? DealDataOfLocalArea(reply, length) : DealDataOfRemoteArea(reply, length);
    } catch (...) {
        local = true;  // judged as a bad local reply
    }

    const bool good = code == kResultLocalGood || code == kResultRemoteGood;
    if (good) {
        setCommFailed(false);
        ++info->framesAnswered;
        finishHeadRequest();
        if (info->framesAnswered < info->framesInExchange) {
            return finish(code);  // the next frame of the exchange is the new head
        }
    } else {
        ++info->retryCount;
        if (info->retryCount <= info->retryLimit) {
            return finish(kResultRetryPending);  // the same frame is offered again
        }
        setCommFailed(true);
        info->retryCount = 0;
        d.requestQueue.clear();
    }

    // The scan counters are also reset by a rebuild on a host thread, so they change under
    // listMutex.
    MutexLock lock(d.listMutex);
    if (!good) {
        d.scanCount = 0;
        info->scanDone = 0;
    } else if (local) {
        countScan(*info);
    }
    complete(*info, local, !good);
    if (!good) {
        reportAbandoned(*info);
    }
    d.retVar.result = code;
    return &d.retVar;
}
