#include "rawimage/tools/channel_display.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "rawimage/tools/channel_names.h"
#include "support/bytes.h"
#include "support/preview_drawing.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr float kNothingThere = 1e20f;  // renderers mark an empty background with a depth beyond this

// How near a depth is: its inverse, which spreads what is close and lets an endless ground fade out. 0 where
// nothing is: depths of 0 and beyond kNothingThere are how renderers mark that. The sign is the axis's
// business.
float nearness(float depth) {
    const float distance = std::fabs(depth);
    return distance > 0.0f && distance < kNothingThere ? 1.0f / distance : 0.0f;
}

// A colour of its own for each id, bright enough to differ from the black of "no object".
void colourOfId(std::uint32_t id, float rgb[3]) {
    std::uint32_t hash = id;
    for (int round = 0; round < 2; ++round) {
        hash ^= hash >> 16;
        hash *= 0x45d9f3bu;
    }
    hash ^= hash >> 16;
    for (int i = 0; i < 3; ++i) {
        const auto byte = static_cast<float>(hash >> (8 * i) & 0xff);
        rgb[i] = id == 0 ? 0.0f : 0.25f + 0.75f * byte / 255.0f;
    }
}

bool isLuminance(const std::string& channelName) {
    const std::string name = lowerCase(channelName);
    return name == "y" || name.find("luminance") != std::string::npos ||
           name.substr(name.rfind('.') + 1) == "luma";
}

bool isColourAlias(RegionChannelAlias alias) {
    return alias == RCA_IMAGE || alias == RCA_COLOR;
}

// Floats whose bits are a hash are seldom between the inverse of this and this, in which colours are.
constexpr float kLarge = 16777216.0f;

bool isCoverage(float value) {
    return value >= 0.0f && value <= 1.0f;
}

}  // namespace

ChannelDisplay::Kind ChannelDisplay::guess(const FrameChannel& channel) {
    switch (channel.type) {
        case RCT_FLOAT:
            if (channel.alias == RCA_DEPTH) return Kind::kDepth;
            return isColourAlias(channel.alias) || isLuminance(channel.name) ? Kind::kColour : Kind::kRange;
        case RCT_FLOAT2: return namesCryptoIds(channel.name) ? Kind::kId : Kind::kVector2;
        case RCT_VECTOR: return Kind::kVector;
        case RCT_INT: return Kind::kId;
        default: break;
    }
    if (channel.alias == RCA_ALPHA) return Kind::kGrey;
    const bool ids =
        channel.type == RCT_FLOAT4 && !isColourAlias(channel.alias) && namesCryptoIds(channel.name);
    return ids ? Kind::kId : Kind::kColour;
}

ChannelDisplay::Kind ChannelDisplay::kindOf(const FrameChannel& channel, ChannelView view) {
    switch (view) {
        case ChannelView::kId: return Kind::kId;
        case ChannelView::kColour: return Kind::kColour;
        case ChannelView::kVector: return channel.type == RCT_FLOAT2 ? Kind::kVector2 : Kind::kVector;
        case ChannelView::kDepth: return Kind::kDepth;
        case ChannelView::kGuess: break;
    }
    return guess(channel);
}

ChannelDisplay::ChannelDisplay(const FrameChannel& channel, ChannelView view, float exposure)
    : integer_(channel.type == RCT_INT),
      kind_(kindOf(channel, view)),
      namedCrypto_(namesCryptoIds(channel.name)),
      gain_(std::exp2(exposure)) {
    components_ = std::max(channel.components(), 1);
    const bool mayBeIds =
        view == ChannelView::kGuess && kind_ == Kind::kColour && !isColourAlias(channel.alias);
    needsIdTest_ = (kind_ == Kind::kId && components_ % 2 == 0) || (mayBeIds && components_ == 4);
}

float ChannelDisplay::component(const unsigned char* value, int index) const {
    if (integer_) return static_cast<float>(loadI32(value));
    return loadF32(value + 4 * index);
}

