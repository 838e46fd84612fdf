// Hexadecimal digit helpers. Neither has a range test: any value is offset by one of the two
// constants, and lower-case letters are not folded (0x61 gives 42).
#include "driver/wrapping.h"
#include "korvan_qa_qb_series_port.h"

int DigitalToASCII(int value) {
    return wrapAdd(value, value <= 9 ? 0x30 : 0x37);
}

int ASCIIToDigital(int character) {
    if (character < 0x30 || character == 0x40) {
        return 0;
    }
    return character <= 0x3F ? character - 0x30 : character - 0x37;
}
