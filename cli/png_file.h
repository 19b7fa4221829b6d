#pragma once

#include <string>
#include <vector>

#include "cli/stream_output.h"
#include "support/rgb24.h"

namespace rimg {

// A check for CLI::Option::check() of an output: what is wrong with its name, else "".
std::string checkPngEnding(const std::string& output);

// Writes `width` x `height` pixels, row after row from the top, as an 8-bit RGB PNG file in sRGB, and closes
// `output`. Throws Failure.
void writePng(StreamOutput& output, const std::vector<RGB24>& pixels, int width, int height);

}  // namespace rimg
