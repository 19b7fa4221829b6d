#include "exr/half_convert.h"

#include <gtest/gtest.h>
#include <half.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace {

using Convert = void (*)(float*, std::int64_t);
using Slots = std::vector<std::uint32_t>;

// The slots' bits after the conversion.
Slots converted(Convert convert, const Slots& bits) {
    std::vector<float> data(bits.size());
    std::memcpy(data.data(), bits.data(), bits.size() * 4);
    convert(data.data(), static_cast<std::int64_t>(data.size()));
    Slots result(bits.size());
    std::memcpy(result.data(), data.data(), bits.size() * 4);
    return result;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return bits;
}

// What a slot must hold, from the table that turns halves back into floats: the nearer neighbour, the even
// one on a tie.
std::uint32_t expectedSlot(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, 4);
    const double magnitude = std::fabs(value);
    if (!(magnitude > 0)) return bits & 0xffff0000u;
    std::uint32_t low = 0, high = 0x7c00;  // grow with the values they stand for
    while (high - low > 1) {
        const std::uint32_t middle = (low + high) / 2;
        half candidate;
        candidate.setBits(static_cast<unsigned short>(middle));
        (static_cast<double>(candidate) <= magnitude ? low : high) = middle;
    }
    half lower, upper;
    lower.setBits(static_cast<unsigned short>(low));
    upper.setBits(static_cast<unsigned short>(high));
    const double top = high == 0x7c00 ? 65536.0 : static_cast<double>(upper);
    const double below = magnitude - static_cast<double>(lower), above = top - magnitude;
    const std::uint32_t nearest = below < above || (below == above && low % 2 == 0) ? low : high;
    return (bits & 0xffff0000u) | (bits >> 31 << 15) | nearest;
}

class HalfConversion : public testing::TestWithParam<Convert> {
  protected:
    void SetUp() override {
        if (GetParam() == convertFloatsToHalfF16C && !hasHalfInstructions()) GTEST_SKIP() << "no F16C here";
    }
};

TEST_P(HalfConversion, NamedValues) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        std::uint32_t half;
    } rows[] = {{1.0f, 0x3c00},
                {-2.0f, 0xc000},
                {0.0f, 0},
                {-0.0f, 0},
                {NAN, 0},
                {-NAN, 0},
                {65504.0f, 0x7bff},
                {65519.996f, 0x7bff},
                {65520.0f, 0x7c00},
                {-kInfinity, 0xfc00},
                {-1e-10f, 0x8000},
                {0x1p-25f, 0},
                {0x1.000002p-25f, 1},
                {-0x1p-24f, 0x8001},
                {0x1.004p0f, 0x3c01},
                {0x1.002p0f, 0x3c00},
                {0x1.006p0f, 0x3c02},
                {-65536.0f, 0xfc00},
                {0x1p-14f, 0x400},
                {1e-45f, 0}};
    for (const auto& row : rows)
        // The slot's upper half stays. Once alone and once in a full vector.
        for (const std::size_t count : {1u, 8u}) {
            const Slots slots = converted(GetParam(), Slots(count, bitsOf(row.value)));
            EXPECT_EQ(slots, Slots(count, (bitsOf(row.value) & 0xffff0000u) | row.half)) << row.value;
        }
}

TEST_P(HalfConversion, EveryUpperHalfIsRoundedToNearest) {
    Slots bits;
    for (std::uint32_t upper = 0; upper < 0x10000; ++upper)
        for (const std::uint32_t lower :
             {0x0000u, 0x0001u, 0x0fffu, 0x1000u, 0x1001u, 0x3000u, 0x8000u, 0xf000u, 0xffffu})
            bits.push_back(upper << 16 | lower);
    const Slots slots = converted(GetParam(), bits);
    for (std::size_t i = 0; i < bits.size(); ++i)
        ASSERT_EQ(slots[i], expectedSlot(bits[i])) << std::hex << bits[i];
}

TEST_P(HalfConversion, TouchesTheGivenSlotsOnly) {
    for (const int count : {-1, 0, 1, 7, 8, 9, 15, 16, 17, 31}) {
        std::vector<float> data(40, 3.0f);
        GetParam()(data.data() + 1, count);  // not aligned to a vector
        Slots expected(40, bitsOf(3.0f)), actual(40);
        for (int i = 0; i < count; ++i)
            expected[static_cast<std::size_t>(i) + 1] = 0x40404200;
        std::memcpy(actual.data(), data.data(), 160);
        expected.resize(40);
        EXPECT_EQ(actual, expected) << count;
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, HalfConversion,
                         testing::Values(convertFloatsToHalf, convertFloatsToHalfPlain,
                                         convertFloatsToHalfF16C));

#if defined(__SSE__)
// Render threads often flush subnormals, and some change the rounding.
TEST(HalfPaths, AgreeInEveryFloatingPointMode) {
    if (!hasHalfInstructions()) GTEST_SKIP() << "no F16C here";
    Slots bits;
    for (std::uint32_t i = 0; i < 1u << 20; ++i)
        bits.push_back(i * 4099u);
    const unsigned before = _mm_getcsr();
    for (const unsigned rounding : {_MM_ROUND_NEAREST, _MM_ROUND_UP, _MM_ROUND_DOWN, _MM_ROUND_TOWARD_ZERO}) {
        constexpr unsigned kSubnormalsAreZero = 0x8040;
        _mm_setcsr((before & ~0x6000u) | rounding | kSubnormalsAreZero);
        const bool same =
            converted(convertFloatsToHalfPlain, bits) == converted(convertFloatsToHalfF16C, bits);
        _mm_setcsr(before);
        EXPECT_TRUE(same) << rounding;
    }
}
#endif

// All 2^32 floats; some minutes. Run with --gtest_also_run_disabled_tests.
TEST(HalfPaths, DISABLED_AgreeOnEveryFloat) {
    ASSERT_TRUE(hasHalfInstructions());
    Slots bits(1u << 20);
    for (std::uint32_t block = 0; block < 1u << 12; ++block) {
        for (std::uint32_t i = 0; i < bits.size(); ++i)
            bits[i] = block << 20 | i;
        const Slots plain = converted(convertFloatsToHalfPlain, bits);
        ASSERT_EQ(plain, converted(convertFloatsToHalfF16C, bits)) << block;
        for (std::size_t i = 0; i < bits.size(); i += 17)
            ASSERT_EQ(plain[i], expectedSlot(bits[i])) << bits[i];
    }
}

}  // namespace
