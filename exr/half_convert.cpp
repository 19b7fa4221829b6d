#include "exr/half_convert.h"

#include <half.h>

#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace MUtils {
inline namespace v1 {

void convertFloatsToHalfPlain(float* data, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
        const float value = data[i];
        const bool number = value < 0.0f || value > 0.0f;
        const std::uint16_t bits = number ? imath_float_to_half(value) : std::uint16_t{0};
        std::memcpy(data + i, &bits, sizeof bits);
    }
}

#if defined(__x86_64__)

__attribute__((target("avx2,f16c"))) void convertFloatsToHalfF16C(float* data, std::int64_t count) {
    std::int64_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 values = _mm256_loadu_ps(data + i);
        const __m256 isNumber = _mm256_cmp_ps(values, _mm256_setzero_ps(), _CMP_NEQ_OQ);
        const __m128i halves = _mm256_cvtps_ph(_mm256_and_ps(values, isNumber), _MM_FROUND_TO_NEAREST_INT);
        // The even 16-bit lanes, the low ones of each slot, are replaced.
        const __m256i slots =
            _mm256_blend_epi16(_mm256_castps_si256(values), _mm256_cvtepu16_epi32(halves), 0x55);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(data + i), slots);  // a type that may alias any other
    }
    // The tail call would leave the upper halves of the registers dirty, which slows down SSE code such as
    // zlib's.
    _mm256_zeroupper();
    convertFloatsToHalfPlain(data + i, count - i);
}

// __builtin_cpu_supports does not know f16c with every compiler; its answer for avx2 includes that the system
// saves the registers.
bool hasHalfInstructions() {
    static const bool has = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_F16C) != 0 &&
               __builtin_cpu_supports("avx2");
    }();
    return has;
}

#else

void convertFloatsToHalfF16C(float* data, std::int64_t count) {
    convertFloatsToHalfPlain(data, count);
}

bool hasHalfInstructions() {
    return false;
}

#endif

void convertFloatsToHalf(float* data, std::int64_t count) {
    if (hasHalfInstructions()) {
        convertFloatsToHalfF16C(data, count);
    } else {
        convertFloatsToHalfPlain(data, count);
    }
}

}  // namespace v1
}  // namespace MUtils
