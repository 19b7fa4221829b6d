#include "convert/to_exr/tile_layout.h"

#include <algorithm>
#include <climits>

#include "convert/convert_error.h"
#include "rawimage/area/tag_box.h"

// Bands of tiles. A tiled file takes whole tiles, and the buckets of a raw image may lie across the borders
// of tiles. A band is a run of whole rows of tiles that no tag leaves at its top or bottom, so each tag is
// decoded once, for one band, and only one band is in memory. bands() counts the tags that cross each border
// between two rows: +1 at a tag's first row and -1 at its last, summed up from the top. It cuts where the sum
// is 0, which is at every border where the buckets lie on the grid of tiles.

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

TileLayout::TileLayout(const RawInput& input, bool tiled, ConvertReport& report) {
    const FileSummary& records = input.records();
    if (!records.resolution || records.resolution->width < 1 || records.resolution->height < 1)
        input.refuseWithout("resolution");
    window_ = {0, 0, records.resolution->width, records.resolution->height};
    if (tiled && records.region && records.region->kind != -1) {
        const RIRegionInfo& r = *records.region;
        const PixelBox box = boxAt(r.left, r.top, r.width, r.height);
        if (!box.empty() && box.x1 <= INT_MAX && box.y1 <= INT_MAX) {
            window_ = box;
            region_ = r;
        } else {
            report.remarks.push_back({"region", input.path(),
                                      "the render region has no pixels; the whole frame is the data window"});
        }
    }
    const bool announced = records.buckets && records.buckets->width > 0 && records.buckets->height > 0 &&
                           std::min<std::int64_t>(records.buckets->width, window_.width()) *
                                   std::min<std::int64_t>(records.buckets->height, window_.height()) <=
                               kMaxTilePixels;
    tileWidth_ = std::min<std::int64_t>(announced ? records.buckets->width : kDefaultTile, window_.width());
    tileHeight_ =
        std::min<std::int64_t>(announced ? records.buckets->height : kDefaultTile, window_.height());
    const std::int64_t columns = ceilDivide(window_.width(), tileWidth_);
    const std::int64_t rows = ceilDivide(window_.height(), tileHeight_);
    if (tiled && columns > kMaxTiles / rows) {
        throw ConvertError(ConvertState::kUnsupported, input.path(),
                           std::to_string(columns) + " x " + std::to_string(rows) + " tiles are too many");
    }
}

std::vector<TileBand> TileLayout::bands(const std::vector<const INFOTAG*>& tags) const {
    const auto rows = static_cast<std::size_t>(ceilDivide(window_.height(), tileHeight_));
    // For each border below a row, how many more tags cross it than the one above.
    std::vector<std::int64_t> crossing(rows + 1);
    for (const INFOTAG* tag : tags) {
        const PixelBox box = intersect(boxOf(*tag), window_);
        if (box.empty()) continue;
        ++crossing[static_cast<std::size_t>(rowOf(box.y0))];
        --crossing[static_cast<std::size_t>(rowOf(box.y1 - 1))];
    }
    std::vector<TileBand> bands;
    std::vector<std::size_t> bandOf(rows);
    std::int64_t crossed = 0;
    for (std::size_t row = 0; row < rows; ++row) {
        const std::int64_t y = window_.y0 + static_cast<std::int64_t>(row) * tileHeight_;
        if (crossed == 0) bands.push_back({{window_.x0, y, window_.x1, y}, {}});
        bands.back().box.y1 = std::min(y + tileHeight_, window_.y1);
        bandOf[row] = bands.size() - 1;
        crossed += crossing[row];
    }
    for (const INFOTAG* tag : tags) {
        const PixelBox box = intersect(boxOf(*tag), window_);
        if (!box.empty()) bands[bandOf[static_cast<std::size_t>(rowOf(box.y0))]].tags.push_back(tag);
    }
    return bands;
}

std::int64_t TileLayout::columns() const {
    return ceilDivide(window_.width(), tileWidth_);
}

}  // namespace v1
}  // namespace MUtils
