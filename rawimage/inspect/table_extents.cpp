#include "rawimage/inspect/table_extents.h"

#include <algorithm>
#include <iterator>

#include "rawimage/inspect/payload_pool.h"
#include "rawimage/table_entries.h"
#include "support/byte_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool isHeaderAt(PStream& stream, const RIF_TAG& tag, std::int64_t offset) {
    unsigned char expected[kTagHeaderBytes];
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, expected);
    int got = 0;
    return stream.Seek(static_cast<long>(offset)) == 0 && stream.Read(bytes, kTagHeaderBytes, got) == 0 &&
           got == kTagHeaderBytes && std::equal(bytes, std::end(bytes), expected);
}

}  // namespace

TableExtents::TableExtents(PStream& stream, const TagScan& scan, const TagRules& rules) {
    const std::uint64_t stored = scan.header.infoTagsOffset;
    const std::int64_t lastPlace = scan.fileBytes - kTagHeaderBytes;
    if (lastPlace < kFileHeaderBytes || stored < kFileHeaderBytes ||
        stored > static_cast<std::uint64_t>(lastPlace))
        return;
    const auto offset = static_cast<std::int64_t>(stored);
    ByteBuffer bytes;
    if (!readPayloadAt(stream, offset, kTagHeaderBytes, bytes)) return;
    const RIF_TAG tag = decodeTag(bytes.data());
    if (tag.id != TAG_INFO_TAGS || rules.headerFault(tag, offset, scan.fileBytes) != nullptr) return;
    TableEntries entries(stream, offset + kTagHeaderBytes, tag.p1);
    for (INFOTAG entry; entries.next(entry);) {
        if (entry.offset < kFileHeaderBytes || entry.offset > static_cast<std::uint64_t>(lastPlace)) continue;
        const auto at = static_cast<std::int64_t>(entry.offset);
        if (rules.headerFault(entry, at, scan.fileBytes) == nullptr)
            extents_.push_back({at, at + entry.size, isOpaque(entry.id), isHeaderAt(stream, entry, at)});
    }
    std::sort(extents_.begin(), extents_.end(),
              [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
    for (std::size_t i = 0; i + 1 < extents_.size(); ++i)
        extents_[i].end = std::min(extents_[i].end, extents_[i + 1].offset);
    dropStale();
}

// Behind the last one is the table, which was found at its place.
void TableExtents::dropStale() {
    bool nextConfirmed = true;
    for (auto extent = extents_.rbegin(); extent != extents_.rend(); ++extent) {
        const bool confirmed = extent->confirmed;
        extent->confirmed = confirmed || nextConfirmed;
        nextConfirmed = confirmed;
    }
    extents_.erase(std::remove_if(extents_.begin(), extents_.end(),
                                  [](const Extent& extent) { return !extent.confirmed; }),
                   extents_.end());
}

std::vector<TableExtents::Extent>::const_iterator TableExtents::lastUpTo(std::int64_t offset) const {
    const auto after =
        std::upper_bound(extents_.begin(), extents_.end(), offset,
                         [](std::int64_t at, const Extent& extent) { return at < extent.offset; });
    return after == extents_.begin() ? extents_.end() : after - 1;
}

bool TableExtents::covers(std::int64_t offset, bool holdsTags) const {
    const auto extent = lastUpTo(offset);
    if (extent != extents_.end() && holdsTags && !extent->opaque) return false;
    return extent != extents_.end() && extent->offset < offset && offset < extent->end;
}

std::int64_t TableExtents::endOf(std::int64_t offset) const {
    const auto extent = lastUpTo(offset);
    return extent != extents_.end() && extent->offset == offset ? extent->end : -1;
}

}  // namespace v1
}  // namespace MUtils
