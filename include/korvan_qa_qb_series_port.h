// Host interface of the korvan_qa_qb_series_port PLC driver.
//
// This is the only header a host runtime needs. Everything declared here is binary interface:
// the host and the driver are compiled separately and exchange these records by address, so
// field order and widths never change. The driver owns no port, timer or thread; the host
// sends each frame the driver builds and passes the reply back (see README.md).
#ifndef KORVAN_QA_QB_SERIES_PORT_H
#define KORVAN_QA_QB_SERIES_PORT_H

// qglobal.h declares QtMsgType (Qt 5 through the qlogging.h it includes).
#include <QtCore/qglobal.h>
#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#if defined(KORVAN_BUILDING_LIBRARY)
#define KORVAN_API __attribute__((visibility("default")))
#else
#define KORVAN_API
#endif

// One PLC variable, or one block of PLC units, to read or write. A value type: the driver's
// lists hold their own copies; the texts and the payload are shared by Qt's implicit sharing.
struct RW_VAR {
    int ownerId = 0;      // host key of the variable's owner; selects the result-code offset
    int itemId = 0;       // host key of the item
    int direction = 0;    // 0 read request, non-zero write request
    int remoteMode = 0;   // copy of ComInfo::remoteMode when the driver builds the record
    int port = 0;         // equal to ComInfo::portId: local variable; different: remote
    int result = 0;       // result code; meaningful in the record DataCom returns
    QString nameText;     // the host's second text
    QString addressText;  // the address as the host wrote it
    int area = 0;         // area index 0..29
    int address = 0;      // start address in units of the area
    int station = 0;      // PLC station number
    int count = 0;        // number of units
    int mark = 0;         // -1 on the word read that precedes a bit-in-word write, else 0
    int extra = 0;        // carried unchanged in remote frames
    QByteArray data;      // payload of a write
};

// One request frame. ComCommunication hands the host the address of the queue head; the host
// sends the first sendLength bytes of frame and expects replyLength bytes back.
struct Protocol {
    QByteArray frame;
    int sendLength = 0;
    int replyLength = 0;  // -1: any length; 0: no reply expected
    int dataOffset = 0;   // first data byte in the reply
    int dataLength = 0;   // number of data bytes in the reply
    RW_VAR var;           // copy of the list entry the frame serves
    int reserved[3] = {0, 0, 0};
};

// The host's port record: 19 int words, used in place by address after SetComInfo.
struct ComInfo {
    int hostWord0 = 0;
    int hostWord1 = 0;
    int hostWord2 = 0;
    int hostWord3 = 0;
    int maxUnits = 0;  // largest count of one request; SetComInfo caps it at 100
    int hostWord5 = 0;
    int defaultStation = 0;    // station of every variable while perVarStation is 0
    int retryLimit = 0;        // failed replies tolerated before an exchange is abandoned
    int retryCount = 0;        // failed replies since the last abandonment (driver)
    int perVarStation = 0;     // non-zero: each variable keeps its own station
    int clearedWord10 = 0;     // set to 0 by SetComInfo
    int framesInExchange = 0;  // request frames of the current exchange (driver)
    int framesAnswered = 0;    // frames of the current exchange answered well (driver)
    int clearedWord13 = 0;     // set to 0 by SetComInfo
    int remoteMode = 0;        // non-zero: remote frame family
    int portId = 0;            // compared with RW_VAR::port
    int writeMode = 0;         // how host writes reach the register image
    int scanDone = 0;          // 1 once the cyclic read list has been read through (driver)
    int hostTag = 0;           // first argument of every result callback
};

// One variable of the host's cyclic read list, as passed to ReCreatReadVarList.
struct HOSTVAR {
    quint8 hostByte0 = 0;
    quint8 area = 0;     // area index 0..29
    quint8 station = 0;  // used while ComInfo::perVarStation is non-zero
    quint8 hostByte3 = 0;
    qint32 hostWord = 0;
    QString addressText;
    QString nameText;  // second text, copied into RW_VAR::nameText
    qint32 count = 0;  // bits for areas 0..13 and 29, words for areas 14..28
};

// status: 1 done, 2 failed. The result is ignored.
typedef int (*ResultCallback)(int hostTag, int ownerId, int itemId, int status);
// Called when an exchange is abandoned after its retries. The result is ignored.
typedef int (*ErrorCallback)(QList<RW_VAR>* list, int ownerId, int flag);

extern "C" {
KORVAN_API void SetComInfo(ComInfo* info);
KORVAN_API void RegistCallBackFuncIntf(ResultCallback onResult, ErrorCallback onError);
KORVAN_API void FlashLocalRegister(void* localBits, void* localWords, void* third);
KORVAN_API int QueryFinishFlag();
KORVAN_API void EnCommStation(int station, int enable);
KORVAN_API void EnableEthernet(int station, int enable);
KORVAN_API int PLCAddressChangeIntef(int area, QString text);
// The polling pair, called in turn from one thread: the next frame to send (null: nothing now),
// then the reply to it. Both returned records are the driver's and stay valid until the next
// polling call.
KORVAN_API Protocol* ComCommunication();
KORVAN_API RW_VAR* DataCom(QByteArray* reply, int length);
KORVAN_API int AddListReadVar(RW_VAR* var);
KORVAN_API int AddListWriteVar(RW_VAR* var);
KORVAN_API int AddListOnceReadVar(RW_VAR* var, int mode);
// Replaces the cyclic read list by the block reads planned from `list`; returns their number.
KORVAN_API int ReCreatReadVarList(QList<HOSTVAR>* list);
// Reads `count` units from the register image into `buffer` (the first text is ignored).
KORVAN_API int GetRegisterData(QString first, int area, QString address, int station,
                               QByteArray* buffer, int count);
KORVAN_API int SetRegisterData(QString nameText, int area, QString address, int station,
                               QByteArray* values, int count, int ownerId, int itemId);
}

// Helpers exported with C++ linkage (their symbols carry the argument types).
KORVAN_API int Ethernetcontains(int station);
KORVAN_API unsigned short CalCRC(unsigned char* data, unsigned short length);
KORVAN_API unsigned short CalSUM(unsigned char* data, unsigned short length);
KORVAN_API unsigned short CalLRC(unsigned char* data, unsigned short length);
KORVAN_API unsigned short CalXOR(unsigned char* data, unsigned short length);
KORVAN_API int DigitalToASCII(int value);
KORVAN_API int ASCIIToDigital(int character);
KORVAN_API int StringAddressToInt(int area, QString text);
// Qt 4-shaped message handler that appends time-stamped lines to /tmp/debug.log.
KORVAN_API void customMessageHandler(QtMsgType type, const char* msg);

// The host's local memory areas, as last handed over by FlashLocalRegister. The driver itself
// never reads them.
extern KORVAN_API void* LB;
extern KORVAN_API void* LW;
extern KORVAN_API void* RWI;

#endif
