#pragma once

#include <string>
#include <vector>

namespace MUtils {
inline namespace v1 {

// The system's words for an errno code.
std::string systemMessage(int code);

// "a, b, c".
std::string joined(const std::vector<std::string>& names);

// "4 MiB", rounded up.
std::string mebibytes(double bytes);

}  // namespace v1
}  // namespace MUtils
