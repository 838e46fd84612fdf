// The register image's operations for reply handling: storing what a reply carries.
#ifndef KORVAN_IMAGE_REGISTER_IMAGE_H
#define KORVAN_IMAGE_REGISTER_IMAGE_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>

#include "base/Communication_Protocol.h"

// Stores the data of a validated read reply to `request` into `cache`, word by word; the caller
// holds the cache's lock. Only whole words within the reply are stored.
void storeReply(QHash<quint64, quint16>& cache, const Protocol& request, const QByteArray& reply);

// Completes the queued write frame of a bit-of-word write from its read's reply, provided the
// exchange is still whole: two requests queued and the write record still at the front of
// writeList (asked under listMutex, so the caller must hold neither lock).
void completePendingBitWordWrite(Communication_Protocol& d, const QByteArray& reply);

#endif
