#pragma once

#include <string>

#include "support/safe_text.h"

namespace rimg {

using MUtils::safeText;

// A file name as a word for the shell, safe for a terminal.
std::string shellWord(const std::string& name);

}  // namespace rimg
