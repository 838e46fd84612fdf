// Storing read replies into the register image, and completing bit-in-word writes.
//
// Word areas arrive high byte first; bit areas as 16-bit groups, bits 0..7 first. The cache
// itself holds plain 16-bit values.
#include "image/Func_DealData.h"

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/exchange.h"
#include "codec/bit_word_write.h"
#include "image/cache_key.h"

// The walk stops when the next word would start at or beyond the end of the span; a word whose
// second byte would lie beyond the reply's bytes is not read.
void storeReply(QHash<quint64, quint16>& cache, const Protocol& request, ReplyBytes reply) {
    if (request.dataOffset < 0 || request.dataLength <= 0) {
        return;
    }
    const int area = imageArea(request.var.area);
    const qint64 spanEnd = static_cast<qint64>(request.dataOffset) + request.dataLength;
    const qint64 startsBefore = qMin<qint64>(spanEnd, reply.size - 1);
    const unsigned char* bytes = reply.data;
    quint64 key = cacheKey(cacheKeyBase(request.var.station, area), request.var.address);
    qint64 at = request.dataOffset;
    if (static_cast<unsigned int>(area) <= static_cast<unsigned int>(korvan::kAreaLastBit)) {
        for (; at < startsBefore; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] | bytes[at + 1] << 8));
        }
    } else {
        for (; at < startsBefore; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] << 8 | bytes[at + 1]));
        }
    }
}

void SaveToLocalDataErea(QByteArray* reply) {
    Communication_Protocol& d = PLC_driver;
    if (reply == nullptr || !requestQueued(d)) {
        return;
    }
    const Protocol& head = headRequest(d);
    if (isBitWordRead(head)) {
        SpecialRegisterSave(reply);
    } else {
        storeReply(d.registerCache, head, replyBytes(*reply));
    }
}

void SpecialRegisterSave(const QByteArray* reply) {
    Protocol* write = reply != nullptr ? pendingBitWordWrite(PLC_driver) : nullptr;
    if (write != nullptr) {
        completeBitWordWrite(*write, replyBytes(*reply));
    }
}
