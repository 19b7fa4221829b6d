#pragma once

#include "rawimage/area/pixel_box.h"
#include "support/mbvtable.h"

namespace MUtils {
inline namespace v1 {

// The smallest box around the visible pixels of a frame of width x height pixels: those where one of the
// three floats of `alpha` is larger than 1e-12 or smaller than -1e-12. An empty box when there is none.
// `alpha` holds at least width x height values of three floats, in row order. Reads only what lies outside
// the box and its border.
PixelBox findVisibleBox(const MBVTable& alpha, int width, int height);

}  // namespace v1
}  // namespace MUtils
