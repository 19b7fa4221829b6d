#pragma once

#include <cstdint>
#include <deque>
#include <vector>

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

    // Fills the channels of `summary`, those in `listed` first, by its resolution. Drops what was collected.
    void summarise(const std::vector<RIF_CHANNEL>& listed, FileSummary& summary);

  private:
    struct PixelTag {
        std::int32_t channel;
        std::int32_t type;
        std::int32_t x, y, width, height;
        std::uint32_t storedBytes;
        std::int32_t rawBytes;
    };
    using Position = std::deque<PixelTag>::const_iterator;

    static ChannelSummary summariseOne(Position first, Position end, const FileSummary& summary);

    std::deque<PixelTag> tags_;
};

}  // namespace v1
}  // namespace MUtils
