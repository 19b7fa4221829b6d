#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/area/missing_boxes.h"
#include "rawimage/area/pixel_box.h"

namespace MUtils {
inline namespace v1 {

// Goes over an area from the top down, one band of rows after another. Within a band no box begins or ends,
// so every row of it is covered in the same columns, which a segment tree keeps.
//
// Takes boxes one by one, clips them, and keeps 16 bytes of each; the work itself takes at most 44 bytes more
// a box, 12 where the boxes form a grid. One of the two results can be asked for, once.
class BoxSweep {
  public:
    // Only what lies in `area` and has coordinates in the range of int32 counts.
    explicit BoxSweep(const PixelBox& area, const std::vector<PixelBox>& boxes = {});

    void reserve(std::size_t boxes) { boxes_.reserve(boxes); }
    void add(const PixelBox& box);

    // As coveredPixels() of coverage.h.
    std::int64_t coveredPixels();

    // What the boxes cover, or what they leave free, as unitedBoxes() and missingBoxes() return them.
    enum class Part { kCovered, kFree };
    MissingBoxes boxesOf(Part part, std::size_t limit);

  private:
    struct ClippedBox {
        std::int32_t x0, y0, x1, y1;
    };

    std::vector<std::int32_t> columnBorders() const;
    template <class OnBand>
    void run(OnBand onBand);

    const PixelBox area_;
    std::vector<ClippedBox> boxes_;
};

}  // namespace v1
}  // namespace MUtils
