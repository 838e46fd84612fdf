// The frame codec: requests built from records, and replies judged against their requests.
//
// Every function here works on what it is given and returns what it made: builders return the
// request, with its frame and the reply it expects, and queue nothing; the checks read nothing
// but their arguments. Local frames are assembled in the build buffer they are handed.
#ifndef KORVAN_CODEC_FRAMES_H
#define KORVAN_CODEC_FRAMES_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

// Verdicts on a reply (CheckGetData's results).
constexpr int kReplyInvalid = 0;
constexpr int kReplyStore = 1;           // valid, carries read data to store
constexpr int kReplyNothingToStore = 2;  // valid, nothing to store (write, or station 0)

// Shortest reply accepted: station, function, byte count, one byte, the CRC.
constexpr int kMinReplyLength = 6;
// Reply bytes before the data: station, function code, byte count.
constexpr int kReplyHeaderLength = 3;
// Reply bytes around the data: the header and the CRC.
constexpr int kCrcLength = 2;
constexpr int kReplyOverhead = kReplyHeaderLength + kCrcLength;
// Every write is acknowledged in 10 bytes, of which only the station byte and the CRC count.
constexpr int kWriteReplyLength = 10;
// Station 0 is every PLC on the line: all of them take a write to it, none answers.
constexpr int kBroadcastStation = 0;

// Reply length a write request expects: the acknowledgement, or nothing from station 0.
constexpr int writeReplyLength(int station) {
    return station == kBroadcastStation ? korvan::kReplyNone : kWriteReplyLength;
}

// A request for `var`: `frame` sent whole, and the reply it expects.
inline Protocol makeRequest(const QByteArray& frame, int replyLength, int dataOffset,
                            int dataLength, const RW_VAR& var) {
    Protocol p;
    p.frame = frame;
    p.sendLength = frame.size();
    p.replyLength = replyLength;
    p.dataOffset = dataOffset;
    p.dataLength = dataLength;
    p.var = var;
    return p;
}

// The verdict on `reply` to a request for `request`: its station byte and its CRC. Function code,
// byte count and length are not examined; reply handling has compared the length already. A
// request to station 0 is answered by nobody, so any reply, even none, passes.
int checkReply(const RW_VAR& request, const QByteArray* reply);

// The local read of a normalised variable.
Protocol readRequest(const RW_VAR& var, unsigned char* buffer);

// Whether a write record's payload fits one local frame (at most 2037 bytes on the wire). One that
// does not is never sent: the scheduler reports it failed when its turn comes.
bool fitsLocalWriteFrame(const RW_VAR& var);
// The local write of a run of bits or words; the record must fit a frame.
Protocol writeRequest(const RW_VAR& var, unsigned char* buffer);

// The remote read and write of a record, built in their own byte arrays.
Protocol remoteReadRequest(const RW_VAR& var);
Protocol remoteWriteRequest(const RW_VAR& var);

#endif
