#include "exr/half_convert.h"

#include <gtest/gtest.h>
#include <half.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <vector>

#if defined(__SSE__)
#include <xmmintrin.h>

using namespace MUtils;
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

// What a slot must hold by OpenEXR's own halves; not-a-number and both zeros are 0.
std::uint32_t expectedSlot(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, 4);
    return (bits & 0xffff0000u) | (std::fabs(value) > 0 ? half(value).bits() : 0u);
}

struct Path {
    const char* name;
    Convert convert;
};

void PrintTo(const Path& path, std::ostream* out) {
    *out << path.name;
}

class HalfConversion : public testing::TestWithParam<Path> {
  protected:
    void SetUp() override {
        if (convert_ == convertFloatsToHalfF16C && !hasHalfInstructions()) GTEST_SKIP() << "no F16C here";
    }

    const Convert convert_ = GetParam().convert;
};

TEST_P(HalfConversion, NamedValues) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        std::uint32_t half;
    } rows[] = {{1.0f, 0x3c00},       {0.0f, 0},
                {-0.0f, 0},           {NAN, 0},
                {65504.0f, 0x7bff},   {65520.0f, 0x7c00},
                {-kInfinity, 0xfc00}, {0x1p-25f, 0},
                {0x1.000002p-25f, 1}, {0x1.004p0f, 0x3c01},
                {0x1.006p0f, 0x3c02}, {1e-45f, 0}};
    for (const auto& row : rows)
        // The slot's upper half stays. Once alone and once in a full vector.
        for (const std::size_t count : {1u, 8u}) {
            const Slots slots = converted(convert_, Slots(count, bitsOf(row.value)));
            EXPECT_EQ(slots, Slots(count, (bitsOf(row.value) & 0xffff0000u) | row.half)) << row.value;
        }
}

TEST_P(HalfConversion, EveryUpperHalfIsRoundedToNearest) {
    Slots bits;
    for (std::uint32_t upper = 0; upper < 0x10000; ++upper)
        for (const std::uint32_t lower :
             {0x0000u, 0x0001u, 0x0fffu, 0x1000u, 0x1001u, 0x3000u, 0x8000u, 0xf000u, 0xffffu})
            bits.push_back(upper << 16 | lower);
    const Slots slots = converted(convert_, bits);
    for (std::size_t i = 0; i < bits.size(); ++i)
        ASSERT_EQ(slots[i], expectedSlot(bits[i])) << std::hex << bits[i];
}

TEST_P(HalfConversion, TouchesTheGivenSlotsOnly) {
    for (const int count : {-1, 0, 1, 7, 8, 9, 15, 16, 17, 31}) {
        std::vector<float> data(40, 3.0f);
        convert_(data.data() + 1, count);  // not aligned to a vector
        Slots expected(40, bitsOf(3.0f)), actual(40);
        for (int i = 0; i < count; ++i)
            expected[static_cast<std::size_t>(i) + 1] = 0x40404200;
        std::memcpy(actual.data(), data.data(), 160);
        expected.resize(40);
        EXPECT_EQ(actual, expected) << count;
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, HalfConversion,
                         testing::Values(Path{"Chosen", convertFloatsToHalf},
                                         Path{"Plain", convertFloatsToHalfPlain},
                                         Path{"F16C", convertFloatsToHalfF16C}),
                         testing::PrintToStringParamName());

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

}  // namespace
