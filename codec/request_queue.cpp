// The requests of one exchange, queued on requestQueue head first.
#include "codec/request_queue.h"

#include "codec/frames.h"
#include "driver/Communication_Protocol.h"

namespace {

constexpr int kNoReply = 0;
constexpr int kBroadcastStation = 0;

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

// The frame is made before the request is appended, and filling the request allocates nothing,
// so running out of memory leaves requestQueue as it was.
void queueRequest(const QByteArray& frame, int replyLength, int dataOffset, int dataLength,
                  const RW_VAR& var) {
    QList<Protocol>& queue = PLC_driver.requestQueue;
    queue.append(Protocol());
    Protocol& request = queue.last();
    request.frame = frame;
    fill(request, replyLength, dataOffset, dataLength, var);
}

void queueRequest(const unsigned char* frame, int length, int replyLength, int dataOffset,
                  int dataLength, const RW_VAR& var) {
    queueRequest(QByteArray(reinterpret_cast<const char*>(frame), length), replyLength, dataOffset,
                 dataLength, var);
}

void finishHeadRequest() {
    PLC_driver.requestQueue.removeFirst();
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
