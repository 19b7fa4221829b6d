#include "rawimage/tools/channel_display.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/bytes.h"

namespace MUtils {

namespace {

constexpr std::size_t kMaxSamples = 1 << 16;
constexpr float kNothingThere = 1e20f;  // renderers mark an empty background with a depth beyond this

// How near a depth is: its inverse, which spreads what is close and lets an endless ground fade out. 0 where
// nothing is: depths of 0 and beyond kNothingThere are how renderers mark that. The sign is the axis's
// business.
float nearness(float depth) {
    const float distance = std::fabs(depth);
    return distance > 0.0f && distance < kNothingThere ? 1.0f / distance : 0.0f;
}

// A colour of its own for each id, bright enough to be told from the black of "no object".
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

}  // namespace

ChannelDisplay::ChannelDisplay(const ShownChannel& channel, float exposure) : gain_(std::exp2(exposure)) {
    switch (channel.type) {
        case RCT_FLOAT: kind_ = channel.alias == RCA_DEPTH ? Kind::kDepth : Kind::kRange; break;
        case RCT_FLOAT2: kind_ = Kind::kVector2; break;
        case RCT_VECTOR: kind_ = Kind::kVector3; break;
        case RCT_INT: kind_ = Kind::kId; break;
        default: kind_ = channel.alias == RCA_ALPHA ? Kind::kGrey : Kind::kColour; break;
    }
}

// Takes every stride-th value and halves the samples when they grow too many, so that they stay even over the
// frame.
void ChannelDisplay::addToRange(const MBVTable& data, int count) {
    const int floats = kind_ == Kind::kVector2 ? 2 : 1;
    for (int i = 0; i < count; ++i, ++seen_) {
        if (seen_ % stride_ != 0) continue;
        for (int c = 0; c < floats; ++c) {
            const float stored = loadF32(data.item(i) + 4 * c);
            const float value = kind_ == Kind::kDepth ? nearness(stored) : stored;
            const bool counts = kind_ == Kind::kDepth ? value > 0.0f : std::fabs(value) < kNothingThere;
            if (counts) samples_.push_back(value);
        }
        if (samples_.size() < kMaxSamples) continue;
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
                rgb[i] = loadF32(value + 4 * i);
            return;
        case Kind::kGrey: rgb[0] = rgb[1] = rgb[2] = loadF32(value); return;
        case Kind::kRange: rgb[0] = rgb[1] = rgb[2] = spread(loadF32(value)); return;
        case Kind::kDepth: {
            // Even the farthest thing is brighter than nothing.
            const float near = nearness(loadF32(value));
            rgb[0] = rgb[1] = rgb[2] = near > 0.0f ? 0.1f + 0.9f * spread(near) : 0.0f;
            return;
        }
        case Kind::kVector2:
            rgb[0] = spread(loadF32(value));
            rgb[1] = spread(loadF32(value + 4));
            rgb[2] = 0.5f;
            return;
        case Kind::kVector3:
            for (int i = 0; i < 3; ++i)
                rgb[i] = 0.5f + 0.5f * loadF32(value + 4 * i);
            return;
        case Kind::kId: colourOfId(loadU32(value), rgb); return;
    }
}

void ChannelDisplay::convert(const MBVTable& data, int count, MBVTable& colours) const {
    constexpr int kColourBytes = 12;
    colours.initReusing(count, kColourBytes, 0x2000000);
    for (int i = 0; i < std::min(count, colours.count); ++i) {
        float rgb[3];
        shown(data.item(i), rgb);
        std::memcpy(colours.item(i), rgb, sizeof rgb);
    }
}

void ChannelDisplay::correct(float rgb[3]) {
    if (kind_ != Kind::kColour) return;
    for (int i = 0; i < 3; ++i)
        rgb[i] = srgbFromLinear(rgb[i] * gain_);
}

bool ChannelRangeCallback::setImageData(const MBVTable& data, int count, int, int, int, int, int, int, int) {
    display_.addToRange(data, count);
    return true;
}

ChannelDrawCallback::ChannelDrawCallback(const ShownChannel& channel, ChannelDisplay& display, RGB24* out,
                                         int outWidth, int outHeight, bool keepAspect)
    : OneChannelCallback(channel),
      display_(display),
      drawer_(out, outWidth, outHeight, keepAspect, &display) {
    drawer_.setChannel(channel.index, channel.type, RCA_COLOR, channel.name.c_str());
}

bool ChannelDrawCallback::setResolution(int w, int h, float aspect) {
    return drawer_.setResolution(w, h, aspect);
}

// What the tag's own id says of the value size may differ from the list's type; such a tag is not this
// channel's.
bool ChannelDrawCallback::setImageData(const MBVTable& data, int count, int channel, int x, int y, int width,
                                       int height, int w28, int w32) {
    const RIF_PIXEL_KIND* kind = findChannelKind(channel_.type);
    if (kind == nullptr || (count > 0 && data.itemSize != kind->valueSize)) return true;
    display_.convert(data, count, colours_);
    return drawer_.setImageData(colours_, count, channel, x, y, width, height, w28, w32);
}

}  // namespace MUtils
