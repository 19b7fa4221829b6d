#pragma once

#include <cstdint>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

// The bits of the 16-bit float nearest to `value`, ties to even. Numbers beyond 65504 round to infinity from
// 65520 on. A NaN stays one and keeps the upper bits of its payload.
inline std::uint16_t halfFromFloat(float value) {
    const std::uint32_t bits = bitsFromFloat(value);
    const std::uint32_t sign = (bits >> 16) & 0x8000u;
    const std::uint32_t size = bits & 0x7fffffffu;
    std::uint32_t half;
    if (size > 0x7f800000u) {
        half = 0x7e00u | ((size >> 13) & 0x3ffu);
    } else if (size >= 0x477ff000u) {  // 65520
        half = 0x7c00u;
    } else if (size >= 0x38800000u) {  // 2^-14: normal. The exponent's bias goes from 127 to 15.
        half = (size - 0x38000000u + 0xfffu + ((size >> 13) & 1u)) >> 13;
    } else {
        // A sum with 0.5 leaves multiples of 2^-24, the steps of subnormal halves, in its lowest bits.
        half = bitsFromFloat(floatFromBits(size) + 0.5f) - 0x3f000000u;
    }
    return static_cast<std::uint16_t>(sign | half);
}

}  // namespace v1
}  // namespace MUtils
