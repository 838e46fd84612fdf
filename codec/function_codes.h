// Function codes of local frames.
#ifndef KORVAN_CODEC_FUNCTION_CODES_H
#define KORVAN_CODEC_FUNCTION_CODES_H

constexpr unsigned char kReadBits = 0x1E;
constexpr unsigned char kWriteBits = 0x1F;
constexpr unsigned char kReadWords = 0x20;
constexpr unsigned char kWriteWords = 0x21;

#endif
