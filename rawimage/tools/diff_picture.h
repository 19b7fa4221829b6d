#pragma once

#include <string>
#include <vector>

#include "rawimage/tools/diff_values.h"

namespace MUtils {
inline namespace v1 {

// Draws how a channel differs.
class DiffPicture {
  public:
    // `frame` is at most kMaxPictureSize in each direction.
    DiffPicture(const PixelBox& frame, const ChannelDiff& channel, const DiffOptions& options);

    void draw(const ValuePair& pair);
    // Pixels that one frame lacks.
    void markLacking(const MissingBoxes& boxes);

    std::vector<RGB24> take() { return std::move(pixels_); }

  private:
    RGB24 colourOf(const std::array<const unsigned char*, 2>& pixel) const;
    unsigned char shadeOf(const unsigned char* a, const unsigned char* b) const;
    RGB24& at(std::int64_t x, std::int64_t y);

    const PixelBox frame_;
    const std::array<std::size_t, 2> pixelBytes_;
    const int components_;
    const bool integer_;
    const DiffOptions& options_;
    std::vector<RGB24> pixels_;
};

}  // namespace v1
}  // namespace MUtils
