#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "rawimage/inspect/tag_check.h"
#include "rawimage/inspect/tag_scan.h"
#include "support/byte_buffer.h"
#include "support/pstream.h"

namespace MUtils {

// Which bytes of a file belong to which tag by what its table says: where a search must not take what a
// payload holds for tags.
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
    };

    std::vector<Extent>::const_iterator lastUpTo(std::int64_t offset) const;

    std::vector<Extent> extents_;  // by offset; they do not overlap
};

// Looks at single places of a file that is taken apart, and finds the way on behind damage.
class TagSearch {
  public:
    // What stands at some offset.
    struct Place {
        RIF_TAG tag;
        bool whole = false;           // there are the 40 bytes of a header
        const char* fault = nullptr;  // what is wrong with it, or null
    };

    // `scan` has the file's length and header; it, the stream and the options must outlive the search.
    TagSearch(PStream& stream, const TagScan& scan, const InspectOptions& options, const TagRules& rules);
    const TagRules& rules() const { return rules_; }

    // The header at `offset`, for a tag that ends by `end`.
    Place look(std::int64_t offset, std::int64_t end);
    // True when a tag may begin there, or the file ends there, or breaks off inside a tag that begins there.
    bool leadsOn(const Place& place, std::int64_t offset) const;
    // Null when the payload is sound. The header has been checked, so its size lies within the file.
    const char* payloadFault(const RIF_TAG& tag, std::int64_t offset);
    // Null unless the tag is a table and most of its entries cannot be those of tags before it: then what
    // stands there is the beginning of some other place's.
    const char* tableFault(const RIF_TAG& tag, std::int64_t offset);
    // True when the payload of a tag that goes past the end of the file is all there nevertheless.
    bool endsEarly(const RIF_TAG& tag, std::int64_t offset);
    // True when nothing may come before it and everything about the tag there is right.
    bool stands(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);

    // Where the next sound tag begins behind the tag at `offset`, which is not sound; `end` when there is
    // none. The places that the table, the parameters, the payload or the size of the damaged tag point to
    // come first; else every byte is tried.
    std::int64_t nextAfter(std::int64_t offset, const Place& place, std::int64_t end);

    // The first place from `from` on where a tag stands that ends by `end`; `end` when there is none.
    std::int64_t search(std::int64_t from, std::int64_t end) { return search(from, end, end); }
    // Tries the places before `to` for tags that end by `end`, and beyond `to` where that is asked for; gives
    // `to` when there is none.
    std::int64_t search(std::int64_t from, std::int64_t to, std::int64_t end, bool beyond = false);

    // Where tags begin under `above`, the tag at `offset`, the last of which ends by `end` and reaches beyond
    // the end of `above`, which is what comes back when there are none. If there are, bytes of it are
    // missing.
    std::int64_t tagsAcross(const RIF_TAG& above, std::int64_t offset, std::int64_t end);

    // True when the caller's progress has said so.
    bool stopped() const { return stopped_; }
    bool going(std::int64_t offset);

  private:
    std::int64_t naturalEnd(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);
    bool mayResume(std::int64_t offset, std::int64_t end, bool weakly);
    bool isTableEntry(std::int64_t offset);
    bool readAt(std::int64_t offset, unsigned char* bytes, int size);
    int readChunk(std::int64_t offset, std::int64_t size);
    const TableExtents& table();

    PStream& stream_;
    const TagScan& scan_;
    const InspectOptions& options_;
    const TagRules rules_;
    PayloadCheck check_;
    ByteBuffer payload_;
    ByteBuffer chunk_;
    std::optional<TableExtents> table_;  // loaded when it is first asked
    bool stopped_ = false;
    // Payload bytes that may still be read and inflated here, so that hostile files come to an end. Damage
    // costs a few payloads for each place.
    std::int64_t budget_;
};

}  // namespace MUtils
