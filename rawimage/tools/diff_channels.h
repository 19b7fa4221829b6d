#pragma once

#include "rawimage/tools/diff.h"

namespace MUtils {
inline namespace v1 {

// Sets `channels` and `onlyIn` of the report: the channels of both frames, matched, of which a pattern of the
// options fits a name. Returns the first pattern that fits none, or null.
const std::string* matchChannels(const FrameInfo& a, const FrameInfo& b, const DiffOptions& options,
                                 DiffReport& report);

}  // namespace v1
}  // namespace MUtils
