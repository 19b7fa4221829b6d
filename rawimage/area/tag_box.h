#pragma once

#include "../format.h"
#include "pixel_box.h"

namespace MUtils {
inline namespace v1 {

// The pixels of the bucket that a pixel tag states.
inline PixelBox boxOf(const RIF_TAG& tag) {
    return boxAt(tag.p2, tag.p3, tag.p4, tag.p5);
}

}  // namespace v1
}  // namespace MUtils
