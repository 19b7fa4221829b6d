#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "bench/frame.h"

using namespace MUtils;

namespace bench {

namespace {

constexpr int kSide = 1024;  // that the balls are spread over
constexpr int kBucket = 64;
constexpr int kBalls = 24;

struct Kind {
    RegionChannelType type;
    RegionChannelAlias alias;
    const char* name;
};
constexpr Kind kKinds[] = {{RCT_COLOR, RCA_COLOR, "color"},  {RCT_COLOR, RCA_ALPHA, "alpha"},
                           {RCT_FLOAT, RCA_DEPTH, "depth"},  {RCT_COLOR, RCA_NONE, "diffuse"},
                           {RCT_VECTOR, RCA_NONE, "normal"}, {RCT_FLOAT2, RCA_NONE, "motion"}};

// To the precision of a half, as values come back from the files that compositors work on.
float rounded(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    bits &= ~std::uint32_t{0x1fff};
    std::memcpy(&value, &bits, sizeof bits);
    return value;
}

struct Ball {
    float x, y, radius, shade;
};

Ball ballAt(int index) {
    const auto part = [index](float step) { return std::fmod(static_cast<float>(index + 1) * step, 1.0f); };
    return {kSide * part(0.7549f), kSide * part(0.5698f), 30 + 100 * part(0.618f), 0.2f + part(0.41f)};
}

// What a pixel has of each channel, one after the other.
using Pixel = std::array<float, 15>;

Pixel pixelAt(int x, int y) {
    Pixel pixel{};
    for (int i = 0; i < kBalls; ++i) {
        const Ball ball = ballAt(i);
        const float dx = (static_cast<float>(x) - ball.x) / ball.radius;
        const float dy = (static_cast<float>(y) - ball.y) / ball.radius;
        const float height = 1 - dx * dx - dy * dy;
        if (height <= 0) continue;
        const float z = std::sqrt(height);
        const float light = ball.shade * std::max(0.0f, 0.6f * z - 0.5f * dx - 0.6f * dy);
        pixel = {light, light * 0.8f, light * 0.5f, 1,  1, 1, 100 - z, ball.shade,
                 light, light,        dx,           dy, z, 1, 0.25f};
    }
    for (float& value : pixel)
        value = rounded(value);
    return pixel;
}

}  // namespace

Frame makeCleanFrame(int side) {
    Frame frame;
    frame.width = frame.height = side;
    for (const Kind& kind : kKinds)
        frame.channels.push_back(
            makeChannel(static_cast<int>(frame.channels.size()), kind.type, kind.alias, 0, kind.name));
    for (int place = 0; place < side / kBucket * (side / kBucket); ++place) {
        Bucket bucket;
        bucket.x = place % (side / kBucket) * kBucket, bucket.y = place / (side / kBucket) * kBucket;
        bucket.width = bucket.height = kBucket;
        for (const Kind& kind : kKinds)
            bucket.values.push_back(makeTable(kBucket * kBucket, findChannelKind(kind.type)->valueSize));
        for (int i = 0; i < kBucket * kBucket; ++i) {
            const Pixel pixel = pixelAt(bucket.x + i % kBucket, bucket.y + i / kBucket);
            const float* from = pixel.data();
            for (const auto& values : bucket.values) {
                std::memcpy(values->item(i), from, static_cast<std::size_t>(values->itemSize));
                from += values->itemSize / static_cast<int>(sizeof(float));
            }
        }
        frame.buckets.push_back(std::move(bucket));
    }
    return frame;
}

}  // namespace bench
