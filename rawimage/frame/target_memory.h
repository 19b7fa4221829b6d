#pragma once

#include <cstddef>

#include "rawimage/area/pixel_box.h"
#include "rawimage/frame/raw_frame.h"

namespace MUtils {
inline namespace v1 {

// Writes values of a channel to the caller's memory. Calls for pixels that differ may come on several threads
// at a time.
class TargetMemory {
  public:
    // `box`: the pixels that the target has room for.
    TargetMemory(const ChannelTarget& target, const PixelBox& box);

    // Copies the pixels `part` of a bucket with the pixels `bucket`; both boxes contain it.
    void copy(const PixelBox& part, const PixelBox& bucket, const unsigned char* values) const;
    // Gives every component of the pixels `part` the target's fill value.
    void fill(const PixelBox& part) const;

  private:
    unsigned char* at(std::int64_t x, std::int64_t y) const;
    bool touching() const { return componentStride_ == componentBytes_; }
    template <std::size_t kBytes>
    void scatter(unsigned char* to, const unsigned char* components) const;
    template <class Convert>
    void eachPixel(const PixelBox& part, Convert convert) const;

    const PixelBox box_;
    unsigned char* const data_;
    const std::ptrdiff_t pixelStride_, rowStride_, componentBytes_, componentStride_;
    const std::size_t components_;
    const bool isInteger_, isHalf_;
    unsigned char fill_[16];  // a pixel
    const std::size_t pixelBytes_;
};

}  // namespace v1
}  // namespace MUtils
