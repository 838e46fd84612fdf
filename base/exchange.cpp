// The exchange in progress: its queued requests, counters, source list and bursts.
#include "base/exchange.h"

#include "base/mutex_lock.h"

namespace {

void countFrames(ComInfo* info, int frames) {
    if (info != nullptr) {
        info->framesInExchange = frames;
        info->framesAnswered = 0;
    }
}

}  // namespace

void startExchange(Communication_Protocol& d, const Protocol& request) {
    d.requestQueue.append(request);
    countFrames(d.comInfo, 1);
}

// Should the second append fail, the first frame is taken back: an exchange is queued whole.
void startExchange(Communication_Protocol& d, const Protocol& first, const Protocol& second) {
    d.requestQueue.append(first);
    try {
        d.requestQueue.append(second);
    } catch (...) {
        d.requestQueue.removeLast();
        throw;
    }
    countFrames(d.comInfo, 2);
}

void dropExchange(Communication_Protocol& d) {
    d.requestQueue.clear();
    countFrames(d.comInfo, 0);
}

// The scheduler kept the write at the front of writeList when it started the exchange; a host
// thread may be appending to the list meanwhile.
Protocol* pendingBitWordWrite(Communication_Protocol& d) {
    if (d.requestQueue.size() < 2) {
        return nullptr;
    }
    {
        MutexLock lock(d.listMutex);
        if (d.writeList.isEmpty()) {
            return nullptr;
        }
    }
    return &d.requestQueue[1];
}

bool oneFrameAnswered(const Communication_Protocol& d) {
    return d.comInfo != nullptr && d.comInfo->framesAnswered == 1;
}

bool advanceExchange(Communication_Protocol& d) {
    ComInfo& info = *d.comInfo;
    ++info.framesAnswered;
    d.requestQueue.removeFirst();
    return info.framesAnswered < info.framesInExchange;
}

bool retryExchange(Communication_Protocol& d) {
    ComInfo& info = *d.comInfo;
    ++info.retryCount;
    if (info.retryCount <= info.retryLimit) {
        return true;
    }
    info.retryCount = 0;
    d.requestQueue.clear();
    return false;
}

bool burstLeft(const Communication_Protocol& d, int source) {
    return (source == kSourceWriteList ? d.writeBurst : d.onceBurst) < kBurstLimit;
}

void noteSource(Communication_Protocol& d, int source) {
    d.currentSource = source;
    if (source == kSourceWriteList) {
        ++d.writeBurst;
    } else if (source == kSourceOnceReadList) {
        ++d.onceBurst;
    } else {
        resetBursts(d);
    }
}

void resetBursts(Communication_Protocol& d) {
    d.writeBurst = 0;
    d.onceBurst = 0;
}

QList<RW_VAR>* sourceList(Communication_Protocol& d) {
    switch (d.currentSource) {
        case kSourceReadList:
            return &d.readList;
        case kSourceWriteList:
            return &d.writeList;
        case kSourceOnceReadList:
            return &d.onceReadList;
        default:
            return nullptr;
    }
}
