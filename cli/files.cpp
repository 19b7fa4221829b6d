#include "cli/files.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "cli/report.h"

namespace rimg {

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ignored;
    return std::filesystem::equivalent(a, b, ignored);
}

void requireFolderFor(const std::string& output) {
    const std::filesystem::path folder = std::filesystem::path(output).parent_path();
    std::error_code ignored;
    if (folder.empty() || std::filesystem::is_directory(folder, ignored)) return;
    throw Failure(ExitCode::kFailure, output, outputCause(ENOENT));
}

}  // namespace rimg
