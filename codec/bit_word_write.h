// The write of one bit inside a word of area 14 (area 29, addressed as word.bit), whole here: its
// two frames, and the completion of the second from the reply to the first.
//
// The PLC writes whole words only, so the bit is changed by a one-word read followed by a
// one-word write whose new word and CRC are left zero; when the read's reply arrives, the bit is
// set or cleared in the word just read and the write frame is completed.
#ifndef KORVAN_CODEC_BIT_WORD_WRITE_H
#define KORVAN_CODEC_BIT_WORD_WRITE_H

#include "codec/frames.h"
#include "korvan_qa_qb_series_port.h"

// The value a bit-of-word record writes: on when its first payload byte is non-zero. An empty
// payload clears the bit, the same in the image as on the wire.
inline bool bitOfWordValue(const RW_VAR& record) {
    return !record.data.isEmpty() && record.data.at(0) != 0;
}

// The two requests of a bit-of-word write, read first. Local frames are assembled in `buffer`.
struct BitWordWrite {
    Protocol read;
    Protocol write;
};
BitWordWrite bitWordWriteRequests(const RW_VAR& var, unsigned char* buffer);

// Completes `write`, the second request, from `reply`, the answer to the first: the word read
// with the record's bit set or cleared, and the CRC over the frame before it. A reply too short
// to carry the word, or a frame that is not a bit-of-word write, is left as it is.
void completeBitWordWrite(Protocol& write, ReplyBytes reply);

#endif
