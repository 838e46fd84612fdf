// Wire area codes by area index.
//
// The table is not monotonic (index 7 is 0x0D, index 13 is 0x12); every bit area code is below
// 0x80 and every word area code 0x80 or above. Area 29 has no code of its own: it is read as
// area 14 after normalisation and written with 0x80 directly.
#ifndef KORVAN_CODEC_AREA_CODES_H
#define KORVAN_CODEC_AREA_CODES_H

constexpr unsigned char kAreaCodes[] = {
    0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0D, 0x08, 0x09,  // bit areas 0..9
    0x0A, 0x0B, 0x0C, 0x12,                                      // bit areas 10..13
    0x80, 0x81, 0x82, 0x8D, 0x85, 0x83, 0x88, 0x8E, 0x86, 0x87,  // word areas 14..23
    0x8C, 0x91, 0x89, 0x8A, 0x8B,                                // word areas 24..28
};
constexpr int kAreaCodeCount = sizeof(kAreaCodes) / sizeof(kAreaCodes[0]);
static_assert(kAreaCodeCount == 29, "one code for each of the areas 0..28");

// Area code sent for area 29 and for any index outside the table.
constexpr unsigned char kNoAreaCode = 0x00;

// The wire code of an area index (its low byte, as frames carry it).
constexpr unsigned char areaCode(unsigned char area) {
    return area < kAreaCodeCount ? kAreaCodes[area] : kNoAreaCode;
}

#endif