void ChannelDisplay::addValues(const unsigned char* values, std::int64_t count) {
    if (needsRange()) addToRange(values, count);
    if (needsIdTest_) addToIdTest(values, count);
}

void ChannelDisplay::finishValues() {
    if (needsRange()) finishRange();
    if (!needsIdTest_) return;
    // Filters with negative lobes give a few coverages that are none. Small numbers alone are a dark picture.
    const bool mayBePairs = idTest_.outside <= idTest_.values / 100;
    const bool idLike = idTest_.large > 0 && idTest_.wild > idTest_.values / 2;
    pairs_ = mayBePairs && (idLike || namedCrypto_);
    if (mayBePairs && idLike) kind_ = Kind::kId;
}

void ChannelDisplay::addToIdTest(const unsigned char* values, std::int64_t count) {
    for (std::int64_t i = 0; i < count && idTest_.values < kMaxSamples; ++i) {
        const unsigned char* value = values + 4 * components_ * i;
        const float first = loadF32(value);
        if (first == 0.0f) continue;
        ++idTest_.values;
        const float size = std::fabs(first);
        if (!(size <= kLarge)) ++idTest_.large;
        if (!(size <= kLarge && size >= 1 / kLarge)) ++idTest_.wild;
        const bool paired =
            isCoverage(loadF32(value + 4)) && (components_ < 4 || isCoverage(loadF32(value + 12)));
        if (!paired) ++idTest_.outside;
    }
}

// Takes every stride-th value and halves the samples when they grow too many, so that they stay even over the
// frame.
void ChannelDisplay::addToRange(const unsigned char* values, std::int64_t count) {
    const int floats = kind_ == Kind::kVector2 ? 2 : 1;
    for (std::int64_t i = 0; i < count; ++i, ++seen_) {
        if (seen_ % stride_ != 0) continue;
        for (int c = 0; c < floats; ++c) {
            const float stored = component(values + 4 * components_ * i, c);
            const float value = kind_ == Kind::kDepth ? nearness(stored) : stored;
            const bool counts = kind_ == Kind::kDepth ? value > 0.0f : std::fabs(value) < kNothingThere;
            if (counts) samples_.push_back(value);
        }
        if (samples_.size() < static_cast<std::size_t>(kMaxSamples)) continue;
        for (std::size_t s = 0; 2 * s < samples_.size(); ++s)
            samples_[s] = samples_[2 * s];
        samples_.resize((samples_.size() + 1) / 2);
        stride_ *= 2;
    }
}

// Single values far from the rest would leave no contrast for it, so the outermost hundredth is clipped.
void ChannelDisplay::finishRange() {
    if (samples_.empty()) return;
    std::sort(samples_.begin(), samples_.end());
    const std::size_t clipped = samples_.size() / 100;
    low_ = samples_[clipped];
    high_ = samples_[samples_.size() - 1 - clipped];
    if (kind_ == Kind::kVector2) {
        high_ = std::max(std::fabs(low_), std::fabs(high_));
        low_ = -high_;
    } else if (kind_ == Kind::kRange && samples_.front() >= 0.0f && samples_.back() <= 1.0f) {
        low_ = 0.0f;
        high_ = 1.0f;
    }
    if (!(high_ > low_)) high_ = low_ + 1.0f;
    samples_.clear();
}

