#include "rawimage/frame/target_memory.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "support/bytes.h"
#include "support/half_float.h"

namespace MUtils {
inline namespace v1 {

namespace {

std::size_t bytesOfPixel(const ChannelTarget& target) {
    return static_cast<std::size_t>(target.components()) * static_cast<std::size_t>(target.componentBytes());
}

std::int32_t nearestInteger(double value) {
    constexpr double kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr double kMost = std::numeric_limits<std::int32_t>::max();
    return std::isnan(value) ? 0 : static_cast<std::int32_t>(std::lround(std::clamp(value, kLeast, kMost)));
}

// Rows of a large picture lie pages apart: each costs a wait for memory unless it is asked for in advance.
constexpr std::int64_t kRowsAhead = 4;

void fetch(const unsigned char* row, std::size_t size) {
    constexpr std::size_t kLine = 64;
    for (std::size_t at = 0; at < size; at += kLine)
        __builtin_prefetch(row + at, 1);
}

// The half of four stored bytes.
std::uint16_t halfOf(const unsigned char* stored, bool isInteger) {
    return halfFromFloat(isInteger ? static_cast<float>(loadI32(stored)) : loadF32(stored));
}

}  // namespace

TargetMemory::TargetMemory(const ChannelTarget& target, const PixelBox& box)
    : box_(box),
      data_(static_cast<unsigned char*>(target.data)),
      pixelStride_(target.pixelStride != 0 ? target.pixelStride
                                           : static_cast<std::ptrdiff_t>(bytesOfPixel(target))),
      rowStride_(target.rowStride != 0 ? target.rowStride : pixelStride_ * box.width()),
      componentBytes_(target.componentBytes()),
      componentStride_(target.componentStride != 0 ? target.componentStride : componentBytes_),
      components_(static_cast<std::size_t>(target.components())),
      isInteger_(target.type == RCT_INT),
      isHalf_(target.format == ValueFormat::kHalf),
      fill_{},
      pixelBytes_(bytesOfPixel(target)) {
    const auto value = static_cast<float>(target.fill);
    const std::int32_t integer = nearestInteger(target.fill);
    const std::uint16_t half = halfFromFloat(value);
    for (std::size_t i = 0; i < components_; ++i) {
        if (isHalf_) {
            std::memcpy(fill_ + 2 * i, &half, 2);
        } else if (isInteger_) {
            std::memcpy(fill_ + 4 * i, &integer, 4);
        } else {
            std::memcpy(fill_ + 4 * i, &value, 4);
        }
    }
}

unsigned char* TargetMemory::at(std::int64_t x, std::int64_t y) const {
    return data_ + (x - box_.x0) * pixelStride_ + (y - box_.y0) * rowStride_;
}

// Writes the components of a pixel, which touch each other in `components`.
template <std::size_t kBytes>
void TargetMemory::scatter(unsigned char* to, const unsigned char* components) const {
    for (std::size_t i = 0; i < components_; ++i, to += componentStride_)
        std::memcpy(to, components + kBytes * i, kBytes);
}

// Calls convert(pixel, x, y) for each pixel with its place in memory.
template <class Convert>
void TargetMemory::eachPixel(const PixelBox& part, Convert convert) const {
    for (std::int64_t y = part.y0; y < part.y1; ++y) {
        unsigned char* pixel = at(part.x0, y);
        for (std::int64_t x = part.x0; x < part.x1; ++x, pixel += pixelStride_)
            convert(pixel, x, y);
    }
}

void TargetMemory::copy(const PixelBox& part, const PixelBox& bucket, const unsigned char* values) const {
    const std::size_t stored = 4 * components_;
    const auto valueAt = [&](std::int64_t x, std::int64_t y) {
        const std::int64_t pixel = (y - bucket.y0) * bucket.width() + (x - bucket.x0);
        return values + static_cast<std::size_t>(pixel) * stored;
    };
    if (isHalf_) {
        eachPixel(part, [&](unsigned char* to, std::int64_t x, std::int64_t y) {
            const unsigned char* from = valueAt(x, y);
            for (std::size_t i = 0; i < components_; ++i, to += componentStride_) {
                const std::uint16_t half = halfOf(from + 4 * i, isInteger_);
                std::memcpy(to, &half, 2);
            }
        });
    } else if (!touching()) {
        eachPixel(part,
                  [&](unsigned char* to, std::int64_t x, std::int64_t y) { scatter<4>(to, valueAt(x, y)); });
    } else if (pixelStride_ == static_cast<std::ptrdiff_t>(stored)) {
        const std::size_t row = static_cast<std::size_t>(part.width()) * stored;
        for (std::int64_t y = part.y0; y < part.y1; ++y) {
            if (y + kRowsAhead < part.y1) fetch(at(part.x0, y + kRowsAhead), row);
            std::memcpy(at(part.x0, y), valueAt(part.x0, y), row);
        }
    } else {
        eachPixel(part, [&](unsigned char* to, std::int64_t x, std::int64_t y) {
            std::memcpy(to, valueAt(x, y), stored);
        });
    }
}

void TargetMemory::fill(const PixelBox& part) const {
    eachPixel(part, [this](unsigned char* to, std::int64_t, std::int64_t) {
        if (touching()) {
            std::memcpy(to, fill_, pixelBytes_);
        } else {
            isHalf_ ? scatter<2>(to, fill_) : scatter<4>(to, fill_);
        }
    });
}

}  // namespace v1
}  // namespace MUtils
