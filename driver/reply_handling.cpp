// DataCom: the reply to the head request, and what follows from it.
//
// A good reply advances the exchange; the last one completes it: a write or once-read leaves its
// list and its host variable is reported once all its pieces are done, a cyclic read rotates to
// the end of readList. A bad reply is retried until the port's retry limit is exceeded; then the
// exchange is abandoned, the host hears of it through both callbacks, and the remaining pieces of
// the same host variable are purged.
//
// Callbacks run on the polling thread with listMutex held.
#include "driver/reply_handling.h"

#include "base/comm_failed.h"
#include "base/exchange.h"
#include "base/mutex_lock.h"
#include "driver/Communication_Protocol.h"
#include "driver/list_rotation.h"
#include "driver/reply_outcome.h"

namespace {

bool sameHostVariable(const RW_VAR& a, const RW_VAR& b) {
    return a.ownerId == b.ownerId && a.itemId == b.itemId;
}

void reportResult(const Communication_Protocol& d, const ComInfo& info, const RW_VAR& entry,
                  int status) {
    if (d.resultCallback != nullptr) {
        d.resultCallback(info.hostTag, entry.ownerId, entry.itemId, status);
    }
}

// The host hears once per host variable that all its pieces are done, and of a failure at once.
void notify(const Communication_Protocol& d, const QList<RW_VAR>& list, const ComInfo& info,
            bool failed) {
    const RW_VAR& entry = list.first();
    bool morePieces = false;
    for (int i = 1; i < list.size() && !morePieces; ++i) {
        const RW_VAR& later = list.at(i);
        morePieces = sameHostVariable(later, entry) && later.port == info.portId;
    }
    if (!morePieces || failed) {
        reportResult(d, info, entry, failed ? korvan::kStatusFailed : korvan::kStatusDone);
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

// Completion of the exchange for the entry it served, the first of its list. listMutex is held.
void complete(Communication_Protocol& d, const ComInfo& info, bool local, bool failed) {
    QList<RW_VAR>* list = sourceList(d);
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
        notify(d, *list, info, failed);
    }
    passRetValue(list->first(), d.retVar);
    list->removeFirst();
}

void reportAbandoned(Communication_Protocol& d, const ComInfo& info) {
    if (d.errorCallback != nullptr) {
        QList<RW_VAR> nothing;
        d.errorCallback(&nothing, d.retVar.ownerId, korvan::kErrorFlag);
    }
    if (d.currentSource == kSourceWriteList || d.currentSource == kSourceOnceReadList) {
        purge(*sourceList(d), d.retVar, info.perVarStation != 0);
    }
}

// The result of a reply that leaves the lists as they are; retVar changes under listMutex, as
// it does in a completion.
RW_VAR* finish(Communication_Protocol& d, int code) {
    MutexLock lock(d.listMutex);
    d.retVar.result = code;
    return &d.retVar;
}

// Counts local exchanges completed since the scan started; once more than readList holds have
// completed, every cyclic read has had its turn.
void countScan(Communication_Protocol& d, ComInfo& info) {
    if (info.scanDone == 0 && ++d.scanCount > d.readList.size()) {
        d.scanCount = 0;
        info.scanDone = 1;
    }
}

// A good reply: the exchange goes on with its next frame, or is complete.
RW_VAR* advance(Communication_Protocol& d, ComInfo& info, int code, bool local) {
    setCommFailed(d, false);
    if (advanceExchange(d)) {
        return finish(d, code);  // the next frame of the exchange is the new head
    }
    // The scan counters are also reset by a rebuild on a host thread, so they change under
    // listMutex.
    MutexLock lock(d.listMutex);
    if (local) {
        countScan(d, info);
    }
    complete(d, info, local, false);
    d.retVar.result = code;
    return &d.retVar;
}

// A bad reply: the same frame is offered again while retries last; then the exchange is
// abandoned, and the host hears of it through both callbacks.
RW_VAR* retryOrAbandon(Communication_Protocol& d, ComInfo& info, int code, bool local) {
    if (retryExchange(d)) {
        return finish(d, korvan::kResultRetry);
    }
    setCommFailed(d, true);
    MutexLock lock(d.listMutex);
    d.scanCount = 0;
    info.scanDone = 0;
    complete(d, info, local, true);
    reportAbandoned(d, info);
    d.retVar.result = code;
    return &d.retVar;
}

}  // namespace

void refuseFrontWrite(Communication_Protocol& d, const ComInfo& info) {
    QList<RW_VAR>& list = d.writeList;
    const RW_VAR refused = list.first();
    reportResult(d, info, refused, korvan::kStatusFailed);
    purge(list, refused, info.perVarStation != 0);
}

RW_VAR* DataCom(QByteArray* reply, int length) {
    Communication_Protocol& d = PLC_driver;
    d.retVar.result = korvan::kResultGood;
    ComInfo* info = d.comInfo;
    if (!requestQueued(d) || info == nullptr) {
        return &d.retVar;
    }

    const Protocol& head = headRequest(d);
    bool local = head.var.port == info->portId;
    int code = korvan::kResultJudgingFailed;
    try {
        code = takeReply(d, head, reply, length, local);
    } catch (...) {
        local = true;  // judged as a bad local reply
    }
    const bool good = code == korvan::kResultGood || code == korvan::kResultRemoteGood;
    return good ? advance(d, *info, code, local) : retryOrAbandon(d, *info, code, local);
}
