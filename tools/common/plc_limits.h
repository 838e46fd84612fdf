// Ranges of the PLC's numbers, as the tools check them on their command lines and in files.
#ifndef KORVAN_TOOLS_PLC_LIMITS_H
#define KORVAN_TOOLS_PLC_LIMITS_H

namespace tools {

constexpr long kMaxStation = 255;
constexpr long kMaxAreaWithCode = 28;        // areas 0..28 have wire codes; 29 is a bit of area 14
constexpr long kMaxWordAddress = 0xFFFFFFL;  // 24 bits in a local frame
constexpr long kMaxWordValue = 0xFFFF;

}  // namespace tools

#endif
