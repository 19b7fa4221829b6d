#pragma once

#include <string>

#include "support/pstream.h"

namespace MUtils {

// Opens a file for reading. Throws ConvertError (kCannotOpen) with the system's words when that fails.
void openInput(PFileStream& stream, const std::string& path);

}  // namespace MUtils
