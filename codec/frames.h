// Frame building and reply validation, for the scheduler and reply handling.
#ifndef KORVAN_CODEC_FRAMES_H
#define KORVAN_CODEC_FRAMES_H

#include <QtCore/QByteArray>

#include "korvan_qa_qb_series_port.h"

// Results of CheckGetData.
constexpr int kReplyInvalid = 0;
constexpr int kReplyStore = 1;           // valid, carries read data to store
constexpr int kReplyNothingToStore = 2;  // valid, nothing to store (write, or station 0)

// Shortest reply CheckGetData accepts: station, function, byte count, one byte, the CRC.
constexpr int kMinReplyLength = 6;
// Reply bytes before the data: station, function code, byte count.
constexpr int kReplyHeaderLength = 3;
// Reply bytes around the data: the header and the CRC.
constexpr int kReplyOverhead = kReplyHeaderLength + 2;
// Every write is acknowledged in 10 bytes, of which only the station byte and the CRC count.
constexpr int kWriteReplyLength = 10;

// Judges a reply against the head of requestQueue: 0 invalid (or no request queued), 1 valid
// with data to store, 2 valid with nothing to store.
KORVAN_API int CheckGetData(const QByteArray* reply);

// Queues the local read frame for a normalised variable as a one-frame exchange.
KORVAN_API void read_register(const RW_VAR& var);

// Whether a write record's payload fits one local frame (at most 2037 bytes on the wire). One that
// does not is never sent: the scheduler reports it failed when its turn comes.
bool fitsLocalWriteFrame(const RW_VAR& var);

// Queues the local write frames for a write record and mirrors it into the register image
// unless commFailed is set: write_analog_bit for area 29, write_analog for every other area.
KORVAN_API void write_register(const RW_VAR& var);
// Queues one frame writing a run of bits or words.
KORVAN_API void write_analog(const RW_VAR& var);
// Queues the word read and the word write that change one bit of a word of area 14.
KORVAN_API void write_analog_bit(const RW_VAR& var);

// Queue remote frames, which name the variable by its own fields and end in an additive
// checksum. Remote_WriteVar also mirrors the record into the register image.
KORVAN_API void Remote_ReadVar(const RW_VAR& var);
KORVAN_API void Remote_WriteVar(const RW_VAR& var);

#endif
