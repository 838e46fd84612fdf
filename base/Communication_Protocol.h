// The driver's single state object and the constants every layer shares.
//
// PLC_driver is an exported global, so a host may see this object's layout: the members stay
// in this order and width (checked in abi_layout.cpp). Everything in the driver is a free
// function working on PLC_driver, apart from three small member operations that use no
// member data.
#ifndef KORVAN_BASE_COMMUNICATION_PROTOCOL_H
#define KORVAN_BASE_COMMUNICATION_PROTOCOL_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>

#include "korvan_qa_qb_series_port.h"

// Block length used wherever the driver splits by a block length. Nothing bounds maxUnits from
// below, and a length below 1 would make no progress, so such a value counts as 1.
inline int effectiveBlockLength(int max) {
    return max < 1 ? 1 : max;
}
inline int effectiveMaxUnits(const ComInfo& info) {
    return effectiveBlockLength(info.maxUnits);
}

// Size of the buffer in which local frames are assembled.
constexpr int kFrameBufSize = 2048;

// Values of currentSource: which list the current exchange came from.
constexpr int kSourceReadList = 0;
constexpr int kSourceWriteList = 1;
constexpr int kSourceOnceReadList = 2;
constexpr int kSourceNone = 100;

// Element of extendList, which the driver only constructs and destroys.
struct EXTENDVAR {
    int word0;
    int word1;
    int word2;
    QByteArray word3;
};

class Communication_Protocol {
public:
    Communication_Protocol() = default;
    Communication_Protocol(const Communication_Protocol&) = delete;
    Communication_Protocol& operator=(const Communication_Protocol&) = delete;

    // Area under which data of `area` live in the register image: 14 for areas 14 and 29.
    KORVAN_API int get_plc_reg(int area);
    // Converts a bit-addressed variable to 16-bit word units; area 29 becomes 14.
    KORVAN_API void update_rw_var(RW_VAR* var);
    // Wire area code of an area index, 0 above 28.
    KORVAN_API unsigned char register_identifier(unsigned char area);

    ComInfo* comInfo = nullptr;
    QList<RW_VAR> readList;
    QList<RW_VAR> writeList;
    QList<RW_VAR> onceReadList;
    QList<RW_VAR> spareReadList;
    QList<Protocol> requestQueue;
    QList<EXTENDVAR> extendList;
    ResultCallback resultCallback = nullptr;
    ErrorCallback errorCallback = nullptr;
    QMutex listMutex;
    QMutex cacheMutex;
    QMutex stationMutex;
    QMap<int, int> stationMap;  // stations switched off; the value is always 0
    RW_VAR retVar;
    int currentSource = kSourceNone;
    int writeBurst = 0;
    int onceBurst = 0;
    int scanCount = 0;
    unsigned char commFailed = 0;
    unsigned char unusedFlag = 0;
    unsigned char frameBuf[kFrameBufSize] = {};
    QHash<quint64, quint16> registerCache;
};

extern KORVAN_API Communication_Protocol PLC_driver;

#endif
