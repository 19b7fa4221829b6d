#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/area/pixel_box.h"
#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

// Finds the tags of a list that have a pixel in a box: a tree of boxes, each around 16 boxes of the level
// below, over an order of the tags in which neighbours lie close together. 2.2 bytes a tag beside that order.
class PlaceIndex {
  public:
    // `numbers`, `count` places in `tags` in ascending order, are put into the index's own order. They and
    // the tags must outlive the object unchanged; boxes are not empty. Throws std::bad_alloc.
    void build(const INFOTAG* tags, std::uint32_t* numbers, std::size_t count);

    // Adds the numbers of the tags that have a pixel in `box` to `found`, in no order. Takes logarithmic time
    // and time by what it finds where boxes overlap little.
    void find(const PixelBox& box, std::vector<std::uint32_t>& found) const;

  private:
    void sortByPlace();
    bool isCoherent() const;
    void buildLevels();
    void descend(std::size_t level, std::size_t node, const PixelBox& box,
                 std::vector<std::uint32_t>& found) const;

    const INFOTAG* tags_ = nullptr;
    std::uint32_t* numbers_ = nullptr;
    std::size_t count_ = 0;
    std::vector<std::vector<PixelBox>> levels_;  // the lowest one first; the last one has one node
};

}  // namespace v1
}  // namespace MUtils
