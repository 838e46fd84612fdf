// Replies stored into the register image, and the write a bit-in-word read's reply completes.
#ifndef KORVAN_IMAGE_FUNC_DEALDATA_H
#define KORVAN_IMAGE_FUNC_DEALDATA_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>

#include "codec/frames.h"
#include "korvan_qa_qb_series_port.h"

// Stores the data of a validated read reply to `request` into `cache`, word by word; the caller
// holds the cache's lock. The reply's data span the request's dataLength bytes from dataOffset: a
// word that starts inside the span is stored, provided both its bytes are among the reply's.
void storeReply(QHash<quint64, quint16>& cache, const Protocol& request, ReplyBytes reply);

// Stores the data of a validated read reply to the head request into registerCache; the caller
// holds cacheMutex. The reply to the word read of a bit-in-word write instead completes the queued
// write frame (SpecialRegisterSave) and stores nothing; the caller then holds no lock.
KORVAN_API void SaveToLocalDataErea(QByteArray* reply);
// Completes the pending write of a bit-in-word write from its read's reply; the caller holds no
// lock.
KORVAN_API void SpecialRegisterSave(const QByteArray* reply);

#endif
