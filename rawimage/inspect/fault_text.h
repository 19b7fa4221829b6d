#pragma once

#include <string>
#include <vector>

#include "../export.h"
#include "inspection.h"

// Faults of a file in words. Names from the file are in them as safeText() shows them.

namespace MUtils {
inline namespace v1 {

// "bucket 64x64+0+0 of channel 3 alpha, offset 4096..5120: pixels do not inflate", or with the record's name
// in place of the bucket.
RAWIMAGE_EXPORT std::string faultText(const FileFault& fault);
// The same for many faults. Those of one bucket share a line: "bucket 64x64+0+0 of channels 3 alpha, 4 z,
// offset 4096..6000: pixels do not inflate".
RAWIMAGE_EXPORT std::vector<std::string> faultLines(const std::vector<FileFault>& faults);

// "3 alpha", or the index alone.
RAWIMAGE_EXPORT std::string channelText(int index, const std::string& name);

}  // namespace v1
}  // namespace MUtils
