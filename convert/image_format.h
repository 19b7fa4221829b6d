#pragma once

#include <string>

#include "../rawimage/export.h"

namespace MUtils {
inline namespace v1 {

enum class ImageFormat { kOther, kExr, kRaw };

// The format of a file by its content, whatever its name is. `error` is 0, or the system's code for a file
// that cannot be read, which is then kOther.
RAWIMAGE_EXPORT ImageFormat imageFormatOf(const std::string& path, int& error);

}  // namespace v1
}  // namespace MUtils
