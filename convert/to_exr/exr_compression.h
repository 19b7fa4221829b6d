#pragma once

#include <optional>
#include <vector>

#include "convert/conversion.h"
#include "convert/to_exr/exr_channels.h"

namespace MUtils {
inline namespace v1 {

// A remark on what OpenEXR does with the channels that a compression's name does not promise, if anything.
// `compression` as ExrFile numbers them, `bits` of a value that is no integer.
std::optional<ConvertNote> storageRemark(int compression, int bits, const std::vector<ExrChannel>& channels);

}  // namespace v1
}  // namespace MUtils
