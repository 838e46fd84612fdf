#include "codec/request_queue.h"

#include "codec/frames.h"
#include "driver/Communication_Protocol.h"

namespace {

constexpr int kNoReply = 0;
constexpr int kBroadcastStation = 0;

}  // namespace

void queueRequest(const QByteArray& frame, int replyLength, int dataOffset, int dataLength,
                  const RW_VAR& var) {
    Protocol request;
    request.frame = frame;
    request.sendLength = frame.size();
    request.replyLength = replyLength;
    request.dataOffset = dataOffset;
    request.dataLength = dataLength;
    request.var = var;
    PLC_driver.requestQueue.append(request);
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
