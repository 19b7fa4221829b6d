#include "rawimage/area/coverage.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace MUtils {

namespace {

using Marks = std::vector<std::int32_t>;

// How much of the vertical axis the boxes cover that the sweep stands in. A segment tree over the rows where
// boxes begin and end (`marks`, ascending, at least two): a node holds the boxes that span all of its rows
// and reach no further up.
class CoverTree {
  public:
    explicit CoverTree(Marks marks) : marks_(std::move(marks)), nodes_(2 * last() - 1) {}

    // Enters (+1) or takes out (-1) the rows of `box`, whose edges are marks.
    void change(const PixelBox& box, int by) {
        update(0, 0, last(), indexOf(box.y), indexOf(box.y + box.height), by);
    }

    std::int64_t coveredRows() const { return nodes_[0].rows; }

  private:
    struct Node {
        std::int32_t boxes = 0;
        std::int32_t rows = 0;  // covered in this node, by its own boxes or those below
    };

    std::size_t last() const { return marks_.size() - 1; }

    std::size_t indexOf(std::int32_t mark) const {
        return static_cast<std::size_t>(std::lower_bound(marks_.begin(), marks_.end(), mark) -
                                        marks_.begin());
    }

    // A node stands for the marks [first, end]; its left child follows it, its right child follows the whole
    // left branch.
    void update(std::size_t at, std::size_t first, std::size_t end, std::size_t from, std::size_t to,
                int by) {
        const std::size_t middle = first + (end - first) / 2;
        const std::size_t left = at + 1;
        const std::size_t right = at + 2 * (middle - first);
        if (from <= first && end <= to) {
            nodes_[at].boxes += by;
        } else {
            if (from < middle) update(left, first, middle, from, to, by);
            if (middle < to) update(right, middle, end, from, to, by);
        }
        const bool leaf = end - first == 1;
        if (nodes_[at].boxes > 0) {
            nodes_[at].rows = marks_[end] - marks_[first];
        } else {
            nodes_[at].rows = leaf ? 0 : nodes_[left].rows + nodes_[right].rows;
        }
    }

    const Marks marks_;
    std::vector<Node> nodes_;
};

// The part of [start, start + size) within [frameStart, frameStart + frameSize), counted from the frame's
// start.
void clipAxis(std::int32_t& start, std::int32_t& size, std::int32_t frameStart, std::int32_t frameSize) {
    const std::int64_t offset = std::int64_t{start} - frameStart;
    const std::int64_t from = std::clamp<std::int64_t>(offset, 0, frameSize);
    const std::int64_t to = std::clamp<std::int64_t>(offset + size, from, frameSize);
    start = static_cast<std::int32_t>(from);
    size = static_cast<std::int32_t>(to - from);
}

// Leaves what lies in the frame, in the frame's coordinates: no box is empty and every edge is an int.
void clip(std::vector<PixelBox>& boxes, const PixelBox& frame) {
    for (PixelBox& box : boxes) {
        clipAxis(box.x, box.width, frame.x, frame.width);
        clipAxis(box.y, box.height, frame.y, frame.height);
    }
    const auto isEmpty = [](const PixelBox& box) { return box.width < 1 || box.height < 1; };
    boxes.erase(std::remove_if(boxes.begin(), boxes.end(), isEmpty), boxes.end());
}

Marks rowMarks(const std::vector<PixelBox>& boxes) {
    Marks marks;
    marks.reserve(2 * boxes.size());
    for (const PixelBox& box : boxes) {
        marks.push_back(box.y);
        marks.push_back(box.y + box.height);
    }
    std::sort(marks.begin(), marks.end());
    marks.erase(std::unique(marks.begin(), marks.end()), marks.end());
    marks.shrink_to_fit();
    return marks;
}

// Goes over clipped boxes from left to right and calls onSlab(x0, x1, tree) for each stretch between two
// edges, with the tree of the boxes that span it. Nothing is covered left of the first stretch and right of
// the last one.
template <class OnSlab>
void sweep(std::vector<PixelBox>& boxes, OnSlab onSlab) {
    if (boxes.empty()) return;
    const auto rightEdge = [&boxes](std::uint32_t i) { return boxes[i].x + boxes[i].width; };
    std::sort(boxes.begin(), boxes.end(), [](const PixelBox& a, const PixelBox& b) { return a.x < b.x; });
    std::vector<std::uint32_t> ends(boxes.size());
    std::iota(ends.begin(), ends.end(), 0u);
    std::sort(ends.begin(), ends.end(),
              [&rightEdge](std::uint32_t a, std::uint32_t b) { return rightEdge(a) < rightEdge(b); });

    CoverTree tree(rowMarks(boxes));
    std::size_t entering = 0;
    std::int32_t x = boxes[0].x;
    for (std::size_t leaving = 0; leaving < ends.size();) {
        std::int32_t next = rightEdge(ends[leaving]);
        if (entering < boxes.size()) next = std::min(next, boxes[entering].x);
        if (next > x) onSlab(x, next, tree);
        x = next;
        while (entering < boxes.size() && boxes[entering].x == x)
            tree.change(boxes[entering++], 1);
        while (leaving < ends.size() && rightEdge(ends[leaving]) == x)
            tree.change(boxes[ends[leaving++]], -1);
    }
}

}  // namespace

std::string boxText(const PixelBox& box) {
    return std::to_string(box.width) + 'x' + std::to_string(box.height) + '+' + std::to_string(box.x) + '+' +
           std::to_string(box.y);
}

std::int64_t coveredPixels(std::vector<PixelBox> boxes, const PixelBox& frame) {
    if (frame.width < 1 || frame.height < 1) return 0;
    clip(boxes, frame);
    std::int64_t pixels = 0;
    sweep(boxes, [&pixels](std::int32_t x0, std::int32_t x1, const CoverTree& tree) {
        pixels += (std::int64_t{x1} - x0) * tree.coveredRows();
    });
    return pixels;
}

}  // namespace MUtils
