#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

    // Cuts a band of large tiles into parts of whole tiles, one row high, that are loaded one after the
    // other; `valueBytes` are those of a pixel. A bucket may reach into several of them, but into no more
    // than kMostParts. A band of small tiles, or of too many parts, is one part.
    std::vector<PixelBox> parts(const PixelBox& band, double valueBytes) const;
    static constexpr std::int64_t kMostParts = 5;

    // How many tiles `box` has in width.
    std::int64_t columnsOf(const PixelBox& box) const;

  private:
    PixelBox window_;
    std::int64_t tileWidth_ = 0;
    std::int64_t tileHeight_ = 0;
    std::optional<RIRegionInfo> region_;
};

}  // namespace v1
}  // namespace MUtils
