// Check values the polling thread has already computed.
//
// A cyclic read sends the same request on every scan, and a PLC whose values did not change
// answers it with the same bytes: on a panel, most replies repeat the previous one. The CRC of a
// read request is therefore computed once (by CalCRC) and kept with the request's bytes, and a
// reply equal byte for byte to the last reply that passed the CRC check for the same request
// passes again without its CRC being computed. Both are exact: equal bytes have equal check
// values, and a reply that differs in any byte is checked in full.
//
// The memo is the polling thread's, like requestQueue and frameBuf.
#ifndef KORVAN_CODEC_CHECK_MEMO_H
#define KORVAN_CODEC_CHECK_MEMO_H

#include <QtCore/QByteArray>

// Bytes of a local read request before its CRC.
constexpr int kReadRequestHeadLength = 8;

// CalCRC over the first kReadRequestHeadLength bytes of `head`.
unsigned short readRequestCrc(const unsigned char* head);

// Whether the CRC at the end of `reply` (size >= 2) is that of the bytes before it. `request` is
// the frame the reply answers.
bool replyCrcMatches(const QByteArray& request, const unsigned char* reply, int size);

#endif
