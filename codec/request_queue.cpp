// The request of a finished one-frame exchange is not freed but kept aside, in a list of its own,
// and the next request is written over it. Most exchanges are cyclic reads of one frame, which
// then allocate neither a queue node nor a frame: before, those two allocations and their
// release were a quarter of a short read's instructions. Swapping whole lists keeps
// requestQueue exactly as it would be otherwise at every point the host or a test can see it.
#include "codec/request_queue.h"

#include <cstring>

#include "codec/frames.h"
#include "driver/Communication_Protocol.h"

namespace {

constexpr int kNoReply = 0;
constexpr int kBroadcastStation = 0;

// Empty, or the request of the last exchange finished by finishHeadRequest. Touched only by
// the polling thread, like requestQueue.
QList<Protocol> spareRequest;

bool spareWillBeTaken() {
    return PLC_driver.requestQueue.isEmpty() && !spareRequest.isEmpty();
}

// A new request at the tail of requestQueue, holding whatever the spare one held. Either it is
// there or, when the append runs out of memory, nothing changed.
Protocol& tailRequest() {
    QList<Protocol>& queue = PLC_driver.requestQueue;
    if (spareWillBeTaken()) {
        queue.swap(spareRequest);
    } else {
        queue.append(Protocol());
    }
    return queue.last();
}

void fill(Protocol& request, int replyLength, int dataOffset, int dataLength, const RW_VAR& var) {
    request.sendLength = request.frame.size();
    request.replyLength = replyLength;
    request.dataOffset = dataOffset;
    request.dataLength = dataLength;
    request.reserved[0] = request.reserved[1] = request.reserved[2] = 0;
    copyRecordFields(var, request.var);
    assignShared(request.var.data, var.data);
}

}  // namespace

// Whatever may run out of memory comes before the request is taken, so that a failure leaves
// requestQueue as it was; filling it then allocates nothing.
void queueRequest(const QByteArray& frame, int replyLength, int dataOffset, int dataLength,
                  const RW_VAR& var) {
    Protocol& request = tailRequest();
    request.frame = frame;
    fill(request, replyLength, dataOffset, dataLength, var);
}

void queueRequest(const unsigned char* frame, int length, int replyLength, int dataOffset,
                  int dataLength, const RW_VAR& var) {
    // The spare request's frame is written over when nobody else holds it (the host let go of
    // it) and it has this length, as the frames of a cyclic read always do.
    const QByteArray* spareFrame = spareWillBeTaken() ? &spareRequest.at(0).frame : nullptr;
    const bool inPlace =
        spareFrame != nullptr && spareFrame->isDetached() && spareFrame->size() == length;
    QByteArray fresh;
    if (!inPlace) {
        fresh = QByteArray(reinterpret_cast<const char*>(frame), length);
    }
    Protocol& request = tailRequest();
    if (inPlace) {
        memcpy(request.frame.data(), frame, static_cast<size_t>(length));
    } else {
        request.frame = fresh;
    }
    fill(request, replyLength, dataOffset, dataLength, var);
}

void finishHeadRequest() {
    QList<Protocol>& queue = PLC_driver.requestQueue;
    if (queue.size() == 1 && spareRequest.isEmpty()) {
        queue.swap(spareRequest);
    } else {
        queue.removeFirst();
    }
}

int writeReplyLength(const RW_VAR& var) {
    return var.station == kBroadcastStation ? kNoReply : kWriteReplyLength;
}

void beginExchange(int frames) {
    if (PLC_driver.comInfo != nullptr) {
        PLC_driver.comInfo->framesInExchange = frames;
        PLC_driver.comInfo->framesAnswered = 0;
    }
}
