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

// The numbers a host passes to the driver and gets back, by name: enumerators where a field or
// argument takes one of a set, constants otherwise. All are plain ints to the records and entry
// points, valid in every C++ dialect a panel compiler takes, and none is a symbol of the library.
namespace korvan {

// RW_VAR::result of the record DataCom returns.
enum Result {
    // The reply was bad; the next ComCommunication offers the same frame again.
    kResultRetry = 0,
    // The reply was good. The exchange is complete when it was its last frame: a cyclic read's
    // words are in the image, a write or once-read's result callback has run.
    kResultGood = 1,
    // The same for an exchange in the remote frame family.
    kResultRemoteGood = 100,
    // The reply could not be judged (memory ran out): counted as a bad local reply. The same
    // number as failureCode(kFailLocalLength, 0).
    kResultJudgingFailed = 71
};

// Any other result: the exchange was abandoned after its retries. Its code is the base of the
// last failed reply's cause plus the requesting owner: failureCode(base, ownerId).
enum FailureBase {
    kFailLocalInvalid = 10,    // local reply with a wrong station byte or CRC: 11..22
    kFailLocalSilent = 40,     // local: nothing received although a reply was expected: 41..52
    kFailLocalLength = 70,     // local: a reply of another length than expected: 71..82
    kFailRemoteInvalid = 110,  // remote reply failing its checks: 111..122
    kFailRemoteSilent = 140,   // remote: nothing received: 141..152
    kFailRemoteLength = 170    // remote: a reply of another length: 171..182
};
// Owners 0..11 (RW_VAR::ownerId) have a code of their own under each base; every other owner,
// negatives included, shares base + 1.
const int kFailOwners = 12;

inline int failureCode(int base, int ownerId) {
    return ownerId >= 0 && ownerId < kFailOwners ? base + ownerId + 1 : base + 1;
}

// The FailureBase of a result code, or 0 when the code is no failure.
inline int failureBase(int result) {
    const int bases[] = {kFailLocalInvalid,  kFailLocalSilent,  kFailLocalLength,
                         kFailRemoteInvalid, kFailRemoteSilent, kFailRemoteLength};
    for (unsigned i = 0; i < sizeof bases / sizeof bases[0]; ++i) {
        if (result > bases[i] && result <= bases[i] + kFailOwners) {
            return bases[i];
        }
    }
    return 0;
}

// The last argument of ResultCallback: a written or once-read host variable is done (every piece
// answered well), or one of its pieces was abandoned (the rest are dropped).
enum Status { kStatusDone = 1, kStatusFailed = 2 };
// The last argument of ErrorCallback, always.
const int kErrorFlag = 1;

// RW_VAR::direction.
enum Direction { kDirectionRead = 0, kDirectionWrite = 1 };
// RW_VAR::mark of the word read the driver sends before a bit-in-word write (area 29); 0 on
// every other request.
const int kMarkBitOfWordRead = -1;
// Protocol::replyLength beyond a byte count.
const int kReplyAnyLength = -1;
const int kReplyNone = 0;

// ComInfo::writeMode: SetRegisterData queues writes for the PLC only with kWriteToPlc; any other
// value (kWriteImageOnly, say) changes the register image alone.
enum WriteMode { kWriteImageOnly = 0, kWriteToPlc = 2 };
// ComInfo::scanDone once the cyclic read list has been read through.
const int kScanDone = 1;

// The second argument of EnCommStation and EnableEthernet; any other value changes nothing. A
// negative station switches every station on again, whatever the second argument.
enum StationSwitch { kStationOff = 0, kStationOn = 1 };
const int kAllStations = -1;

// The second argument of AddListOnceReadVar: kOnceReadVerbatim appends the record as it is; any
// other value (kOnceReadPlanned) parses its address text, resolves its station, and queues it in
// pieces of at most maxUnits, skipping pieces already queued.
enum OnceReadMode { kOnceReadPlanned = 0, kOnceReadVerbatim = 1 };

// SetComInfo lowers a larger ComInfo::maxUnits to this.
const int kMaxUnitsCap = 100;
// Entries writeList and a planned onceReadList hold; later ones are dropped silently.
const int kListCapacity = 2048;

// Area indices (RW_VAR::area, HOSTVAR::area, the area argument of the entry points). Areas 0..13
// hold bits (0 and 1 with octal address texts), 14..28 words; 29 is one bit of a word of area 14,
// written as "word.bit". Any other index is no area: reads give zeros, writes are ignored.
enum Area {
    kAreaFirstBit = 0,
    kAreaLastOctal = 1,
    kAreaLastBit = 13,
    kAreaFirstWord = 14,
    kAreaLastWord = 28,
    kAreaBitOfWord = 29
};

// What the address entry points return for an address text that does not parse:
// PLCAddressChangeIntef kAddressInvalid (any negative number is no address);
// GetRegisterData, SetRegisterData and AddListOnceReadVar kAddressNotParsed.
const int kAddressInvalid = -1;
const int kAddressNotParsed = 0;
// GetRegisterData's result for every address that parses.
const int kReadDone = 1;
// What QueryFinishFlag always returns.
const int kFinished = 1;
// RW_VAR::ownerId and itemId of the cyclic reads ReCreatReadVarList plans.
const int kCyclicOwnerId = 0;
const int kCyclicItemId = -1;

}  // namespace korvan

