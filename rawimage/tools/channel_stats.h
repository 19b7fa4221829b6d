#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <set>

#include "rawimage/format.h"
#include "rawimage/tools/summary.h"

namespace MUtils {
inline namespace v1 {

// Collects the pixel tags of a walk, 32 bytes each, and sums them up for each channel at the end. The
// channel list may come after the pixels, more than once, or never, so tags find their channels only then.
class ChannelStats {
  public:
    // A pixel tag whose payload is whole; `rawBytes` are the bytes of its values.
    void add(const RIF_TAG& tag, std::int64_t rawBytes);

    // Fills the channels of `summary`, those of the file's list first, by its resolution. Drops what was
    // collected. What channels cover is taken from the inspection as far as that has it.
    void summarise(const Inspection& file, FileSummary& summary);

  private:
    struct PixelTag {
        std::int32_t channel;
        std::int32_t type;
        std::int32_t x, y, width, height;
        std::uint32_t storedBytes;
        std::int32_t rawBytes;
    };
    using Position = std::deque<PixelTag>::const_iterator;

    std::optional<std::int64_t> coveredOf(std::int32_t channel, const Inspection& file) const;
    ChannelSummary summariseOne(Position first, Position end, const Inspection& file,
                                const FileSummary& summary) const;

    std::deque<PixelTag> tags_;
    std::set<std::int32_t> windowed_;  // channels that have windows
};

}  // namespace v1
}  // namespace MUtils
