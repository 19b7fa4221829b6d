#include "convert/to_exr/tile_layout.h"

#include <algorithm>
#include <climits>

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kDefaultTile = 64;
// OpenEXR holds several copies of a tile while it compresses it.
constexpr std::int64_t kMaxTilePixels = 1 << 20;
// OpenEXR and the writer allocate some bytes for each tile at once.
constexpr std::int64_t kMaxTiles = 1 << 22;

std::int64_t ceilDivide(std::int64_t a, std::int64_t b) {
    return (a + b - 1) / b;
}

}  // namespace

TileLayout::TileLayout(const RawInput& input, bool tiled, const std::optional<PixelBox>& crop,
                       ConvertReport& report) {
    constexpr int kRegionSet = 0;
    const FrameInfo& info = *input.info;
    if (info.frame.empty()) input.refuseWithout("resolution");
    window_ = info.frame;
    if (tiled && info.region && info.region->kind != -1) {
        const RIRegionInfo& r = *info.region;
        const PixelBox box = boxAt(r.left, r.top, r.width, r.height);
        if (!box.empty() && box.x1 <= INT_MAX && box.y1 <= INT_MAX) {
            window_ = box;
        } else {
            report.remarks.push_back({"region", input.path,
                                      "the render region has no pixels; the whole frame is the data window"});
        }
    }
    if (crop) window_ = intersect(window_, *crop);
    if (window_.empty()) throw ConvertError(ConvertState::kBadOption, "", "crop: has no pixel of the frame");
    if (window_ != info.frame) {
        region_ = RIRegionInfo{kRegionSet, static_cast<int>(window_.x0), static_cast<int>(window_.y0),
                               static_cast<int>(window_.width()), static_cast<int>(window_.height())};
    }
    const std::optional<BucketSize>& size = info.buckets;
    const bool announced = size && size->width > 0 && size->height > 0 &&
                           std::min<std::int64_t>(size->width, window_.width()) *
                                   std::min<std::int64_t>(size->height, window_.height()) <=
                               kMaxTilePixels;
    tileWidth_ = std::min<std::int64_t>(announced ? size->width : kDefaultTile, window_.width());
    tileHeight_ = std::min<std::int64_t>(announced ? size->height : kDefaultTile, window_.height());
    const std::int64_t columns = ceilDivide(window_.width(), tileWidth_);
    const std::int64_t rows = ceilDivide(window_.height(), tileHeight_);
    if (tiled && columns > kMaxTiles / rows) {
        throw ConvertError(ConvertState::kUnsupported, input.path,
                           std::to_string(columns) + " x " + std::to_string(rows) + " tiles are too many");
    }
}

std::int64_t TileLayout::columns() const {
    return ceilDivide(window_.width(), tileWidth_);
}

}  // namespace v1
}  // namespace MUtils
