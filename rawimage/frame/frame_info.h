#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "rawimage/frame/raw_frame.h"

namespace MUtils {
inline namespace v1 {

// True when the list is as writers make it and has all channels of pixel tags, with their types, or when
// there is no list. `channels`: those of the tags, index and type.
bool listAgrees(const std::vector<RIF_CHANNEL>& list, const std::map<std::int32_t, std::int32_t>& channels);

// `channels`: as above.
std::shared_ptr<const FrameInfo> makeFrameInfo(const Inspection& file,
                                               const std::map<std::int32_t, std::int32_t>& channels);

}  // namespace v1
}  // namespace MUtils
