#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "convert/to_exr/raw_input.h"
#include "rawimage/area/pixel_box.h"

namespace rimg {

// Pixels that are loaded together, and the tags that have them, in file order.
struct TileBand {
    MUtils::PixelBox box;
    std::vector<const INFOTAG*> tags;
};

// The pixels of a raw image that an OpenEXR file of it has, and how they are cut into tiles.
class TileLayout {
  public:
    // For `tiled` files the window is the render region, where one is set, and the tiles are as large as the
    // announced buckets, 64 x 64 where none are or they have more than 2^20 pixels, and no larger than the
    // window. For others the window is the frame. Throws Failure: RawInput::codeOfLack() for a file without a
    // frame, kFailure when there are too many tiles.
    TileLayout(const RawInput& input, bool tiled);

    // Within the range of an int, its ends too.
    const MUtils::PixelBox& window() const { return window_; }
    std::int64_t tileWidth() const { return tileWidth_; }
    std::int64_t tileHeight() const { return tileHeight_; }
    // The record that makes a writer take this window; none for the frame.
    const std::optional<RIRegionInfo>& region() const { return region_; }

    // The window in bands of whole rows of tiles, from the top down, so that no tag reaches into two of them:
    // each row is one where buckets lie on the grid of tiles, and all are one where every border is crossed.
    // Tags outside the window are in none.
    std::vector<TileBand> bands(const std::vector<const INFOTAG*>& tags) const;

    // The tiles of a band, row after row.
    std::vector<MUtils::PixelBox> tiles(const MUtils::PixelBox& band) const;

  private:
    std::int64_t rowOf(std::int64_t y) const { return (y - window_.y0) / tileHeight_; }

    MUtils::PixelBox window_;
    std::int64_t tileWidth_ = 0;
    std::int64_t tileHeight_ = 0;
    std::optional<RIRegionInfo> region_;
};

}  // namespace rimg
