#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "convert/channel_grouping.h"
#include "convert/from_exr/exr_band.h"
#include "rawimage/area/pixel_box.h"
#include "rawimage/records.h"

namespace MUtils {
inline namespace v1 {

// The readers of a file's parts; null for a part that has nothing within the frame.
using ExrBands = std::vector<std::unique_ptr<ExrBand>>;

// The render channels of an OpenEXR file as the writers take them: the list of their descriptions, and one
// region for all buckets, one after the other.
class ExrRegion {
  public:
    // `channels` must live longer. Buckets will be of at most `maxPixels` pixels.
    ExrRegion(const std::vector<GroupedChannel>& channels, int maxPixels);
    ExrRegion(const ExrRegion&) = delete;
    ExrRegion& operator=(const ExrRegion&) = delete;

    // The bytes of memory of such a region and of the writer's copies of the channel in work.
    static double bytesNeeded(const std::vector<GroupedChannel>& channels, std::int64_t maxPixels);

    Table<RegionChannelCallback*, 100>* descriptions() { return &list_; }

    // The region of the pixels `area`, valid until the next call. Channels of the parts whose entry in
    // `areas` is `area` have their values, from `bands`; the others have no data.
    MRRegionData* load(const ExrBands& bands, const std::vector<PixelBox>& areas, const PixelBox& area);

    // A region without pixels as wide as `window`, valid until the next call. Only channels of the parts
    // whose entry in `windows` is `window` have data, which is empty.
    MRRegionData* announce(const std::vector<PixelBox>& windows, const PixelBox& window);

  private:
    void setBox(const PixelBox& box);
    void loadChannel(const ExrBand& band, const GroupedChannel& channel, const PixelBox& area,
                     MBVTable& table);

    const std::vector<GroupedChannel>& channels_;
    std::vector<GroupedDescription> descriptions_;
    Table<RegionChannelCallback*, 100> list_;  // points into descriptions_
    std::vector<std::unique_ptr<MBVTable>> tables_;
    MRRegionData region_;  // points to tables_
    std::vector<std::uint32_t> values_;
};

}  // namespace v1
}  // namespace MUtils
