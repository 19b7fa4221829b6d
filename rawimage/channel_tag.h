#pragma once

#include <cstdint>
#include <vector>

#include "rawimage/format.h"
#include "rawimage/output_file.h"

namespace MUtils {
inline namespace v1 {

// One channel of a region on its way into a pixel tag. The numbers are those of the tag's header.
struct ChannelTag {
    const MBVTable* data = nullptr;
    int index = 0;
    RegionChannelType type = RCT_NONE;
    int x = 0, y = 0, width = 0, height = 0;
    int p6 = 0, p7 = 0;

    // Bytes of the values, -1 when a tag cannot hold as many or the type is unknown.
    std::int64_t bytes() const;
};

// The bytes of width x height values, or -1 when a tag cannot hold as many.
std::int64_t pixelTagBytes(int width, int height, int valueSize);

// Makes `tags` those of a region, in the order of the file: its channels that have data, the last one first.
void listChannelTags(const RegionFeed::Call& call, std::vector<ChannelTag>& tags);

}  // namespace v1
}  // namespace MUtils
