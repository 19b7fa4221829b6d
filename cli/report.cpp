#include "cli/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace rimg {

void report(const std::string& file, const std::string& cause, std::int64_t offset) {
    std::string line = "rimg: ";
    if (!file.empty()) line += file + ": ";
    if (offset != Failure::kNoOffset) line += "offset " + std::to_string(offset) + ": ";
    line += cause;
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    while (!line.empty() && control(line.back()))
        line.pop_back();
    std::replace_if(line.begin(), line.end(), control, '?');
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

void report(const Failure& failure) {
    report(failure.file(), failure.what(), failure.offset());
}

void flushOutput() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
    throw Failure(ExitCode::kFailure, "standard output", systemMessage(errno));
}

std::string systemMessage(int code) {
    return std::generic_category().message(code);
}

std::string outputCause(int code) {
    const bool locked = code == EWOULDBLOCK;
    return "cannot be written: " + (locked ? "another writer has the file open" : systemMessage(code));
}

std::string outputCause(const ErrorCode& error) {
    const bool opening = error.getError() > 0 && error.operation() == std::string("Create");
    return opening ? outputCause(error.getError()) : error.describe();
}

Failure outputFailure(const std::string& file, int code) {
    const bool locked = code == EWOULDBLOCK;
    return {locked ? ExitCode::kUnreadable : ExitCode::kFailure, file, outputCause(code)};
}

}  // namespace rimg
