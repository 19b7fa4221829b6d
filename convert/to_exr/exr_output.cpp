#include "convert/to_exr/exr_output.h"

#include <new>

#include "cli/report.h"

namespace rimg {

ExrOutput::ExrOutput(const std::string& path, int kind, const std::vector<std::string>& inputs)
    : output_(path, OutputFile::Kind::kFile, inputs), file_(kind) {
    run([this](ExrFile& file) { return file.Create(output_.path().c_str(), nullptr); });
}

ExrOutput::~ExrOutput() {
    // Nobody to tell: a failure is on its way already.
    if (open_) (void)file_.Close();
}

void ExrOutput::run(const std::function<ErrorCode(ExrFile&)>& operation) {
    ErrorCode error;
    try {
        error = operation(file_);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        throw Failure(ExitCode::kFailure, output_.name(), output_.named(exception.what()));
    }
    if (!error.empty()) {
        throw Failure(ExitCode::kFailure, output_.name(), output_.named(error.describe()));
    }
}

void ExrOutput::close() {
    run([](ExrFile& file) { return file.Close(); });
    open_ = false;
    output_.commit();
}

}  // namespace rimg
