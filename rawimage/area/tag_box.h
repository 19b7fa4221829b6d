#pragma once

#include "../format.h"
#include "pixel_box.h"

namespace MUtils {

// The pixels of the bucket that a pixel tag states.
inline PixelBox boxOf(const RIF_TAG& tag) {
    return boxAt(tag.p2, tag.p3, tag.p4, tag.p5);
}

}  // namespace MUtils
