#pragma once

#include <string>

#include "cli/json_output.h"
#include "rawimage/inspect/inspection.h"

namespace rimg {

// A fault as every verb shows it: "bucket 64x64+0+0 of channel 3 alpha, offset 4096..5120: pixels do not
// inflate", or with the record's name in place of the bucket.
std::string faultText(const MUtils::FileFault& fault);
Json jsonOf(const MUtils::FileFault& fault);

// "3 alpha", or the index alone.
std::string channelText(int index, const std::string& name);

}  // namespace rimg
