// The register image's operations for reply handling and the frame builders.
#ifndef KORVAN_IMAGE_REGISTER_IMAGE_H
#define KORVAN_IMAGE_REGISTER_IMAGE_H

#include <QtCore/QByteArray>

#include "driver/register_mirror.h"
#include "korvan_qa_qb_series_port.h"

// Stores the data of a validated read reply to the head of requestQueue into registerCache; the
// caller holds cacheMutex. The reply to the word read of a bit-of-word write instead completes
// the queued write frame and stores nothing.
KORVAN_API void SaveToLocalDataErea(QByteArray* reply);

// Completes the queued write frame of a bit-of-word write from the word its read returned.
KORVAN_API void SpecialRegisterSave(const QByteArray* reply);

#endif
