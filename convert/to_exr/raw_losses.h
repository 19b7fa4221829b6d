#pragma once

#include <string>
#include <vector>

#include "cli/convert_log.h"
#include "cli/exit_codes.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/pixel_loader.h"
#include "convert/to_exr/raw_input.h"

namespace rimg {

// Enters in the log what a conversion could not take from a raw image, and answers for it: kDamaged when
// something is lost, kIncomplete when the file was never finished or lacks pixels of a channel that was
// wanted.
ExitCode tellLosses(const RawInput& input, const std::vector<ExrChannel>& channels,
                    const std::vector<PixelLoader::Loss>& lost, const std::string& output, ConvertLog& log);

}  // namespace rimg
