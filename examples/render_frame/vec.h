#pragma once

#include <cmath>

namespace render_frame {

// Two floats: a position or a distance on the screen, in pixels.
struct Vec2 {
    float x = 0, y = 0;
};

constexpr Vec2 operator+(Vec2 a, Vec2 b) {
    return {a.x + b.x, a.y + b.y};
}
constexpr Vec2 operator-(Vec2 a, Vec2 b) {
    return {a.x - b.x, a.y - b.y};
}
constexpr Vec2 operator*(Vec2 a, float s) {
    return {a.x * s, a.y * s};
}

// Three floats: a point or direction (y is up), or a linear colour (x red, y green, z blue).
struct Vec3 {
    float x = 0, y = 0, z = 0;
};

constexpr Vec3 operator+(Vec3 a, Vec3 b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vec3 operator-(Vec3 a, Vec3 b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vec3 operator-(Vec3 a) {
    return {-a.x, -a.y, -a.z};
}
constexpr Vec3 operator*(Vec3 a, Vec3 b) {
    return {a.x * b.x, a.y * b.y, a.z * b.z};
}
constexpr Vec3 operator*(Vec3 a, float s) {
    return {a.x * s, a.y * s, a.z * s};
}
constexpr Vec3& operator+=(Vec3& a, Vec3 b) {
    return a = a + b;
}
constexpr Vec3& operator*=(Vec3& a, Vec3 b) {
    return a = a * b;
}

constexpr float dot(Vec3 a, Vec3 b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
constexpr Vec3 cross(Vec3 a, Vec3 b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
constexpr Vec3 mix(Vec3 a, Vec3 b, float t) {
    return a * (1 - t) + b * t;
}

inline float length(Vec3 a) {
    return std::sqrt(dot(a, a));
}
inline Vec3 normalize(Vec3 a) {
    return a * (1 / length(a));
}
inline float maxComponent(Vec3 a) {
    return std::fmax(a.x, std::fmax(a.y, a.z));
}

// Mirrors the incoming direction `d` at a surface with unit normal `n`.
constexpr Vec3 reflect(Vec3 d, Vec3 n) {
    return d - n * (2 * dot(d, n));
}

// Three unit axes at right angles to each other, z along a given unit vector.
struct Frame {
    Vec3 x, y, z;

    explicit Frame(Vec3 axis) : z(axis) {
        const Vec3 helper = std::fabs(axis.y) < 0.9f ? Vec3{0, 1, 0} : Vec3{1, 0, 0};
        x = normalize(cross(helper, axis));
        y = cross(axis, x);
    }
    Vec3 toWorld(Vec3 v) const { return x * v.x + y * v.y + z * v.z; }
};

}  // namespace render_frame
