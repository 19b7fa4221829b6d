#include "rawimage/tools/pieces.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <tuple>

#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

// More than there can be pieces.
constexpr std::int64_t kMostCells = 1 << 22;

std::int64_t dividedUp(std::int64_t value, std::int64_t by) {
    return (value + by - 1) / by;
}

// What boxes of cells cost. A cell is a bucket, or several where there are too many.
class CostMap {
  public:
    explicit CostMap(const PieceOptions& options)
        : width_(options.width),
          height_(options.height),
          cellWidth_(options.bucketWidth),
          cellHeight_(options.bucketHeight) {
        for (; columns() * rows() > kMostCells; cellWidth_ *= 2)
            cellHeight_ *= 2;
        if (options.costs != nullptr && !options.costs->facts.frame().empty()) measure(*options.costs);
    }

    PixelBox cells() const { return {0, 0, columns(), rows()}; }
    PixelBox pixelsOf(const PixelBox& cells) const {
        return {cells.x0 * cellWidth_, cells.y0 * cellHeight_, std::min(cells.x1 * cellWidth_, width_),
                std::min(cells.y1 * cellHeight_, height_)};
    }
    double costOf(const PixelBox& cells) const {
        const auto pixels = static_cast<double>(pixelsOf(cells).area());
        if (sums_.empty()) return pixels;
        const double measured = sums_[at(cells.x1, cells.y1)] - sums_[at(cells.x0, cells.y1)] -
                                sums_[at(cells.x1, cells.y0)] + sums_[at(cells.x0, cells.y0)];
        // Where nothing was stored, something is to be rendered all the same.
        return measured + leastPerPixel_ * pixels;
    }

  private:
    std::int64_t columns() const { return dividedUp(width_, cellWidth_); }
    std::int64_t rows() const { return dividedUp(height_, cellHeight_); }
    // Of the corner above and to the left of a cell.
    std::size_t at(std::int64_t x, std::int64_t y) const {
        return static_cast<std::size_t>(y * (columns() + 1) + x);
    }
    void measure(const Inspection& file);
    void addTag(const RIF_TAG& tag, const PixelBox& frame);
    void accumulate();

    const std::int64_t width_, height_;
    std::int64_t cellWidth_, cellHeight_;
    std::vector<double> sums_;  // by corner, of all cells above and to the left of it; none without costs
    double leastPerPixel_ = 0;
};

// Spreads the bytes of each tag evenly over the cells that it touches: adds them to the corners of a table of
// differences, whose running sums are the cells. Takes the same time for tags of any size.
void CostMap::measure(const Inspection& file) {
    sums_.assign(at(columns(), rows()) + 1, 0);
    for (const INFOTAG& tag : file.tags) {
        if (isPixelTag(tag.id)) addTag(tag, file.facts.frame());
    }
    accumulate();
    // From cells to sums: moved by one, so that the first row and column are empty.
    for (std::int64_t y = rows(); y >= 0; --y) {
        for (std::int64_t x = columns(); x >= 0; --x)
            sums_[at(x, y)] = x > 0 && y > 0 ? std::max(sums_[at(x - 1, y - 1)], 0.0) : 0;
    }
    accumulate();
    constexpr double kLeastShare = 0.01;
    leastPerPixel_ = kLeastShare * std::max(sums_.back(), 1.0) / static_cast<double>(width_ * height_);
}

// The frame of the file may be of another size.
void CostMap::addTag(const RIF_TAG& tag, const PixelBox& frame) {
    const PixelBox box = intersect(boxOf(tag), frame);
    if (box.empty()) return;
    const std::int64_t fromX = frame.x1 * cellWidth_, fromY = frame.y1 * cellHeight_;
    const PixelBox cells{box.x0 * width_ / fromX, box.y0 * height_ / fromY, (box.x1 * width_ - 1) / fromX + 1,
                         (box.y1 * height_ - 1) / fromY + 1};
    const double each = static_cast<double>(tag.size) / static_cast<double>(cells.area());
    sums_[at(cells.x0, cells.y0)] += each;
    sums_[at(cells.x1, cells.y0)] -= each;
    sums_[at(cells.x0, cells.y1)] -= each;
    sums_[at(cells.x1, cells.y1)] += each;
}

