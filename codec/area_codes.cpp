#include "codec/area_codes.h"

#include "driver/Communication_Protocol.h"

unsigned char Communication_Protocol::register_identifier(unsigned char area) {
    return area < kAreaCodeCount ? kAreaCodes[area] : kNoAreaCode;
}
