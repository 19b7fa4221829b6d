#include "cli/report.h"

#include <stdio_ext.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "cli/safe_text.h"
#include "support/new_file.h"

namespace rimg {

void report(const std::string& file, const std::string& cause, std::int64_t offset) {
    std::string line = "rimg: ";
    if (!file.empty()) line += file + ": ";
    if (offset != Failure::kNoOffset) line += "offset " + std::to_string(offset) + ": ";
    line += cause;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    line = safeText(line);
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

void report(const Failure& failure) {
    report(failure.file(), failure.what(), failure.offset());
}

void flushOutput() {
    // Of what was printed before, flushing knows that it failed, but not why.
    int code = errno;
    if (std::fflush(stdout) != 0) {
        code = errno;
    } else if (std::ferror(stdout) == 0) {
        return;
    }
    // Reported once.
    std::clearerr(stdout);
    ::__fpurge(stdout);
    throw Failure(ExitCode::kFailure, "standard output", "cannot be written: " + systemMessage(code));
}

std::string systemMessage(int code) {
    return std::generic_category().message(code);
}

Failure outputFailure(const std::string& file, int code) {
    const bool locked = code == EWOULDBLOCK;
    return {locked ? ExitCode::kUnreadable : ExitCode::kFailure, file, MUtils::outputErrorText(code)};
}

}  // namespace rimg
