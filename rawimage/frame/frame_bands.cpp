#include "rawimage/frame/frame_bands.h"

#include <algorithm>
#include <utility>

#include "rawimage/area/row_span.h"
#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The rows that cannot be cut between without cutting a tag, from the top down, as far apart as possible.
std::vector<RowSpan> uncutRows(const FrameSnapshot& snapshot, const PixelBox& box,
                               const std::vector<int>& channels) {
    std::vector<RowSpan> rows;
    for (const int channel : channels) {
        for (const INFOTAG* tag : snapshot.find(channel, box, false)) {
            const PixelBox part = intersect(boxOf(*tag), box);
            if (rows.empty() || rows.back().y0 != part.y0 || rows.back().y1 != part.y1)
                rows.push_back({part.y0, part.y1});
        }
    }
    return joinOverlapping(std::move(rows));
}

std::int64_t bytesOfRow(const FrameSnapshot& snapshot, const PixelBox& box,
                        const std::vector<int>& channels) {
    std::int64_t bytes = 0;
    for (const int index : channels) {
        if (const FrameChannel* channel = snapshot.info()->findIndex(index)) bytes += channel->valueBytes();
    }
    return std::max<std::int64_t>(bytes, 1) * box.width();
}

}  // namespace

std::vector<PixelBox> cutIntoBands(const FrameSnapshot& snapshot, const PixelBox& box,
                                   const std::vector<int>& channels, std::int64_t maxBytes) {
    std::vector<PixelBox> bands;
    if (box.empty()) return bands;
    const std::vector<RowSpan> uncut = uncutRows(snapshot, box, channels);
    // A band and the one below it have more than `most` rows together.
    constexpr auto kMostOfPairs = static_cast<std::int64_t>(kMaxFrameBands / 2);
    const std::int64_t most = std::max({maxBytes / bytesOfRow(snapshot, box, channels),
                                        (box.height() + kMostOfPairs - 1) / kMostOfPairs, std::int64_t{1}});
    for (std::int64_t y = box.y0; y < box.y1;) {
        std::int64_t end = box.y1 - y > most ? y + most : box.y1;
        // The first ones that reach below the end.
        const auto cut = std::partition_point(uncut.begin(), uncut.end(),
                                              [end](const RowSpan& rows) { return rows.y1 <= end; });
        if (cut != uncut.end() && cut->y0 < end && cut->y0 > y) end = cut->y0;
        bands.push_back({box.x0, y, box.x1, end});
        y = end;
    }
    return bands;
}

std::vector<PixelBox> cutBetweenTags(const FrameSnapshot& snapshot, const PixelBox& box,
                                     const std::vector<int>& channels, std::int64_t rows) {
    std::vector<PixelBox> bands;
    if (box.empty()) return bands;
    const std::int64_t most = static_cast<std::int64_t>(kMaxFrameBands) * rows;
    rows *= (box.height() + most - 1) / most;
    const std::vector<RowSpan> uncut = uncutRows(snapshot, box, channels);
    auto next = uncut.begin();
    for (std::int64_t y = box.y0; y < box.y1; y = bands.back().y1) {
        std::int64_t end = std::min(y + rows, box.y1);
        for (; next != uncut.end() && next->y0 < end; ++next) {
            if (next->y1 > end) end = std::min(end + (next->y1 - end + rows - 1) / rows * rows, box.y1);
        }
        bands.push_back({box.x0, y, box.x1, end});
    }
    return bands;
}

}  // namespace v1
}  // namespace MUtils
