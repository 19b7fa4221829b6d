#pragma once

#include <string>
#include <vector>

#include "cli/exit_codes.h"
#include "cli/exr_channels.h"
#include "cli/pixel_loader.h"
#include "cli/raw_input.h"

namespace rimg {

// Reports what a conversion could not take from a raw image, and answers for it: kDamaged when something is
// lost, kIncomplete when the file was never finished or lacks pixels of a channel that was wanted.
ExitCode tellLosses(const RawInput& input, const std::vector<ExrChannel>& channels,
                    const std::vector<PixelLoader::Loss>& lost, const std::string& output);

}  // namespace rimg
