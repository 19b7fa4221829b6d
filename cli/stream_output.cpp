#include "cli/stream_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "cli/interrupt.h"
#include "cli/report.h"

namespace rimg {

StreamOutput::StreamOutput(const std::string& path, const std::vector<std::string>& inputs)
    : output_(path, OutputFile::Kind::kStream, inputs) {}

StreamOutput::~StreamOutput() {
    if (descriptor_ >= 0 && !output_.isStandardOutput()) ::close(descriptor_);
}

bool StreamOutput::isTerminal() const {
    return output_.isStandardOutput() && ::isatty(STDOUT_FILENO) != 0;
}

void StreamOutput::open() {
    if (output_.isStandardOutput()) {
        descriptor_ = STDOUT_FILENO;
        return;
    }
    // Does not wait within the system for the reader of a pipe: a signal just before would be missed.
    constexpr timespec kPause{0, 10000000};
    while (!stopRequested()) {
        descriptor_ = ::open(output_.path().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
        if (descriptor_ >= 0) {
            ::fcntl(descriptor_, F_SETFL, O_WRONLY);
            return;
        }
        struct stat status {};
        const int code = errno;
        const bool pipe = ::stat(output_.path().c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
        if (code != EINTR && !(code == ENXIO && pipe)) {
            code_ = code;
            return;
        }
        ::nanosleep(&kPause, nullptr);
    }
}

bool StreamOutput::write(const void* data, std::size_t size) {
    constexpr std::size_t kMostAtOnce = 1 << 20;  // between two looks at signals
    if (descriptor_ < 0 && code_ == 0) open();
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0 && code_ == 0 && !stopRequested()) {
        const ssize_t n = ::write(descriptor_, bytes, std::min(size, kMostAtOnce));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EAGAIN) {
            // A pipe that whoever started the program does not wait for.
            constexpr int kPauseMilliseconds = 100;
            pollfd ready{descriptor_, POLLOUT, 0};
            ::poll(&ready, 1, kPauseMilliseconds);
            continue;
        }
        if (n <= 0) {
            code_ = n < 0 ? errno : ENOSPC;
            break;
        }
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
    return size == 0 && code_ == 0;
}

bool StreamOutput::failed() const {
    return code_ != 0 || stopRequested();
}

void StreamOutput::close() {
    output_.checkStop();
    if (code_ == 0 && descriptor_ >= 0 && !output_.isStandardOutput() &&
        ::close(std::exchange(descriptor_, -1)) != 0)
        code_ = errno;
    if (code_ != 0)
        throw Failure(ExitCode::kFailure, output_.name(), "cannot be written: " + systemMessage(code_));
    output_.commit();
}

}  // namespace rimg
