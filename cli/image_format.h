#pragma once

#include <string>

#include "convert/image_format.h"

namespace rimg {

using MUtils::ImageFormat;

// Throws Failure (kUnreadable) when the file cannot be read.
ImageFormat formatOf(const std::string& path);

}  // namespace rimg
