#include "exr/output_stream.h"

#include <IexBaseExc.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kBufferSize = 256 * 1024;

std::string describe(int code) {
    return std::generic_category().message(code);
}

}  // namespace

ExrOutputStream::ExrOutputStream(const char* name)
    : Imf::OStream(name != nullptr ? name : ""), buffer_(new char[kBufferSize]) {}

ExrOutputStream::~ExrOutputStream() {
    close();
}

ErrorCode ExrOutputStream::open(const char* name) {
    close();
    name_ = name != nullptr ? name : "";
    writtenTo_ = false;
    position_ = bufferStart_ = buffered_ = 0;
    failure_ = file_.Open(name, PFileStream::kWrite, 1, PFileStream::kCreateNew);
    created_ = failure_ == 0;
    if (failure_ == EEXIST) failure_ = file_.Open(name, PFileStream::kWrite, 1, PFileStream::kOpenAlways);
    if (failure_ != 0)
        return ErrorCode("open", failure_, "Cannot open \"%s\": %s", name_.c_str(),
                         openErrorText(failure_).c_str());
    regular_ = file_.Length() >= 0;
    return {};
}

ErrorCode ExrOutputStream::writeBuffered() {
    if (failure_ == 0 && buffered_ > 0) failure_ = flush();
    return failure("writeBuffered");
}

ErrorCode ExrOutputStream::finish() {
    close();
    return failure("finish");
}

ErrorCode ExrOutputStream::failure(const char* operation) const {
    if (failure_ == 0) return {};
    return ErrorCode(operation, failure_, "Cannot write \"%s\": %s", name_.c_str(),
                     describe(failure_).c_str());
}

void ExrOutputStream::close() noexcept {
    if (!file_.IsOpen()) return;
    if (failure_ == 0) failure_ = flush();
    const int code = file_.Close();
    if (failure_ == 0) failure_ = code;
}

void ExrOutputStream::abandon() {
    if (!file_.IsOpen()) return;
    file_.Close();
    buffered_ = 0;
    if (created_) {
        std::remove(name_.c_str());
    } else if (writtenTo_ && regular_) {
        std::error_code ignored;
        std::filesystem::resize_file(name_, 0, ignored);
    }
}

void ExrOutputStream::write(const char bytes[], int size) {
    if (failure_ == 0) failure_ = file_.IsOpen() ? gather(bytes, size) : EBADF;
    if (failure_ != 0) throwFailure();
}

void ExrOutputStream::seekp(std::uint64_t position) {
    if (failure_ == 0 && position > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
        failure_ = EOVERFLOW;
    if (failure_ != 0) throwFailure();
    position_ = static_cast<std::int64_t>(position);
}

// Takes `size` bytes at the position: into the buffer where they continue or overlap it, else into an emptied
// one.
int ExrOutputStream::gather(const char* bytes, std::int64_t size) noexcept {
    if (size > std::numeric_limits<std::int64_t>::max() - position_) return EFBIG;
    while (size > 0) {
        std::int64_t offset = position_ - bufferStart_;
        if (offset < 0 || offset > buffered_ || offset == kBufferSize) {
            if (const int code = buffered_ > 0 ? flush() : 0; code != 0) return code;
            bufferStart_ = position_;
            offset = 0;
        }
        std::int64_t taken = size;
        if (buffered_ == 0 && size >= kBufferSize) {
            if (const int code = writeThrough(position_, bytes, size); code != 0) return code;
        } else {
            taken = std::min(size, kBufferSize - offset);
            std::memcpy(buffer_.get() + offset, bytes, static_cast<std::size_t>(taken));
            buffered_ = std::max(buffered_, offset + taken);
        }
        position_ += taken;
        bytes += taken;
        size -= taken;
    }
    return 0;
}

// Writes and empties the buffer. The file's old contents are gone after this, even when the buffer held
// nothing.
int ExrOutputStream::flush() noexcept {
    const int code = writeThrough(bufferStart_, buffer_.get(), buffered_);
    buffered_ = 0;
    return code;
}

int ExrOutputStream::writeThrough(std::int64_t position, const char* bytes, std::int64_t size) noexcept {
    if (!writtenTo_ && regular_ && !created_) {
        writtenTo_ = true;
        file_.Seek(0);
        if (const int code = file_.Truncate(); code != 0) return code;
    }
    int written = 0;
    file_.Seek(position);
    return file_.Write(bytes, static_cast<int>(size), written);
}

void ExrOutputStream::throwFailure() const {
    throw Iex::IoExc("Cannot write \"" + name_ + "\": " + describe(failure_));
}

}  // namespace v1
}  // namespace MUtils
