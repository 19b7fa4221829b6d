#pragma once

#include <cstdint>
#include <vector>

#include "rawimage/frame/frame_snapshot.h"

namespace MUtils {
inline namespace v1 {

// As RawFrame::bands().
std::vector<PixelBox> cutIntoBands(const FrameSnapshot& snapshot, const PixelBox& box,
                                   const std::vector<int>& channels, std::int64_t maxBytes);
// As RawFrame::uncutBands().
std::vector<PixelBox> cutBetweenTags(const FrameSnapshot& snapshot, const PixelBox& box,
                                     const std::vector<int>& channels, std::int64_t rows);

}  // namespace v1
}  // namespace MUtils
