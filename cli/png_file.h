#pragma once

#include <string>
#include <vector>

#include "support/rgb24.h"

namespace rimg {

// Writes `width` x `height` pixels, row after row from the top, as an 8-bit RGB PNG file in sRGB. What cannot
// be written is removed again and thrown as a Failure.
void writePng(const std::string& file, const std::vector<RGB24>& pixels, int width, int height);

}  // namespace rimg
