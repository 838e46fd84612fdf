// The frame codec's common ground: the reply's framing, the request record every builder returns,
// and the bytes of a reply as received.
//
// Every function of the codec works on what it is given and returns what it made: builders return
// the request, with its frame and the reply it expects, and queue nothing; the checks read nothing
// but their arguments. Local frames are assembled in the build buffer they are handed.
#ifndef KORVAN_CODEC_FRAMES_H
#define KORVAN_CODEC_FRAMES_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

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

// Whether `request` is the word read of a bit-in-word write: a good reply to it completes the
// write queued behind it instead of being stored. The one test of the mark.
inline bool isBitWordRead(const Protocol& request) {
    return request.var.mark == korvan::kMarkBitOfWordRead;
}

// The bytes of a reply as received: `size` bytes from `data`. The host's buffer may hold more.
struct ReplyBytes {
    const unsigned char* data;
    int size;
};

inline ReplyBytes replyBytes(const QByteArray& reply) {
    return {reinterpret_cast<const unsigned char*>(reply.constData()), reply.size()};
}

#endif
