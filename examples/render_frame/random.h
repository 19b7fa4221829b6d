#pragma once

#include <cmath>
#include <cstdint>

#include "examples/render_frame/vec.h"

namespace render_frame {

// Spreads every bit of `v` over the whole result.
constexpr uint64_t scramble(uint64_t v) {
    v = (v ^ (v >> 30)) * 0xBF58476D1CE4E5B9u;
    v = (v ^ (v >> 27)) * 0x94D049BB133111EBu;
    return v ^ (v >> 31);
}

// A stream of random numbers that is a function of its key alone: number n is the scrambled n-th step
// from the key. Two streams with different keys have nothing to do with each other.
class Random {
  public:
    Random(uint64_t seed, uint64_t pixel, uint64_t sample)
        : state_(scramble(scramble(scramble(seed) ^ pixel) + sample)) {}

    // 0 <= result < 1, in steps of 2^-24.
    float next() {
        state_ += 0x9E3779B97F4A7C15u;
        return static_cast<float>(scramble(state_) >> 40) * 0x1p-24f;
    }

    Vec2 next2() {
        const float x = next();
        return {x, next()};
    }

  private:
    uint64_t state_;
};

// A point of the unit disk for a point of the unit square, both evenly spread.
inline Vec2 toDisk(Vec2 u) {
    const float radius = std::sqrt(u.x), angle = 6.2831853f * u.y;
    return {radius * std::cos(angle), radius * std::sin(angle)};
}

// A direction in the cone around +z that ends at `cosAngle`, evenly spread over its solid angle.
inline Vec3 toCone(Vec2 u, float cosAngle) {
    const float z = 1 - u.x * (1 - cosAngle);
    const float radius = std::sqrt(std::fmax(0.0f, 1 - z * z)), angle = 6.2831853f * u.y;
    return {radius * std::cos(angle), radius * std::sin(angle), z};
}

// A direction around +z, spread as the cosine to it.
inline Vec3 toCosineHemisphere(Vec2 u) {
    const Vec2 d = toDisk(u);
    return {d.x, d.y, std::sqrt(std::fmax(0.0f, 1 - u.x))};
}

}  // namespace render_frame
