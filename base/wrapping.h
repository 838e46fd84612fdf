// 32-bit two's-complement arithmetic for record fields.
//
// Addresses, counts and frame lengths come from the host unchecked; the driver computes with
// them the way a 32-bit PLC panel does, wrapping on overflow instead of invoking undefined
// behaviour.
#ifndef KORVAN_BASE_WRAPPING_H
#define KORVAN_BASE_WRAPPING_H

#include <cstdint>

inline int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline int wrapSub(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline int wrapMul(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

#endif
