#include "support/half_float.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace MUtils;

namespace {

double valueOf(std::uint16_t half) {
    const int exponent = half >> 10 & 31, fraction = half & 1023;
    const double size =
        exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(1024 + fraction, exponent - 25);
    return half & 0x8000 ? -size : size;
}

// Every half comes back, and what lies between two goes to the nearer one, in the middle to the even one.
TEST(HalfFloat, RoundsToTheNearest) {
    for (std::uint16_t half = 0; half < 0x7c00; ++half) {
        const double own = valueOf(half), next = valueOf(static_cast<std::uint16_t>(half + 1));
        const auto middle = static_cast<float>((own + next) / 2);
        const auto even = static_cast<std::uint16_t>(half + (half & 1));
        for (const float sign : {1.0f, -1.0f}) {
            const auto signed_ = [sign](std::uint16_t bits) { return sign < 0 ? bits | 0x8000 : +bits; };
            ASSERT_EQ(halfFromFloat(sign * static_cast<float>(own)), signed_(half));
            ASSERT_EQ(halfFromFloat(sign * middle), signed_(even)) << middle;
            ASSERT_EQ(halfFromFloat(sign * std::nextafter(middle, 0.0f)), signed_(half)) << middle;
            ASSERT_EQ(halfFromFloat(sign * std::nextafter(middle, 1e9f)),
                      signed_(static_cast<std::uint16_t>(half + 1)));
        }
    }
    EXPECT_EQ(halfFromFloat(std::numeric_limits<float>::infinity()), 0x7c00);
    EXPECT_EQ(halfFromFloat(-3e38f), 0xfc00);
    EXPECT_EQ(halfFromFloat(std::numeric_limits<float>::denorm_min()), 0);
    EXPECT_EQ(halfFromFloat(std::numeric_limits<float>::quiet_NaN()) & 0x7e00, 0x7e00);
}

}  // namespace
