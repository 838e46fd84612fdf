// Queueing the requests of one exchange.
#ifndef KORVAN_CODEC_REQUEST_QUEUE_H
#define KORVAN_CODEC_REQUEST_QUEUE_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

// Appends a request for `var` to the tail of requestQueue; the whole frame is to be sent.
void queueRequest(const QByteArray& frame, int replyLength, int dataOffset, int dataLength,
                  const RW_VAR& var);
// The same for a frame of `length` bytes assembled elsewhere (frameBuf), copied in.
void queueRequest(const unsigned char* frame, int length, int replyLength, int dataOffset,
                  int dataLength, const RW_VAR& var);

// Removes the head of requestQueue: its frame has been answered well.
void finishHeadRequest();

// Reply length a write request expects: the write acknowledgement, or nothing from station 0,
// which every PLC on the line takes without answering.
int writeReplyLength(const RW_VAR& var);

// Sets the port record's counters for an exchange of `frames` frames, none answered yet.
void beginExchange(int frames);

#endif