void CostMap::accumulate() {
    for (std::int64_t y = 0; y <= rows(); ++y) {
        for (std::int64_t x = 1; x <= columns(); ++x)
            sums_[at(x, y)] += sums_[at(x - 1, y)];
    }
    for (std::int64_t y = 1; y <= rows(); ++y) {
        for (std::int64_t x = 0; x <= columns(); ++x)
            sums_[at(x, y)] += sums_[at(x, y - 1)];
    }
}

// One cut of a box of cells into two, and the pieces that each side gets.
struct Cut {
    double badness = 0;
    PixelBox first, second;
    std::int64_t ofFirst = 0;
};

class Cutter {
  public:
    explicit Cutter(const PieceOptions& options) : map_(options) {}

    std::vector<FramePiece> run(std::int64_t count) {
        cut(map_.cells(), std::min(count, map_.cells().area()));
        std::sort(pieces_.begin(), pieces_.end(), [](const FramePiece& a, const FramePiece& b) {
            return std::tie(a.box.y0, a.box.x0) < std::tie(b.box.y0, b.box.x0);
        });
        return std::move(pieces_);
    }

  private:
    // `count` is at most the number of cells.
    void cut(const PixelBox& cells, std::int64_t count) {
        if (count == 1) {
            pieces_.push_back({map_.pixelsOf(cells), map_.costOf(cells) / map_.costOf(map_.cells())});
            return;
        }
        Cut best;
        best.badness = HUGE_VAL;
        for (std::int64_t x = cells.x0 + 1; x < cells.x1; ++x)
            consider(best, cells, {cells.x0, cells.y0, x, cells.y1}, {x, cells.y0, cells.x1, cells.y1},
                     count);
        for (std::int64_t y = cells.y0 + 1; y < cells.y1; ++y)
            consider(best, cells, {cells.x0, cells.y0, cells.x1, y}, {cells.x0, y, cells.x1, cells.y1},
                     count);
        cut(best.first, best.ofFirst);
        cut(best.second, count - best.ofFirst);
    }

    // Balance counts most; a cut in halves, and one across the longer side, keep pieces from being thin.
    void consider(Cut& best, const PixelBox& cells, const PixelBox& first, const PixelBox& second,
                  std::int64_t count) const {
        constexpr double kUneven = 0.05, kAlong = 0.1;
        const double all = map_.costOf(cells), ours = map_.costOf(first), theirs = map_.costOf(second);
        const auto n = static_cast<double>(count);
        const std::int64_t least = std::max<std::int64_t>(1, count - second.area());
        const std::int64_t most = std::min(count - 1, first.area());
        const std::int64_t ofFirst = std::clamp(std::llround(n * ours / all), static_cast<long long>(least),
                                                static_cast<long long>(most));
        const double share = static_cast<double>(ofFirst) / n;
        double badness = std::max(ours / share, theirs / (1 - share)) / all;
        badness += kUneven * std::fabs(share - 0.5);
        const PixelBox pixels = map_.pixelsOf(cells);
        const bool cutsWidth = first.height() == cells.height();
        if (cutsWidth != (pixels.width() >= pixels.height())) badness += kAlong;
        if (badness < best.badness) best = {badness, first, second, ofFirst};
    }

    const CostMap map_;
    std::vector<FramePiece> pieces_;
};

}  // namespace

std::vector<FramePiece> cutFrame(const PieceOptions& options) {
    for (const std::int64_t side :
         {options.width, options.height, options.bucketWidth, options.bucketHeight}) {
        if (side < 1 || side > kMostPixelsOfASide) return {};
    }
    if (options.count < 1 || options.count > kMostPieces) return {};
    return Cutter(options).run(options.count);
}

}  // namespace v1
}  // namespace MUtils
