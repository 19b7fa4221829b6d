#include "convert/from_exr/raw_output.h"

#include <cerrno>

#include "convert/convert_error.h"
#include "convert/texts.h"
#include "support/new_file.h"

namespace MUtils {
inline namespace v1 {

int RawOutput::Stream::Write(const void* data, int size, int& bytesWritten) {
    const int code = PFileStream::Write(data, size, bytesWritten);
    if (code != 0 && error == 0) {
        error = code;
        errorOffset = Tell();
    }
    return code;
}

RawOutput::RawOutput(const std::string& path) {
    if (const int code = stream_.Create(path.c_str(), 0); code != 0) {
        throw ConvertError(code == EWOULDBLOCK ? ConvertState::kLocked : ConvertState::kWriteFailed, "",
                           outputErrorText(code));
    }
    check(file_.Create(path.c_str(), &stream_));
}

void RawOutput::check(const ErrorCode& error) const {
    if (error.empty()) return;
    if (!broken()) throw ConvertError(ConvertState::kWriteFailed, "", error.describe());
    throw ConvertError(ConvertState::kWriteFailed, "", systemMessage(stream_.error) + ": " + error.describe(),
                       stream_.errorOffset);
}

void RawOutput::close() {
    check(file_.Close());
}

}  // namespace v1
}  // namespace MUtils
