// The write list's one rule for appending, shared by registration and host writes.
#ifndef KORVAN_LISTS_WRITE_LIST_H
#define KORVAN_LISTS_WRITE_LIST_H

#include <QtCore/QList>

#include "base/Communication_Protocol.h"

// Appends a copy of `record` unless the list holds korvan::kListCapacity already: a full list drops
// further records without notice. The caller holds listMutex.
inline void appendWrite(QList<RW_VAR>& writeList, const RW_VAR& record) {
    if (writeList.size() < korvan::kListCapacity) {
        writeList.append(record);
    }
}

#endif
