#include "cli/files.h"

#include <filesystem>
#include <system_error>

namespace rimg {

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ignored;
    return std::filesystem::equivalent(a, b, ignored);
}

}  // namespace rimg
