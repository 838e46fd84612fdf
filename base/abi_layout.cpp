// The records shared with hosts are binary interface: hosts are compiled separately and
// exchange them by address. Every field offset is pinned here for 64-bit targets and for
// 32-bit ones (where pointers and Qt's implicitly shared handles are 4 bytes).
#include <cstddef>

#include "base/Communication_Protocol.h"

#define KORVAN_PIN(Type, field, at64, at32)                                        \
    static_assert(offsetof(Type, field) == (sizeof(void*) == 8 ? (at64) : (at32)), \
                  #Type "::" #field " moved")
#define KORVAN_SIZE(Type, size64, size32) \
    static_assert(sizeof(Type) == (sizeof(void*) == 8 ? (size64) : (size32)), #Type " resized")

static_assert(sizeof(int) == 4, "records are made of 32-bit words");
static_assert(sizeof(QString) == sizeof(void*) && sizeof(QByteArray) == sizeof(void*) &&
                  sizeof(QList<RW_VAR>) == sizeof(void*) && sizeof(QMutex) == sizeof(void*) &&
                  sizeof(QMap<int, int>) == sizeof(void*) &&
                  sizeof(QHash<quint64, quint16>) == sizeof(void*),
              "every Qt member is one implicitly shared handle");

KORVAN_PIN(RW_VAR, ownerId, 0, 0);
KORVAN_PIN(RW_VAR, itemId, 4, 4);
KORVAN_PIN(RW_VAR, direction, 8, 8);
KORVAN_PIN(RW_VAR, remoteMode, 12, 12);
KORVAN_PIN(RW_VAR, port, 16, 16);
KORVAN_PIN(RW_VAR, result, 20, 20);
KORVAN_PIN(RW_VAR, nameText, 24, 24);
KORVAN_PIN(RW_VAR, addressText, 32, 28);
KORVAN_PIN(RW_VAR, area, 40, 32);
KORVAN_PIN(RW_VAR, address, 44, 36);
KORVAN_PIN(RW_VAR, station, 48, 40);
KORVAN_PIN(RW_VAR, count, 52, 44);
KORVAN_PIN(RW_VAR, mark, 56, 48);
KORVAN_PIN(RW_VAR, extra, 60, 52);
KORVAN_PIN(RW_VAR, data, 64, 56);
KORVAN_SIZE(RW_VAR, 72, 60);

KORVAN_PIN(Protocol, frame, 0, 0);
KORVAN_PIN(Protocol, sendLength, 8, 4);
KORVAN_PIN(Protocol, replyLength, 12, 8);
KORVAN_PIN(Protocol, dataOffset, 16, 12);
KORVAN_PIN(Protocol, dataLength, 20, 16);
KORVAN_PIN(Protocol, var, 24, 20);
KORVAN_PIN(Protocol, reserved, 96, 80);
KORVAN_SIZE(Protocol, 112, 92);

KORVAN_PIN(ComInfo, maxUnits, 16, 16);
KORVAN_PIN(ComInfo, defaultStation, 24, 24);
KORVAN_PIN(ComInfo, retryLimit, 28, 28);
KORVAN_PIN(ComInfo, retryCount, 32, 32);
KORVAN_PIN(ComInfo, perVarStation, 36, 36);
KORVAN_PIN(ComInfo, clearedWord10, 40, 40);
KORVAN_PIN(ComInfo, framesInExchange, 44, 44);
KORVAN_PIN(ComInfo, framesAnswered, 48, 48);
KORVAN_PIN(ComInfo, clearedWord13, 52, 52);
KORVAN_PIN(ComInfo, remoteMode, 56, 56);
KORVAN_PIN(ComInfo, portId, 60, 60);
KORVAN_PIN(ComInfo, writeMode, 64, 64);
KORVAN_PIN(ComInfo, scanDone, 68, 68);
KORVAN_PIN(ComInfo, hostTag, 72, 72);
KORVAN_SIZE(ComInfo, 76, 76);

KORVAN_PIN(HOSTVAR, hostByte0, 0, 0);
KORVAN_PIN(HOSTVAR, area, 1, 1);
KORVAN_PIN(HOSTVAR, station, 2, 2);
KORVAN_PIN(HOSTVAR, hostByte3, 3, 3);
KORVAN_PIN(HOSTVAR, hostWord, 4, 4);
KORVAN_PIN(HOSTVAR, addressText, 8, 8);
KORVAN_PIN(HOSTVAR, nameText, 16, 12);
KORVAN_PIN(HOSTVAR, count, 24, 16);
KORVAN_SIZE(HOSTVAR, 32, 20);

KORVAN_PIN(Communication_Protocol, comInfo, 0, 0);
KORVAN_PIN(Communication_Protocol, readList, 8, 4);
KORVAN_PIN(Communication_Protocol, writeList, 16, 8);
KORVAN_PIN(Communication_Protocol, onceReadList, 24, 12);
KORVAN_PIN(Communication_Protocol, spareReadList, 32, 16);
KORVAN_PIN(Communication_Protocol, requestQueue, 40, 20);
KORVAN_PIN(Communication_Protocol, extendList, 48, 24);
KORVAN_PIN(Communication_Protocol, resultCallback, 56, 28);
KORVAN_PIN(Communication_Protocol, errorCallback, 64, 32);
KORVAN_PIN(Communication_Protocol, listMutex, 72, 36);
KORVAN_PIN(Communication_Protocol, cacheMutex, 80, 40);
KORVAN_PIN(Communication_Protocol, stationMutex, 88, 44);
KORVAN_PIN(Communication_Protocol, stationMap, 96, 48);
KORVAN_PIN(Communication_Protocol, retVar, 104, 52);
KORVAN_PIN(Communication_Protocol, currentSource, 176, 112);
KORVAN_PIN(Communication_Protocol, writeBurst, 180, 116);
KORVAN_PIN(Communication_Protocol, onceBurst, 184, 120);
KORVAN_PIN(Communication_Protocol, scanCount, 188, 124);
KORVAN_PIN(Communication_Protocol, commFailed, 192, 128);
KORVAN_PIN(Communication_Protocol, unusedFlag, 193, 129);
KORVAN_PIN(Communication_Protocol, frameBuf, 194, 130);
KORVAN_PIN(Communication_Protocol, registerCache, 2248, 2180);
KORVAN_SIZE(Communication_Protocol, 2256, 2184);
