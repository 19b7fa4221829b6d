#pragma once

#include <cstdint>

namespace MUtils {
inline namespace v1 {

// Turns `count` floats into half floats in place: the 16 bits go into the first two bytes of each four-byte
// slot, whose other two bytes stay as they are, so OpenEXR reads the result as HALF samples 4 bytes apart.
// Nothing happens when `count` is 0 or less.
//
// The values are those of OpenEXR's conversion (to nearest, ties to even, too large ones to infinity) save
// that a zero of either sign and a NaN become +0. Small negative values still give -0. On a thread that takes
// subnormal floats for zero they count as zero here too; its rounding mode does not matter.
void convertFloatsToHalf(float* data, std::int64_t count);

// The two ways to do so; both give the same bytes.
void convertFloatsToHalfPlain(float* data, std::int64_t count);
// Only where hasHalfInstructions() is true.
void convertFloatsToHalfF16C(float* data, std::int64_t count);

// True when processor and system offer F16C and AVX2; convertFloatsToHalf() uses them then.
bool hasHalfInstructions();

}  // namespace v1
}  // namespace MUtils
