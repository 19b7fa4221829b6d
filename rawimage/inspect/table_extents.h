#pragma once

#include <cstdint>
#include <vector>

#include "rawimage/inspect/tag_scan.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Which bytes of a file belong to which tag according to its table. A search uses them so that it does not
// take the content of a payload for tags. Where bytes are missing or were inserted, entries lead to places at
// which their tags are no more: an entry counts when its own tag's header, or that of the next listed tag, is
// where the table has it.
class TableExtents {
  public:
    // Reads the table that the header's offset leads to, if there is one. Throws std::bad_alloc.
    TableExtents(PStream& stream, const TagScan& scan, const TagRules& rules);

    // True when `offset` lies inside a tag, behind its first byte; one that may hold tags, where `holdsTags`
    // asks for that.
    bool covers(std::int64_t offset, bool holdsTags) const;
    // Where the tag that begins at `offset` ends; -1 when none is listed there.
    std::int64_t endOf(std::int64_t offset) const;

  private:
    struct Extent {
        std::int64_t offset;
        std::int64_t end;
        bool opaque;
        bool confirmed;  // the tag's header is there
    };

    void dropStale();

    std::vector<Extent>::const_iterator lastUpTo(std::int64_t offset) const;

    std::vector<Extent> extents_;  // by offset; they do not overlap
};

}  // namespace v1
}  // namespace MUtils
