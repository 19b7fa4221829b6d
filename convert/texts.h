#pragma once

#include <string>
#include <vector>

namespace MUtils {

// The system's words for an errno code.
std::string systemMessage(int code);

// "a, b, c".
std::string joined(const std::vector<std::string>& names);

// "4 MiB", rounded up.
std::string mebibytes(double bytes);

}  // namespace MUtils
