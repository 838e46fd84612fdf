// The two-frame write of one bit inside a word of area 14 (area 29, word.bit).
//
// The PLC writes whole words only, so the frame codec queues a one-word read followed by a
// one-word write whose new word and CRC are left zero; when the read's reply arrives, the
// register image sets or clears the bit in the word just read and completes the write frame.
// Both sides meet here, below either of them.
#ifndef KORVAN_DRIVER_BIT_WORD_WRITE_H
#define KORVAN_DRIVER_BIT_WORD_WRITE_H

#include "korvan_qa_qb_series_port.h"

// RW_VAR::mark of the word read that precedes the write; its reply completes the write frame.
constexpr int kMarkBitWordRead = -1;
// Length of the reply to the word read: header, one word, CRC.
constexpr int kBitWordReplyLength = 7;
// Where that reply carries the word, high byte first.
constexpr int kBitWordReplyWordOffset = 3;
// The write frame: header, the new word (high byte first) at kBitWordWriteWordOffset, then the
// CRC over everything before it (low byte first) at kBitWordWriteCrcOffset.
constexpr int kBitWordWriteFrameLength = 13;
constexpr int kBitWordWriteWordOffset = 9;
constexpr int kBitWordWriteCrcOffset = 11;

// The value a bit-of-word record writes: on when its first payload byte is non-zero. An empty
// payload clears the bit, the same in the image as on the wire.
inline bool bitOfWordValue(const RW_VAR& record) {
    return !record.data.isEmpty() && record.data.at(0) != 0;
}

#endif
