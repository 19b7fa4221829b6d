#pragma once

#include <cstdint>
#include <cstring>

// Little-endian loads and stores of the fields that the file format is made of. All take unaligned bytes.
// Signed and floating-point values travel as their bit patterns, so every NaN and every negative zero
// survives.

namespace MUtils {
inline namespace v1 {

inline std::uint32_t loadU32(const unsigned char* bytes) {
    return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
           std::uint32_t{bytes[3]} << 24;
}

inline std::uint64_t loadU64(const unsigned char* bytes) {
    return std::uint64_t{loadU32(bytes)} | std::uint64_t{loadU32(bytes + 4)} << 32;
}

inline std::int32_t loadI32(const unsigned char* bytes) {
    return static_cast<std::int32_t>(loadU32(bytes));
}

inline float floatFromBits(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

inline std::uint32_t bitsFromFloat(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline float loadF32(const unsigned char* bytes) {
    return floatFromBits(loadU32(bytes));
}

inline void storeU32(unsigned char* bytes, std::uint32_t value) {
    bytes[0] = static_cast<unsigned char>(value);
    bytes[1] = static_cast<unsigned char>(value >> 8);
    bytes[2] = static_cast<unsigned char>(value >> 16);
    bytes[3] = static_cast<unsigned char>(value >> 24);
}

inline void storeU64(unsigned char* bytes, std::uint64_t value) {
    storeU32(bytes, static_cast<std::uint32_t>(value));
    storeU32(bytes + 4, static_cast<std::uint32_t>(value >> 32));
}

inline void storeI32(unsigned char* bytes, std::int32_t value) {
    storeU32(bytes, static_cast<std::uint32_t>(value));
}

inline void storeF32(unsigned char* bytes, float value) {
    storeU32(bytes, bitsFromFloat(value));
}

}  // namespace v1
}  // namespace MUtils
