#include "cli/exr_output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>

#include "cli/report.h"

namespace rimg {

namespace fs = std::filesystem;

ExrOutput::ExrOutput(const std::string& path, int kind) : path_(path), target_(path), file_(kind) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    const bool replaces = fs::is_regular_file(status);
    if (replaces) {
        if (access(path.c_str(), W_OK) != 0)
            throw Failure(ExitCode::kFailure, path, "cannot be written: " + systemMessage(errno));
        target_ = fs::canonical(path, ignored).string();
    }
    const bool beside = replaces || !fs::exists(status);
    writing_ = beside ? target_ + ".part-" + std::to_string(getpid()) : target_;
    open_ = true;
    run([this](ExrFile& file) { return file.Create(writing_.c_str(), nullptr); });
}

ExrOutput::~ExrOutput() {
    if (!open_) return;
    // Nobody to tell: a failure is on its way already.
    (void)file_.Close();
    if (writing_ != target_) std::remove(writing_.c_str());
}

void ExrOutput::run(const std::function<ErrorCode(ExrFile&)>& operation) {
    ErrorCode error;
    try {
        error = operation(file_);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        throw Failure(ExitCode::kFailure, path_, exception.what());
    }
    if (!error.empty()) throw Failure(ExitCode::kFailure, path_, error.describe());
}

void ExrOutput::close() {
    run([](ExrFile& file) { return file.Close(); });
    if (writing_ != target_) {
        std::error_code ignored;
        const fs::file_status old = fs::status(target_, ignored);
        if (fs::exists(old)) fs::permissions(writing_, old.permissions(), ignored);
        if (std::rename(writing_.c_str(), target_.c_str()) != 0)
            throw Failure(ExitCode::kFailure, path_, "cannot be written: " + systemMessage(errno));
    }
    open_ = false;
}

}  // namespace rimg
