#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "convert/to_exr/raw_input.h"
#include "rawimage/area/pixel_box.h"

namespace MUtils {
inline namespace v1 {

// The window of a raw image that goes into an OpenEXR file, and how it is cut into tiles.
class TileLayout {
  public:
    // For `tiled` files the window is the render region, where one is set, and the tiles are as large as the
    // announced buckets, 64 x 64 where none are or they have more than 2^20 pixels, and no larger than the
    // window. For others the window is the frame. Of either, what is in `crop` is taken. A render region
    // without pixels is a remark in `report`. Throws ConvertError for a file without a frame, of too many
    // tiles (kUnsupported), or without pixels in `crop` (kBadOption).
    TileLayout(const RawInput& input, bool tiled, const std::optional<PixelBox>& crop, ConvertReport& report);

    // Within the range of an int, its ends too.
    const PixelBox& window() const { return window_; }
    std::int64_t tileWidth() const { return tileWidth_; }
    std::int64_t tileHeight() const { return tileHeight_; }
    // The record for a writer of this window; none when it is the frame.
    const std::optional<RIRegionInfo>& region() const { return region_; }

    // Tiles of a row.
    std::int64_t columns() const;

  private:
    PixelBox window_;
    std::int64_t tileWidth_ = 0;
    std::int64_t tileHeight_ = 0;
    std::optional<RIRegionInfo> region_;
};

}  // namespace v1
}  // namespace MUtils
