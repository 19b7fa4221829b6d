#pragma once

#include <string>
#include <vector>

#include "convert/from_exr/exr_input.h"

namespace MUtils {
inline namespace v1 {

// The names of the attributes of an OpenEXR file that a raw image has no place for, each once. Those that
// describe the pixels' storage and windows do not count, nor those that become tags: the camera, texts, a
// render region that is `rendered`.
std::vector<std::string> droppedAttributes(const ExrInput& input, const ExrMetadata& metadata,
                                           const PixelBox& rendered);

// True when some part has another screen window than the files of raw images get, (0, 0) and 1.
bool hasOwnScreenWindow(const ExrInput& input);

}  // namespace v1
}  // namespace MUtils
