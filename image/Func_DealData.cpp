// Storing read replies into the register image, and completing bit-of-word writes.
//
// Word areas arrive high byte first; bit areas as 16-bit groups, bits 0..7 first. The cache
// itself holds plain 16-bit values.
#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "base/driver_functions.h"
#include "base/mutex_lock.h"
#include "codec/bit_word_write.h"
#include "image/cache_key.h"
#include "image/register_image.h"

void storeReply(QHash<quint64, quint16>& cache, const Protocol& request, const QByteArray& reply) {
    if (request.dataOffset < 0 || request.dataLength <= 0) {
        return;
    }
    const int area = imageArea(request.var.area);
    // Reply handling has matched the reply's length to the request; a shorter reply would still
    // store only the whole words it holds.
    const qint64 end = qMin(static_cast<qint64>(request.dataOffset) + request.dataLength,
                            static_cast<qint64>(reply.size()));
    const auto* bytes = reinterpret_cast<const unsigned char*>(reply.constData());
    quint64 key = cacheKey(cacheKeyBase(request.var.station, area), request.var.address);
    qint64 at = request.dataOffset;
    if (static_cast<unsigned int>(area) <= static_cast<unsigned int>(korvan::kAreaLastBit)) {
        for (; at + kBytesPerWord <= end; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] | bytes[at + 1] << 8));
        }
    } else {
        for (; at + kBytesPerWord <= end; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] << 8 | bytes[at + 1]));
        }
    }
}

// The bit and its value come from the write request's own copy of the record, made while the
// scheduler held listMutex: the front of writeList is the same record. Only whether writeList
// still holds it is asked of the list, under listMutex, as a host thread may be appending.
void completePendingBitWordWrite(Communication_Protocol& d, const QByteArray& reply) {
    if (d.requestQueue.size() < 2) {
        return;
    }
    {
        MutexLock lock(d.listMutex);
        if (d.writeList.isEmpty()) {
            return;
        }
    }
    completeBitWordWrite(d.requestQueue[1], reply);
}

void SaveToLocalDataErea(QByteArray* reply) {
    Communication_Protocol& d = PLC_driver;
    if (reply == nullptr || d.requestQueue.isEmpty()) {
        return;
    }
    const Protocol& request = d.requestQueue.first();
    if (request.var.mark == korvan::kMarkBitOfWordRead) {
        SpecialRegisterSave(reply);
    } else {
        storeReply(d.registerCache, request, *reply);
    }
}

void SpecialRegisterSave(const QByteArray* reply) {
    if (reply != nullptr) {
        completePendingBitWordWrite(PLC_driver, *reply);
    }
}
