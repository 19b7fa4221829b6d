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

// OpenEXR holds each tile that it packs three times, beside the part.
std::vector<PixelBox> TileLayout::parts(const PixelBox& band, double valueBytes) const {
    constexpr double kLargeTile = 1 << 20;
    constexpr double kPart = 16 << 20;
    const double tileBytes = valueBytes * static_cast<double>(tileWidth_ * tileHeight_);
    if (tileBytes <= kLargeTile) return {band};
    const std::int64_t columns = columnsOf(band);
    const std::int64_t rows = ceilDivide(band.height(), tileHeight_);
    const std::int64_t wide =
        std::max(static_cast<std::int64_t>(kPart / tileBytes), ceilDivide(columns, kMostParts));
    if (rows > 1 && rows * ceilDivide(columns, wide) > kMostParts) return {band};
    std::vector<PixelBox> parts;
    for (std::int64_t y = band.y0; y < band.y1; y += tileHeight_) {
        for (std::int64_t x = band.x0; x < band.x1; x += wide * tileWidth_)
            parts.push_back(intersect({x, y, x + wide * tileWidth_, y + tileHeight_}, band));
    }
    return parts;
}

std::int64_t TileLayout::columnsOf(const PixelBox& box) const {
    return ceilDivide(box.width(), tileWidth_);
}

}  // namespace v1
}  // namespace MUtils
