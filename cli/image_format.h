#pragma once

#include <string>

namespace rimg {

enum class ImageFormat { kOther, kExr, kRaw };

// By the file's content, whatever its name is. Throws Failure (kUnreadable) when it cannot be read.
ImageFormat formatOf(const std::string& path);

}  // namespace rimg
