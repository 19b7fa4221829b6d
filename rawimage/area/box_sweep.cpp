#include "rawimage/area/box_sweep.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

#include "rawimage/area/coverage.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Spans that boxesOf() may list in all. Where every band has spans in all columns, their number grows with
// the square of the boxes.
constexpr std::size_t kLeastWork = 1000000;
constexpr std::size_t kWorkPerBox = 64;

constexpr std::int64_t kFirstPlace = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kEndPlace = std::numeric_limits<std::int32_t>::max();

struct Span {
    std::int32_t x0, x1;
    bool operator==(const Span& other) const { return x0 == other.x0 && x1 == other.x1; }
};

// The columns that are covered in the present band. A segment tree over the borders of columns (ascending,
// at least two): a node holds the boxes that span all of its columns, but not all of its parent's. The left
// child of a node follows it; the right child follows the whole left branch.
class ColumnTree {
  public:
    explicit ColumnTree(std::vector<std::int32_t> borders)
        : borders_(std::move(borders)), nodes_(2 * last() - 1) {}

    // Adds (+1) or removes (-1) a box with these edges, which are borders.
    void change(std::int32_t x0, std::int32_t x1, int by) {
        update({0, 0, last()}, indexOf(x0), indexOf(x1), by);
    }

    // The number of covered columns.
    std::int64_t covered() const { return nodes_[0].covered; }

    // Fills `spans` with the covered columns or the free ones, joined where they meet. Stops after more than
    // `limit` spans. Takes logarithmic time for each span.
    void list(BoxSweep::Part part, std::size_t limit, std::vector<Span>& spans) const {
        spans.clear();
        list({0, 0, last()}, part, limit, spans);
    }

  private:
    struct Node {
        std::int32_t boxes = 0;
        std::uint32_t covered = 0;  // columns that boxes of this node or of those below cover
    };
    // A node and the borders that it lies between.
    struct Place {
        std::size_t node, first, end;

        bool isLeaf() const { return end - first == 1; }
        std::size_t middle() const { return first + (end - first) / 2; }
        Place left() const { return {node + 1, first, middle()}; }
        Place right() const { return {node + 2 * (middle() - first), middle(), end}; }
    };

    std::size_t last() const { return borders_.size() - 1; }

    std::size_t indexOf(std::int32_t border) const {
        return static_cast<std::size_t>(std::lower_bound(borders_.begin(), borders_.end(), border) -
                                        borders_.begin());
    }

    std::uint32_t widthOf(const Place& place) const {
        return static_cast<std::uint32_t>(std::int64_t{borders_[place.end]} - borders_[place.first]);
    }

    void update(const Place& place, std::size_t from, std::size_t to, int by) {
        Node& node = nodes_[place.node];
        if (from <= place.first && place.end <= to) {
            node.boxes += by;
        } else {
            if (from < place.middle()) update(place.left(), from, to, by);
            if (place.middle() < to) update(place.right(), from, to, by);
        }
        if (node.boxes > 0) {
            node.covered = widthOf(place);
        } else {
            node.covered =
                place.isLeaf() ? 0 : nodes_[place.left().node].covered + nodes_[place.right().node].covered;
        }
    }

    void list(const Place& place, BoxSweep::Part part, std::size_t limit, std::vector<Span>& spans) const {
        const std::uint32_t width = widthOf(place);
        const std::uint32_t covered = nodes_[place.node].covered;
        const std::uint32_t wanted = part == BoxSweep::Part::kCovered ? covered : width - covered;
        if (wanted == 0 || spans.size() > limit) return;
        if (wanted < width) {
            list(place.left(), part, limit, spans);
            list(place.right(), part, limit, spans);
        } else if (!spans.empty() && spans.back().x1 == borders_[place.first]) {
            spans.back().x1 = borders_[place.end];
        } else {
            spans.push_back({borders_[place.first], borders_[place.end]});
        }
    }

    const std::vector<std::int32_t> borders_;
    std::vector<Node> nodes_;
};

}  // namespace

BoxSweep::BoxSweep(const PixelBox& area, const std::vector<PixelBox>& boxes)
    : area_(intersect(area, {kFirstPlace, kFirstPlace, kEndPlace, kEndPlace})) {
    for (const PixelBox& box : boxes)
        add(box);
}

