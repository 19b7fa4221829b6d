#include "convert/to_exr/exr_output.h"

#include <new>

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

ExrOutput::ExrOutput(const std::string& path, int kind) : file_(kind) {
    run([&path](ExrFile& file) { return file.Create(path.c_str(), nullptr); });
}

ExrOutput::~ExrOutput() {
    // After a failure that is reported already.
    if (open_) (void)file_.Close();
}

void ExrOutput::run(const std::function<ErrorCode(ExrFile&)>& operation) {
    ErrorCode error;
    try {
        error = operation(file_);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        throw ConvertError(ConvertState::kWriteFailed, "", exception.what());
    }
    if (!error.empty()) throw ConvertError(ConvertState::kWriteFailed, "", error.describe());
}

void ExrOutput::close() {
    run([](ExrFile& file) { return file.Close(); });
    open_ = false;
}

}  // namespace v1
}  // namespace MUtils
