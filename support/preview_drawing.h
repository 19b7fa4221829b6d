#pragma once

#include <cstdint>

#include "support/rd_preview.h"

namespace MUtils {
inline namespace v1 {

// The pixels of a bucket as colours, made when they are drawn: a channel of any type needs no second table.
class PixelSource {
  public:
    // Sets `rgb` to three floats for each of the pixels first .. first + count - 1, in row order.
    virtual void colours(std::int64_t first, int count, float* rgb) const = 0;

  protected:
    ~PixelSource() = default;
};

struct PreviewBox {
    int x, y, width, height;
};

// A canvas of pixels scaled to the pixels of a picture.
struct PreviewTarget {
    int canvasWidth, canvasHeight;
    RGB24* pixels;
    int width, height;
};

// What CreateRDPreview does, for pixels of any source. It needs memory for one row of the picture, whatever
// the size of the bucket is. Boxes and sizes that are empty or negative draw nothing.
void drawBucket(const PixelSource& source, const PreviewBox& box, const PreviewTarget& target,
                ColCor* corrector);

}  // namespace v1
}  // namespace MUtils
