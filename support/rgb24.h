#pragma once

namespace MUtils {

// A colour of a preview picture, one byte each.
struct RGB24 {
    unsigned char r;
    unsigned char g;
    unsigned char b;
};
static_assert(sizeof(RGB24) == 3, "previews are stored as these");

}  // namespace MUtils

using MUtils::RGB24;
