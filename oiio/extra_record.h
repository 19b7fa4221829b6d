#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <string>

#include "oiio/pixel_channels.h"

namespace rimg_imageio {

// What an image has and the format has no tag for. The writer keeps it as a text in the tag of the render
// settings, which a file that no renderer has written does not need otherwise; docs/oiio.md describes it.
struct ExtraRecord {
    int originX = 0;  // of the display window
    int originY = 0;
    ChannelTypes types;
    OIIO::ParamValueList attributes;  // integers, floats and texts
};

// Longer texts are not read, and attributes that would make it longer are not written.
constexpr std::int64_t kMaxExtraText = 1 << 20;

// "" when there is nothing to keep.
std::string encodeExtra(const ExtraRecord& extra);
// True when `text` is such a record, of which lines without a meaning are left out.
bool decodeExtra(const std::string& text, ExtraRecord& extra);

}  // namespace rimg_imageio
