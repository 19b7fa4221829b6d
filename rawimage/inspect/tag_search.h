#pragma once

#include <cstdint>
#include <optional>

#include "rawimage/inspect/table_extents.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/inspect/tag_scan.h"
#include "support/byte_buffer.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Examines single places of a damaged file, and finds the next tag behind damage. tag_search.cpp describes
// how; docs/recovery.md shows it. One object serves one thread. Every function may throw std::bad_alloc.
class TagSearch {
  public:
    // What is at some offset.
    struct Place {
        RIF_TAG tag;
        bool whole = false;           // the 40 bytes of a header are there
        const char* fault = nullptr;  // what is wrong with the header, or null
    };

    // `scan` has the file's length and header; it, the stream and the options must outlive the search.
    TagSearch(PStream& stream, const TagScan& scan, const InspectOptions& options, const TagRules& rules);
    const TagRules& rules() const { return rules_; }

    // The header at `offset`, for a tag that ends by `end`.
    Place look(std::int64_t offset, std::int64_t end);
    // True when a tag may begin at the place, or the file ends there or breaks off inside a tag that begins
    // there.
    bool isTagOrEnd(const Place& place, std::int64_t offset) const;
    // Null when the payload is sound. The header has been checked, so its size lies within the file.
    const char* payloadFault(const RIF_TAG& tag, std::int64_t offset);
    // Null unless the tag is a table and most of its entries cannot be those of tags before it: these bytes
    // are the beginning of a table that belongs elsewhere.
    const char* tableFault(const RIF_TAG& tag, std::int64_t offset);
    // True when a tag whose size goes past the end of the file has its whole payload nevertheless.
    bool hasWholePayload(const RIF_TAG& tag, std::int64_t offset);

    struct Resume {
        std::int64_t offset = 0;
        bool byPointer = false;  // what is before it is the payload of one tag
    };
    // Where the next sound tag begins behind the tag at `offset`, which is not sound; `end` when there is
    // none.
    Resume resumeAfter(std::int64_t offset, const Place& place, std::int64_t end);

    // The first place in [from, to) where a tag is sound alone and ends by `end`; `to` when there is none.
    std::int64_t findTag(std::int64_t from, std::int64_t to, std::int64_t end) {
        return searchBytes(from, to, end, Ends::kAnywhere);
    }

    // For a tag whose end nothing confirms: where the first tag begins that was written behind it. There is
    // one inside it when bytes of it are missing; else its own end comes back.
    std::int64_t findTagInside(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);

    // Another raw image file inside this one.
    struct OtherFile {
        std::int64_t offset = 0;  // of its header
        std::int64_t end = 0;     // where tags go on behind it; the end of the stream when they do not
    };
    // The first one that begins in [from, to), which is no sound tag's. Those that lie in a listed tag do not
    // count.
    std::optional<OtherFile> findOtherFile(std::int64_t from, std::int64_t to);

    // True when the caller's progress has returned false.
    bool stopped() const { return stopped_; }
    bool going(std::int64_t offset);

  private:
    // How much the source of a resume point counts: of a doubtful one the place itself must give proof.
    enum class Source { kReliable, kDoubtful };
    // Which tags searchBytes() takes.
    enum class Ends { kAnywhere, kBeyondSearch };

    std::int64_t searchBytes(std::int64_t from, std::int64_t to, std::int64_t end, Ends ends);
    std::optional<Resume> resumeByPointers(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);
    std::int64_t endByContent(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);
    bool isSoundAlone(const RIF_TAG& tag, std::int64_t offset, std::int64_t end);
    bool isResumePoint(std::int64_t offset, std::int64_t end, Source source);
    bool fieldsProve(const RIF_TAG& tag) const;
    bool isTableEntry(std::int64_t offset);
    std::int64_t endOfOtherFile(std::int64_t offset, const RIF_HEADER& header);
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

}  // namespace v1
}  // namespace MUtils
