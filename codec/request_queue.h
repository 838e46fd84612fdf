// Queueing the requests of one exchange.
#ifndef KORVAN_CODEC_REQUEST_QUEUE_H
#define KORVAN_CODEC_REQUEST_QUEUE_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

// Appends a request for `var` to the tail of requestQueue; the whole frame is to be sent.
void queueRequest(const QByteArray& frame, int replyLength, int dataOffset, int dataLength,
                  const RW_VAR& var);

// Reply length a write request expects: the write acknowledgement, or nothing from station 0,
// which every PLC on the line takes without answering.
int writeReplyLength(const RW_VAR& var);

// Sets the port record's counters for an exchange of `frames` frames, none answered yet.
void beginExchange(int frames);

#endif
