#pragma once

#include <string>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Opens a file for reading. Throws ConvertError (kCannotOpen) with the system's words when that fails.
void openInput(PFileStream& stream, const std::string& path);

}  // namespace v1
}  // namespace MUtils
