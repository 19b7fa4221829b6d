#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/inspect/tag_scan.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The entries of the table at the end of a file against the tags that were found in it. An entry with the
// header of the tag at its offset confirms that tag. The others are open: they lead into a gap, into a tag,
// nowhere, or to a tag with another header.
class TableMatch {
  public:
    static constexpr std::size_t kNoTag = SIZE_MAX;

    struct OpenEntry {
        INFOTAG header;
        std::int64_t place;     // of the entry itself
        std::size_t tag;        // that begins at the entry's offset, or kNoTag
        bool repeated = false;  // the header is that of a tag that another entry confirms
        // The header is possible, and its bytes are neither those of a confirmed tag nor those that another
        // possible entry claims.
        bool sound = false;
    };

    // Reads the table, which is the scan's last tag and ends the file. `scan` must outlive the object. Throws
    // std::bad_alloc.
    TableMatch(PStream& stream, const TagScan& scan);

    // Where the table could not be read further; -1 when all of it was read.
    std::int64_t failedAt() const { return failedAt_; }

    // By tag; the table itself counts as confirmed.
    const std::vector<bool>& confirmed() const { return confirmed_; }
    std::size_t confirmedCount() const { return confirmedCount_; }
    // True when an entry leads to the tag, whether it confirms it or not.
    bool isListed(std::size_t tag) const { return listed_[tag]; }

    const std::vector<OpenEntry>& open() const { return open_; }  // by offset
    // The sound ones of open(), by offset. They do not overlap.
    const std::vector<const OpenEntry*>& sound() const { return sound_; }
    // The first of sound() with bytes at or behind `offset`.
    std::vector<const OpenEntry*>::const_iterator soundFrom(std::int64_t offset) const;
    // True when a confirmed tag, a sound open entry or the table begins at `offset`.
    bool beginsAt(std::int64_t offset) const;

  private:
    void match(const INFOTAG& entry, std::int64_t place);
    bool isPossible(const OpenEntry& entry, const std::vector<std::uint32_t>& confirmedBefore) const;
    void weigh();

    const TagScan& scan_;
    std::int64_t failedAt_ = -1;
    std::vector<bool> confirmed_;
    std::vector<bool> listed_;
    std::size_t confirmedCount_ = 0;
    std::vector<OpenEntry> open_;
    std::vector<const OpenEntry*> sound_;
};

}  // namespace v1
}  // namespace MUtils