// The records below start zeroed however a host makes them: `RW_VAR var;` in any dialect.

// One PLC variable, or one block of PLC units, to read or write. A value type: the driver's
// lists hold their own copies; the texts and the payload are shared by Qt's implicit sharing.
struct RW_VAR {
    RW_VAR()
        : ownerId(0),
          itemId(0),
          direction(0),
          remoteMode(0),
          port(0),
          result(0),
          area(0),
          address(0),
          station(0),
          count(0),
          mark(0),
          extra(0) {}

    int ownerId;          // host key of the variable's owner; selects the result-code offset
    int itemId;           // host key of the item
    int direction;        // korvan::Direction
    int remoteMode;       // copy of ComInfo::remoteMode when the driver builds the record
    int port;             // equal to ComInfo::portId: local variable; different: remote
    int result;           // korvan::Result; meaningful in the record DataCom returns
    QString nameText;     // the host's second text
    QString addressText;  // the address as the host wrote it
    int area;             // korvan::Area
    int address;          // start address in units of the area
    int station;          // PLC station number
    int count;            // number of units
    int mark;             // korvan::kMarkBitOfWordRead on a bit-in-word write's read, else 0
    int extra;            // carried unchanged in remote frames
    QByteArray data;      // payload of a write
};

// One request frame. ComCommunication hands the host the address of the queue head; the host
// sends the first sendLength bytes of frame and expects replyLength bytes back.
struct Protocol {
    Protocol() : sendLength(0), replyLength(0), dataOffset(0), dataLength(0), reserved() {}

    QByteArray frame;
    int sendLength;
    int replyLength;  // bytes, or korvan::kReplyAnyLength, or korvan::kReplyNone
    int dataOffset;   // first data byte in the reply
    int dataLength;   // number of data bytes in the reply
    RW_VAR var;       // copy of the list entry the frame serves
    int reserved[3];
};

// The host's port record: 19 int words, used in place by address after SetComInfo.
struct ComInfo {
    ComInfo()
        : hostWord0(0),
          hostWord1(0),
          hostWord2(0),
          hostWord3(0),
          maxUnits(0),
          hostWord5(0),
          defaultStation(0),
          retryLimit(0),
          retryCount(0),
          perVarStation(0),
          clearedWord10(0),
          framesInExchange(0),
          framesAnswered(0),
          clearedWord13(0),
          remoteMode(0),
          portId(0),
          writeMode(0),
          scanDone(0),
          hostTag(0) {}

    int hostWord0;
    int hostWord1;
    int hostWord2;
    int hostWord3;
    int maxUnits;  // largest count of one request; SetComInfo caps it at korvan::kMaxUnitsCap
    int hostWord5;
    int defaultStation;    // station of every variable while perVarStation is 0
    int retryLimit;        // failed replies tolerated before an exchange is abandoned
    int retryCount;        // failed replies since the last abandonment (driver)
    int perVarStation;     // non-zero: each variable keeps its own station
    int clearedWord10;     // set to 0 by SetComInfo
    int framesInExchange;  // request frames of the current exchange (driver)
    int framesAnswered;    // frames of the current exchange answered well (driver)
    int clearedWord13;     // set to 0 by SetComInfo
    int remoteMode;        // non-zero: remote frame family
    int portId;            // compared with RW_VAR::port
    int writeMode;         // korvan::WriteMode
    int scanDone;          // korvan::kScanDone once the cyclic read list was read through (driver)
    int hostTag;           // first argument of every result callback
};

// One variable of the host's cyclic read list, as passed to ReCreatReadVarList.
struct HOSTVAR {
    HOSTVAR() : hostByte0(0), area(0), station(0), hostByte3(0), hostWord(0), count(0) {}

    quint8 hostByte0;
    quint8 area;     // korvan::Area
    quint8 station;  // used while ComInfo::perVarStation is non-zero
    quint8 hostByte3;
    qint32 hostWord;
    QString addressText;
    QString nameText;  // second text, copied into RW_VAR::nameText
    qint32 count;      // bits for areas 0..13 and 29, words for areas 14..28
};

// status: korvan::Status. The result is ignored.
typedef int (*ResultCallback)(int hostTag, int ownerId, int itemId, int status);
// Called when an exchange is abandoned after its retries, with an empty list and
// korvan::kErrorFlag. The result is ignored.
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
