// Storing read replies into the register image, and completing bit-of-word writes.
//
// Word areas arrive high byte first; bit areas as 16-bit groups, bits 0..7 first. The cache
// itself holds plain 16-bit values.
#include "driver/Communication_Protocol.h"
#include "driver/areas.h"
#include "driver/bit_word_write.h"
#include "driver/mutex_lock.h"
#include "image/cache_key.h"
#include "image/register_image.h"

namespace {

unsigned int byteAt(const QByteArray& bytes, int index) {
    return static_cast<unsigned char>(bytes.at(index));
}

}  // namespace

void SaveToLocalDataErea(QByteArray* reply) {
    if (reply == nullptr || PLC_driver.requestQueue.isEmpty()) {
        return;
    }
    const Protocol& request = PLC_driver.requestQueue.first();
    if (request.var.mark == kMarkBitWordRead) {
        SpecialRegisterSave(reply);
        return;
    }
    if (request.dataOffset < 0 || request.dataLength <= 0) {
        return;
    }
    const int area = imageArea(request.var.area);
    // Reply handling has matched the reply's length to the request; a shorter reply would still
    // store only the whole words it holds.
    const qint64 end = qMin(static_cast<qint64>(request.dataOffset) + request.dataLength,
                            static_cast<qint64>(reply->size()));
    const auto* bytes = reinterpret_cast<const unsigned char*>(reply->constData());
    QHash<quint64, quint16>& cache = PLC_driver.registerCache;
    quint64 key = cacheKey(cacheKeyBase(request.var.station, area), request.var.address);
    qint64 at = request.dataOffset;
    if (static_cast<unsigned int>(area) <= static_cast<unsigned int>(kLastBitArea)) {
        for (; at + kBytesPerWord <= end; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] | bytes[at + 1] << 8));
        }
    } else {
        for (; at + kBytesPerWord <= end; at += kBytesPerWord, ++key) {
            cache.insert(key, static_cast<quint16>(bytes[at] << 8 | bytes[at + 1]));
        }
    }
}

// The bit and its new value are taken from the write request's own copy of the record, made
// while the scheduler held listMutex to build both frames: the head of writeList is the same
// record. Only whether writeList holds a record is asked of the list itself, under listMutex, as a
// host thread may be appending to it; the caller holds no lock (reply handling does not take
// cacheMutex for a reply that completes a write, as it stores nothing).
void SpecialRegisterSave(const QByteArray* reply) {
    QList<Protocol>& queue = PLC_driver.requestQueue;
    if (reply == nullptr || reply->size() < kBitWordReplyLength || queue.size() < 2 ||
        queue.at(1).frame.size() < kBitWordWriteFrameLength) {
        return;
    }
    {
        MutexLock lock(PLC_driver.listMutex);
        if (PLC_driver.writeList.isEmpty()) {
            return;
        }
    }
    const RW_VAR& write = queue.at(1).var;
    const quint16 read = static_cast<quint16>(byteAt(*reply, kBitWordReplyWordOffset) << 8 |
                                              byteAt(*reply, kBitWordReplyWordOffset + 1));
    const quint16 word = withBits(read, bitMask(write.address), bitOfWordValue(write));

    QByteArray& frame = queue[1].frame;
    auto* bytes = reinterpret_cast<unsigned char*>(frame.data());
    bytes[kBitWordWriteWordOffset] = static_cast<unsigned char>(word >> 8);
    bytes[kBitWordWriteWordOffset + 1] = static_cast<unsigned char>(word);
    const unsigned short crc = CalCRC(bytes, kBitWordWriteCrcOffset);
    bytes[kBitWordWriteCrcOffset] = static_cast<unsigned char>(crc);
    bytes[kBitWordWriteCrcOffset + 1] = static_cast<unsigned char>(crc >> 8);
}
