#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "rawimage/inspect/table_match.h"

namespace MUtils {
inline namespace v1 {

// Finds tags that are not where their table entries lead, because bytes were inserted or lost before them.
//
// Such tags have the headers of open entries, and between two confirmed tags many are displaced by the same
// number of bytes. A stale block of a sibling frame can look like that: other metadata displaces all of the
// sibling's tags, and pixels of a single colour always have the same compressed size. Unless bytes are known
// to have moved, a displacement therefore counts only when the sizes of its tags agree with their entries by
// more than chance, measured by how many buckets of the channel have the same size. Uncompressed pixels say
// nothing, as all of them have the same size.
//
// A tag without an entry, as its entry may be damaged, has moved when its neighbour has, and when no other
// entry claims the place from which it would have come.
class MovedTags {
  public:
    // With `bytesHaveMoved`, every displacement counts. `scan` and `match` must outlive the object. Throws
    // std::bad_alloc.
    MovedTags(const TagScan& scan, const TableMatch& match, bool bytesHaveMoved);

    bool contains(std::size_t tag) const { return moved_[tag]; }
    // True when an open entry has this header, with any offset.
    bool isListed(const RIF_TAG& header) const;

  private:
    using Displacement = std::optional<std::int64_t>;
    using Size = std::array<std::int32_t, 4>;  // channel, width, height, bytes

    void collectSizes();
    double chanceOfSize(const RIF_TAG& tag) const;
    Displacement displacementOf(const INFOTAG& tag) const;
    void judge(std::size_t from, std::size_t to, bool bytesHaveMoved);
    void follow(std::size_t tag, Displacement own, Displacement& last);
    bool mayComeFrom(const INFOTAG& tag, std::int64_t displacement) const;

    const TagScan& scan_;
    const TableMatch& match_;
    std::vector<const INFOTAG*> open_;  // by header, then by offset
    std::vector<Size> sizes_;           // of all listed pixels; sorted
    std::vector<bool> moved_;           // by tag
};

}  // namespace v1
}  // namespace MUtils
