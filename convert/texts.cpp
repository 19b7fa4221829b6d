#include "convert/texts.h"

#include <cmath>
#include <system_error>

namespace MUtils {
inline namespace v1 {

std::string systemMessage(int code) {
    return std::generic_category().message(code);
}

std::string joined(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

std::string mebibytes(double bytes) {
    constexpr double kMebibyte = 1 << 20;
    return std::to_string(std::llround(std::ceil(bytes / kMebibyte))) + " MiB";
}

}  // namespace v1
}  // namespace MUtils
