#include "cli/raw_output.h"

#include "cli/report.h"

namespace rimg {

int RawOutput::Stream::Write(const void* data, int size, int& bytesWritten) {
    const int code = PFileStream::Write(data, size, bytesWritten);
    if (code != 0 && error == 0) {
        error = code;
        errorOffset = Tell();
    }
    return code;
}

RawOutput::RawOutput(const std::string& path) : path_(path) {
    if (const int code = stream_.Create(path.c_str(), 0); code != 0) {
        throw Failure(ExitCode::kFailure, path_, outputCause(code));
    }
    open_ = true;
    check(file_.Create(path.c_str(), &stream_));
}

RawOutput::~RawOutput() {
    // Nobody to tell: a failure is on its way already.
    if (open_) (void)file_.Close();
}

void RawOutput::check(const ErrorCode& error) {
    if (error.empty()) return;
    if (!broken()) throw Failure(ExitCode::kFailure, path_, error.describe());
    throw Failure(ExitCode::kFailure, path_, systemMessage(stream_.error) + ": " + error.describe(),
                  stream_.errorOffset);
}

void RawOutput::close() {
    open_ = false;
    check(file_.Close());
}

}  // namespace rimg
