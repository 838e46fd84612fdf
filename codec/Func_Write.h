// Local writes: their frames, and the exchanges that write a record.
#ifndef KORVAN_CODEC_FUNC_WRITE_H
#define KORVAN_CODEC_FUNC_WRITE_H

#include "korvan_qa_qb_series_port.h"

// Whether a write record's payload fits one local frame (at most 2037 bytes on the wire). One that
// does not is never sent: the scheduler reports it failed when its turn comes.
bool fitsLocalWriteFrame(const RW_VAR& var);
// The local write of a run of bits or words, assembled in `buffer`; the record must fit a frame.
Protocol writeRequest(const RW_VAR& var, unsigned char* buffer);

// Each starts an exchange: queues its frames and sets the port record's counters. write_analog
// queues one frame writing a run of bits or words (nothing for a record too long for a frame);
// write_analog_bit the word read and word write that change one bit of a word of area 14.
// write_register queues write_analog_bit's frames for area 29 and write_analog's otherwise, and
// mirrors the record into the register image unless commFailed is set or it was too long.
KORVAN_API void write_analog(const RW_VAR& var);
KORVAN_API void write_analog_bit(const RW_VAR& var);
KORVAN_API void write_register(const RW_VAR& var);

#endif
