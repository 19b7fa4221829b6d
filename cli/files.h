#pragma once

#include <string>

namespace rimg {

// True when both names lead to one existing file, through links too.
bool sameFile(const std::string& a, const std::string& b);

}  // namespace rimg
