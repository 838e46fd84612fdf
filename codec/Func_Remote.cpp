// Remote frames. They name the variable in the driver's own terms: area index, full 32-bit
// address, the low bytes of ownerId, direction and port, and mark and extra.
//
//   length | ownerId | direction | port | station | area (16) | address (32) | count (16)
//   | mark (32) | extra (32) | payload | checksum
//
// The length byte counts the whole frame, itself and the checksum included, modulo 256; the
// checksum is the low byte of the sum of every byte before it. Write payloads go out as held.
// Replies have the local format. These frames are built in their own byte array, not frameBuf.
// This module also starts the exchanges of the remote family.
#include "codec/Func_Remote.h"

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/exchange.h"
#include "base/wrapping.h"
#include "codec/byte_order.h"
#include "codec/frames.h"
#include "image/Func_GetOrSetData.h"

namespace {

constexpr int kRemoteHeaderLength = 21;
constexpr int kChecksumLength = 1;
// CalSUM takes a 16-bit length; longer frames are summed in spans.
constexpr int kLongestSumSpan = 0xFFFF;

QByteArray remoteHeader(const RW_VAR& var) {
    unsigned char h[kRemoteHeaderLength] = {};  // byte 0, the length, is set once it is known
    h[1] = static_cast<unsigned char>(var.ownerId);
    h[2] = static_cast<unsigned char>(var.direction);
    h[3] = static_cast<unsigned char>(var.port);
    h[4] = static_cast<unsigned char>(var.station);
    putBigEndian(h + 5, static_cast<quint32>(var.area), 2);
    putBigEndian(h + 7, static_cast<quint32>(var.address), 4);
    putBigEndian(h + 11, static_cast<quint32>(var.count), 2);
    putBigEndian(h + 13, static_cast<quint32>(var.mark), 4);
    putBigEndian(h + 17, static_cast<quint32>(var.extra), 4);
    return QByteArray(reinterpret_cast<const char*>(h), kRemoteHeaderLength);
}

unsigned char byteSum(const QByteArray& bytes) {
    auto* data = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.constData()));
    unsigned int sum = 0;
    for (int at = 0; at < bytes.size(); at += kLongestSumSpan) {
        const int span = qMin(kLongestSumSpan, bytes.size() - at);
        sum += CalSUM(data + at, static_cast<unsigned short>(span));
    }
    return static_cast<unsigned char>(sum);
}

void closeRemoteFrame(QByteArray& frame) {
    frame[0] = static_cast<char>(wrapAdd(frame.size(), kChecksumLength));
    frame.append(static_cast<char>(byteSum(frame)));
}

}  // namespace

Protocol remoteReadRequest(const RW_VAR& var) {
    QByteArray frame = remoteHeader(var);
    closeRemoteFrame(frame);
    const int dataLength = wrapMul(var.count, kBytesPerWord);
    return makeRequest(frame, wrapAdd(dataLength, kReplyOverhead), kReplyHeaderLength, dataLength,
                       var);
}

Protocol remoteWriteRequest(const RW_VAR& var) {
    QByteArray frame = remoteHeader(var);
    frame.append(var.data);
    closeRemoteFrame(frame);
    return makeRequest(frame, writeReplyLength(var.station), 0, 0, var);
}

void Remote_ReadVar(const RW_VAR& var) {
    const Protocol request = remoteReadRequest(var);
    startExchange(PLC_driver, request);
}

// A remote write shows in the image as soon as it is on its way, whatever the link's state.
void Remote_WriteVar(const RW_VAR& var) {
    const Protocol request = remoteWriteRequest(var);
    startExchange(PLC_driver, request);
    write_data_to_local(var);
}
