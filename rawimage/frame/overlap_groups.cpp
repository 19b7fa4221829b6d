#include "rawimage/frame/overlap_groups.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <numeric>

namespace MUtils {
inline namespace v1 {

namespace {

// Boxes that are known to be in one group lead to a common root, the first of them.
class Groups {
  public:
    explicit Groups(std::size_t count) : parents_(count) {
        std::iota(parents_.begin(), parents_.end(), std::size_t{0});
    }

    std::size_t rootOf(std::size_t i) {
        while (parents_[i] != i)
            i = parents_[i] = parents_[parents_[i]];
        return i;
    }

    std::size_t join(std::size_t a, std::size_t b) {
        a = rootOf(a);
        b = rootOf(b);
        return parents_[std::max(a, b)] = std::min(a, b);
    }

  private:
    std::vector<std::size_t> parents_;
};

// Columns that a group covers down to the row `y1`.
struct Open {
    std::int64_t x1, y1;
    std::size_t group;
};

}  // namespace

// Goes over the boxes from the top down and keeps the columns that are open: intervals that do not overlap,
// each with the bottom of what is above. An interval that a new box meets has ended above it, or is of its
// group; the interval of a group is as wide and as low as all of its boxes.
std::vector<std::size_t> groupOverlapping(const std::vector<PixelBox>& boxes) {
    std::vector<std::size_t> order(boxes.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&boxes](std::size_t a, std::size_t b) {
        return boxes[a].y0 != boxes[b].y0 ? boxes[a].y0 < boxes[b].y0 : boxes[a].x0 < boxes[b].x0;
    });
    Groups groups(boxes.size());
    std::map<std::int64_t, Open> open;  // by first column
    for (const std::size_t i : order) {
        std::int64_t x0 = boxes[i].x0;
        Open own{boxes[i].x1, boxes[i].y1, i};
        auto at = open.upper_bound(x0);
        if (at != open.begin() && std::prev(at)->second.x1 > x0) --at;
        while (at != open.end() && at->first < own.x1) {
            if (at->second.y1 > boxes[i].y0) {
                own.group = groups.join(own.group, at->second.group);
                x0 = std::min(x0, at->first);
                own.x1 = std::max(own.x1, at->second.x1);
                own.y1 = std::max(own.y1, at->second.y1);
            }
            at = open.erase(at);
        }
        open.emplace(x0, own);
    }
    std::vector<std::size_t> result(boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i)
        result[i] = groups.rootOf(i);
    return result;
}

}  // namespace v1
}  // namespace MUtils