void ChannelDisplay::shown(const unsigned char* value, float rgb[3]) const {
    const auto spread = [this](float v) { return std::clamp((v - low_) / (high_ - low_), 0.0f, 1.0f); };
    switch (kind_) {
        case Kind::kColour:
            for (int i = 0; i < 3; ++i)
                rgb[i] = components_ == 1  ? component(value, 0)
                         : i < components_ ? component(value, i)
                                           : 0.0f;
            return;
        case Kind::kGrey: rgb[0] = rgb[1] = rgb[2] = component(value, 0); return;
        case Kind::kRange: rgb[0] = rgb[1] = rgb[2] = spread(component(value, 0)); return;
        case Kind::kDepth: {
            // Even the farthest thing is brighter than nothing.
            const float near = nearness(component(value, 0));
            rgb[0] = rgb[1] = rgb[2] = near > 0.0f ? 0.1f + 0.9f * spread(near) : 0.0f;
            return;
        }
        case Kind::kVector2:
            rgb[0] = spread(component(value, 0));
            rgb[1] = spread(component(value, 1));
            rgb[2] = 0.5f;
            return;
        case Kind::kVector:
            for (int i = 0; i < 3; ++i)
                rgb[i] = 0.5f + 0.5f * component(value, components_ == 1 ? 0 : i);
            return;
        case Kind::kId: shownId(value, rgb); return;
    }
}

// The second of two pairs fills the edges, where the first covers less than the pixel. Values that are no
// pairs are ids as a whole.
void ChannelDisplay::shownId(const unsigned char* value, float rgb[3]) const {
    if (!pairs_) {
        std::uint32_t id = loadU32(value);
        for (int c = 1; c < components_; ++c)
            id = id * 0x01000193u ^ loadU32(value + 4 * c);
        colourOfId(id, rgb);
        return;
    }
    rgb[0] = rgb[1] = rgb[2] = 0.0f;
    for (int pair = 0; pair < components_ / 2; ++pair) {
        float colour[3];
        colourOfId(loadU32(value + 8 * pair), colour);
        const float coverage = std::clamp(loadF32(value + 8 * pair + 4), 0.0f, 1.0f);
        for (int i = 0; i < 3; ++i)
            rgb[i] += coverage * colour[i];
    }
}

void ChannelDisplay::colours(const unsigned char* values, int count, float* rgb) const {
    for (int i = 0; i < count; ++i, rgb += 3)
        shown(values + 4 * components_ * i, rgb);
}

void ChannelDisplay::correct(float rgb[3]) {
    if (kind_ != Kind::kColour) return;
    for (int i = 0; i < 3; ++i)
        rgb[i] = srgbFromLinear(rgb[i] * gain_);
}

bool ChannelValues::visit(const FrameBucket& bucket) {
    if (bucket.components == display_.components()) display_.addValues(bucket.values, bucket.box.area());
    return !display_.hasSeenEnough();
}

ChannelDrawing::ChannelDrawing(ChannelDisplay& display, const PixelBox& frame, bool keepAspect,
                               Picture& picture)
    : display_(display),
      canvas_(picture.pixels.data(), picture.width, picture.height, keepAspect, nullptr),
      picture_(picture) {
    canvas_.setResolution(static_cast<int>(frame.width()), static_cast<int>(frame.height()), 1.0f);
}

bool ChannelDrawing::visit(const FrameBucket& bucket) {
    struct Values final : PixelSource {
        Values(const ChannelDisplay& shownBy, const FrameBucket& of) : display(shownBy), bucket(of) {}
        void colours(std::int64_t first, int n, float* rgb) const override {
            display.colours(bucket.values + 4 * bucket.components * first, n, rgb);
        }
        const ChannelDisplay& display;
        const FrameBucket& bucket;
    };
    const auto moved = [](std::int64_t position, int offset) {
        return static_cast<int>(std::clamp<std::int64_t>(position + offset, INT_MIN, INT_MAX));
    };
    if (bucket.components != display_.components()) return true;
    const PixelBox& box = bucket.box;
    drawBucket(Values(display_, bucket),
               {moved(box.x0, canvas_.horizontalOffset()), moved(box.y0, canvas_.verticalOffset()),
                static_cast<int>(box.width()), static_cast<int>(box.height())},
               {canvas_.canvasWidth(), canvas_.canvasHeight(), picture_.pixels.data(), picture_.width,
                picture_.height},
               &display_);
    return true;
}

}  // namespace v1
}  // namespace MUtils
