// The exchange in progress, in one place: the request frames queued for one list entry, the port
// record's counters of them, the list the entry came from, and the bursts that pace the lists.
//
// Only the polling thread changes these: ComCommunication starts an exchange, DataCom advances,
// retries or abandons it, and the host calls the two in turn. Frame builders make the requests;
// they are queued here, never by the builders themselves. Whoever needs a queued request asks for
// it here: nothing else reads the queue.
#ifndef KORVAN_BASE_EXCHANGE_H
#define KORVAN_BASE_EXCHANGE_H

#include <QtCore/QList>

#include "base/Communication_Protocol.h"

// Write and once-read exchanges started in a row before a cyclic read may have its turn.
constexpr int kBurstLimit = 5;

// Queues the frames of a new exchange in sending order and sets the port record's counters for
// them: framesInExchange to their number, framesAnswered to 0. The frames are made before anything
// is queued, so running out of memory leaves the queue as it was.
void startExchange(Communication_Protocol& d, const Protocol& request);
void startExchange(Communication_Protocol& d, const Protocol& first, const Protocol& second);

// Out of memory while an exchange was being built: nothing of it stays queued or counted.
void dropExchange(Communication_Protocol& d);

// Whether a request is queued, and the one to be sent or answered now, which only a queued one
// has.
inline bool requestQueued(const Communication_Protocol& d) {
    return !d.requestQueue.isEmpty();
}
inline Protocol& headRequest(Communication_Protocol& d) {
    return d.requestQueue.first();
}

// The write frame of a bit-in-word write whose word read is the head: the second frame queued.
// Null unless it is queued and writeList still holds a write for it to serve, which is asked
// under listMutex, so the caller holds no lock. Whether the head is that read is the caller's to
// know.
Protocol* pendingBitWordWrite(Communication_Protocol& d);

// Whether the port record counts exactly one frame of the exchange answered; false without a
// port record.
bool oneFrameAnswered(const Communication_Protocol& d);

// The head request was answered well: it leaves the queue and counts as answered. Returns whether
// frames of the exchange remain; the next one is then the new head. d.comInfo is set.
bool advanceExchange(Communication_Protocol& d);

// The head request was answered badly. Returns whether the port's retries last, in which case the
// head stays to be offered again. Otherwise the exchange is abandoned: every queued frame is
// dropped and the retry count starts again from 0. d.comInfo is set.
bool retryExchange(Communication_Protocol& d);

// Whether a write (or a once-read) may start: fewer than kBurstLimit of them since the last reset.
bool burstLeft(const Communication_Protocol& d, int source);
// Records the list of the exchange being started. A write or once-read counts towards its burst;
// a cyclic read lets both bursts start again.
void noteSource(Communication_Protocol& d, int source);
// Nothing was to be sent: both bursts start again.
void resetBursts(Communication_Protocol& d);

// The list the current exchange came from, or null before the first exchange.
QList<RW_VAR>* sourceList(Communication_Protocol& d);

#endif
