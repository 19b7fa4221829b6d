#include "rawimage/area/missing_boxes.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace MUtils {

namespace {

// Spans that a sweep may list in all, so that boxes of which each meets all the others' rows or columns
// cannot hold it up.
constexpr std::size_t kLeastWork = 1000000;
constexpr std::size_t kWorkPerBox = 64;

struct Edges {
    std::int64_t x0, x1, y0, y1;
    bool empty() const { return x0 >= x1 || y0 >= y1; }
};

Edges edgesOf(const PixelBox& box) {
    return {box.x, std::int64_t{box.x} + std::max(box.width, 0), box.y,
            std::int64_t{box.y} + std::max(box.height, 0)};
}

Edges clip(const Edges& a, const Edges& b) {
    return {std::max(a.x0, b.x0), std::min(a.x1, b.x1), std::max(a.y0, b.y0), std::min(a.y1, b.y1)};
}

struct Span {
    std::int64_t x0, x1;
    bool operator==(const Span& other) const { return x0 == other.x0 && x1 == other.x1; }
};

// How often each elementary column between two borders is covered, as a segment tree: adding and removing a
// span takes logarithmic time, and so does each span that is listed.
class Columns {
  public:
    explicit Columns(std::vector<std::int64_t> borders) : borders_(std::move(borders)) {
        while (leaves_ < borders_.size() - 1)
            leaves_ *= 2;
        nodes_.resize(2 * leaves_);
        // Leaves past the last column count as covered and as not, so that they stand in nobody's way.
        for (std::size_t leaf = borders_.size() - 1; leaf < leaves_; ++leaf)
            nodes_[leaves_ + leaf].full = true;
        for (std::size_t node = leaves_; node-- > 1;)
            settle(node);
    }

    void cover(std::int64_t x0, std::int64_t x1, int change) {
        change_ = change;
        update(1, 0, leaves_, indexOf(x0), indexOf(x1));
    }

    // The covered columns or the others, joined where they meet; goes on to one more than `limit`.
    void list(bool covered, std::size_t limit, std::vector<Span>& spans) const {
        spans.clear();
        list(1, 0, leaves_, covered, limit, spans);
    }

  private:
    struct Node {
        int count = 0;      // spans that cover all of the node
        bool full = false;  // everything below is covered
        bool empty = true;  // nothing below is
    };

    std::size_t indexOf(std::int64_t x) const {
        return static_cast<std::size_t>(std::lower_bound(borders_.begin(), borders_.end(), x) -
                                        borders_.begin());
    }

    void settle(std::size_t node) {
        Node& n = nodes_[node];
        const bool inner = node < leaves_;
        n.full = n.count > 0 || (inner && nodes_[2 * node].full && nodes_[2 * node + 1].full);
        n.empty = n.count == 0 && (!inner || (nodes_[2 * node].empty && nodes_[2 * node + 1].empty));
    }

    void update(std::size_t node, std::size_t first, std::size_t end, std::size_t from, std::size_t to) {
        if (from >= end || to <= first) return;
        if (from <= first && end <= to) {
            nodes_[node].count += change_;
        } else {
            const std::size_t middle = (first + end) / 2;
            update(2 * node, first, middle, from, to);
            update(2 * node + 1, middle, end, from, to);
        }
        settle(node);
    }

    void list(std::size_t node, std::size_t first, std::size_t end, bool covered, std::size_t limit,
              std::vector<Span>& spans) const {
        const Node& n = nodes_[node];
        if ((covered ? n.empty : n.full) || spans.size() > limit || first + 1 >= borders_.size()) return;
        if ((covered ? n.full : n.empty) || node >= leaves_) {
            const std::int64_t x0 = borders_[first];
            const std::int64_t x1 = borders_[std::min(end, borders_.size() - 1)];
            if (!spans.empty() && spans.back().x1 == x0) {
                spans.back().x1 = x1;
            } else {
                spans.push_back({x0, x1});
            }
            return;
        }
        const std::size_t middle = (first + end) / 2;
        list(2 * node, first, middle, covered, limit, spans);
        list(2 * node + 1, middle, end, covered, limit, spans);
    }

    std::vector<std::int64_t> borders_;
    std::size_t leaves_ = 1;
    std::vector<Node> nodes_;
    int change_ = 0;
};

struct Event {
    std::int64_t y, x0, x1;
    int change;
};

void sortUnique(std::vector<std::int64_t>& values) {
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

PixelBox boxFrom(const Span& span, std::int64_t y0, std::int64_t y1) {
    return {static_cast<std::int32_t>(span.x0), static_cast<std::int32_t>(y0),
            static_cast<std::int32_t>(span.x1 - span.x0), static_cast<std::int32_t>(y1 - y0)};
}

// Goes down over the rows where boxes begin and end. Bands of rows with the same spans grow together.
MissingBoxes sweep(const std::vector<PixelBox>& boxes, const PixelBox& area, bool covered,
                   std::size_t limit) {
    MissingBoxes result;
    constexpr std::int64_t kEnd = std::numeric_limits<std::int32_t>::max();
    const Edges whole = clip(edgesOf(area), {area.x, kEnd, area.y, kEnd});
    if (whole.empty()) return result;
    std::vector<Event> events;
    std::vector<std::int64_t> borders{whole.x0, whole.x1};
    for (const PixelBox& box : boxes) {
        const Edges edges = clip(edgesOf(box), whole);
        if (edges.empty()) continue;
        events.push_back({edges.y0, edges.x0, edges.x1, 1});
        events.push_back({edges.y1, edges.x0, edges.x1, -1});
        borders.push_back(edges.x0);
        borders.push_back(edges.x1);
    }
    std::sort(events.begin(), events.end(), [](const Event& a, const Event& b) { return a.y < b.y; });
    sortUnique(borders);
    Columns columns(std::move(borders));

    std::vector<Span> open;
    std::vector<Span> spans;
    std::int64_t openFrom = whole.y0;
    const auto close = [&](std::int64_t y) {
        for (const Span& span : open) {
            if (openFrom < y) result.boxes.push_back(boxFrom(span, openFrom, y));
        }
        open.clear();
        openFrom = y;
    };
    std::size_t work = kLeastWork + kWorkPerBox * boxes.size();
    std::size_t next = 0;
    std::int64_t y = whole.y0;
    while (y < whole.y1 && !result.truncated) {
        for (; next < events.size() && events[next].y == y; ++next)
            columns.cover(events[next].x0, events[next].x1, events[next].change);
        columns.list(covered, limit, spans);
        if (spans != open) {
            close(y);
            open.swap(spans);
        }
        result.truncated = result.boxes.size() + open.size() > limit || open.size() > work;
        work -= std::min(work, open.size());
        if (!result.truncated) y = next < events.size() ? events[next].y : whole.y1;
    }
    close(y);
    return result;
}

}  // namespace

MissingBoxes missingBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area, std::size_t limit) {
    return sweep(boxes, area, false, limit);
}

MissingBoxes unitedBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area, std::size_t limit) {
    return sweep(boxes, area, true, limit);
}

}  // namespace MUtils
