#include "convert/from_exr/raw_output.h"

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

RawOutput::RawOutput(const std::string& path, const std::vector<std::string>& inputs)
    : output_(path, OutputFile::Kind::kFile, inputs) {
    if (const int code = stream_.Create(output_.path().c_str(), 0); code != 0) {
        throw outputFailure(output_.name(), code);
    }
    check(file_.Create(output_.path().c_str(), &stream_));
}

void RawOutput::check(const ErrorCode& error) {
    if (error.empty()) return;
    const std::string cause = output_.named(error.describe());
    if (!broken()) throw Failure(ExitCode::kFailure, output_.name(), cause);
    throw Failure(ExitCode::kFailure, output_.name(), systemMessage(stream_.error) + ": " + cause,
                  stream_.errorOffset);
}

void RawOutput::close() {
    check(file_.Close());
    output_.commit();
}

}  // namespace rimg
