#pragma once

#include <string>
#include <vector>

#include "convert/to_exr/exr_channels.h"

namespace rimg {

// What OpenEXR does with the channels other than a compression's name promises, in one line; "" when it does
// what was asked. `compression` as ExrFile numbers them, `bits` of a value that is no integer.
std::string storageRemark(int compression, int bits, const std::vector<ExrChannel>& channels);

}  // namespace rimg
