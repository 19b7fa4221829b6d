#pragma once

#include <vector>

#include "convert/conversion.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/raw_input.h"

namespace MUtils {
inline namespace v1 {

// Enters in the report the damage of a raw image, with the tags that could not be read (`unread`), and the
// pixels of `window` that the written channels lack. Of many faults the first 1000 are listed. Returns the
// state of the conversion: kDamaged when there is any damage, kIncomplete when the file was never finished or
// lacks pixels of a written channel.
ConvertState noteRawLosses(const RawInput& input, const std::vector<ExrChannel>& channels,
                           const PixelBox& window, std::vector<FileFault> unread, ConvertReport& report);

}  // namespace v1
}  // namespace MUtils
