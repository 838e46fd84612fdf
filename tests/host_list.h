// Entries of a host's cyclic variable list, as a panel runtime fills them in.
#ifndef KORVAN_TESTS_HOST_LIST_H
#define KORVAN_TESTS_HOST_LIST_H

#include "korvan_qa_qb_series_port.h"

inline HOSTVAR cyclicVar(int area, const QString& address, int count, int station = 1,
                         const char* name = "") {
    HOSTVAR h;
    h.area = static_cast<quint8>(area);
    h.station = static_cast<quint8>(station);
    h.addressText = address;
    h.nameText = QString::fromLatin1(name);
    h.count = count;
    return h;
}

inline HOSTVAR cyclicVar(int area, const char* address, int count, int station = 1,
                         const char* name = "") {
    return cyclicVar(area, QString::fromLatin1(address), count, station, name);
}

#endif