void BoxSweep::add(const PixelBox& box) {
    const PixelBox seen = intersect(box, area_);
    if (seen.empty()) return;
    boxes_.push_back({static_cast<std::int32_t>(seen.x0), static_cast<std::int32_t>(seen.y0),
                      static_cast<std::int32_t>(seen.x1), static_cast<std::int32_t>(seen.y1)});
}

std::vector<std::int32_t> BoxSweep::columnBorders() const {
    std::vector<std::int32_t> borders;
    borders.reserve(2 * boxes_.size() + 2);
    borders.push_back(static_cast<std::int32_t>(area_.x0));
    borders.push_back(static_cast<std::int32_t>(area_.x1));
    for (const ClippedBox& box : boxes_) {
        borders.push_back(box.x0);
        borders.push_back(box.x1);
    }
    std::sort(borders.begin(), borders.end());
    borders.erase(std::unique(borders.begin(), borders.end()), borders.end());
    borders.shrink_to_fit();
    return borders;
}

// Calls onBand(y0, y1, tree) for each band of the area from the top down, until a call returns false.
template <class OnBand>
void BoxSweep::run(OnBand onBand) {
    if (area_.empty()) return;
    std::sort(boxes_.begin(), boxes_.end(),
              [](const ClippedBox& a, const ClippedBox& b) { return a.y0 < b.y0; });
    std::vector<std::uint32_t> ends(boxes_.size());
    std::iota(ends.begin(), ends.end(), 0u);
    std::sort(ends.begin(), ends.end(),
              [this](std::uint32_t a, std::uint32_t b) { return boxes_[a].y1 < boxes_[b].y1; });

    ColumnTree tree(columnBorders());
    auto entering = boxes_.cbegin();
    auto leaving = ends.cbegin();
    std::int64_t next = 0;
    for (std::int64_t y = area_.y0; y < area_.y1; y = next) {
        for (; entering != boxes_.cend() && entering->y0 == y; ++entering)
            tree.change(entering->x0, entering->x1, 1);
        for (; leaving != ends.cend() && boxes_[*leaving].y1 == y; ++leaving)
            tree.change(boxes_[*leaving].x0, boxes_[*leaving].x1, -1);
        next = area_.y1;
        if (entering != boxes_.cend()) next = std::min<std::int64_t>(next, entering->y0);
        if (leaving != ends.cend()) next = std::min<std::int64_t>(next, boxes_[*leaving].y1);
        if (!onBand(y, next, tree)) return;
    }
}

std::int64_t BoxSweep::coveredPixels() {
    // Fits: width and height are below 2^32.
    std::uint64_t pixels = 0;
    run([&pixels](std::int64_t y0, std::int64_t y1, const ColumnTree& tree) {
        pixels += static_cast<std::uint64_t>(y1 - y0) * static_cast<std::uint64_t>(tree.covered());
        return true;
    });
    return static_cast<std::int64_t>(std::min<std::uint64_t>(pixels, INT64_MAX));
}

// Bands with the same spans become boxes together.
MissingBoxes BoxSweep::boxesOf(Part part, std::size_t limit) {
    MissingBoxes result;
    std::vector<Span> open;
    std::vector<Span> spans;
    std::int64_t openFrom = area_.y0;
    std::int64_t end = area_.y0;
    const auto close = [&](std::int64_t y) {
        for (const Span& span : open) {
            if (openFrom < y) result.boxes.push_back({span.x0, openFrom, span.x1, y});
        }
        open.clear();
        openFrom = y;
    };
    std::size_t work = kLeastWork + kWorkPerBox * boxes_.size();
    run([&](std::int64_t y0, std::int64_t y1, const ColumnTree& tree) {
        tree.list(part, limit, spans);
        if (spans != open) {
            close(y0);
            open.swap(spans);
        }
        result.truncated = result.boxes.size() + open.size() > limit || open.size() > work;
        work -= std::min(work, open.size());
        end = result.truncated ? y0 : y1;
        return !result.truncated;
    });
    close(end);
    return result;
}

std::int64_t coveredPixels(const std::vector<PixelBox>& boxes, const PixelBox& frame) {
    return BoxSweep(frame, boxes).coveredPixels();
}

MissingBoxes missingBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area, std::size_t limit) {
    return BoxSweep(area, boxes).boxesOf(BoxSweep::Part::kFree, limit);
}

MissingBoxes unitedBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area, std::size_t limit) {
    return BoxSweep(area, boxes).boxesOf(BoxSweep::Part::kCovered, limit);
}

}  // namespace v1
}  // namespace MUtils
