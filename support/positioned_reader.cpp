#include "support/positioned_reader.h"

#include <algorithm>

#include "support/bounded_read.h"

namespace MUtils {
inline namespace v1 {

PositionedReader::PositionedReader(const char* fileName, int& code)
    : file_(std::make_unique<PFileStream>()), stream_(*file_) {
    code = file_->Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
}

bool PositionedReader::read(std::int64_t offset, void* bytes, std::size_t size) const {
    if (file_ == nullptr) return readBorrowed(offset, static_cast<unsigned char*>(bytes), size);
    std::size_t got = 0;
    return file_->ReadAt(offset, bytes, size, got) == 0 && got == size;
}

bool PositionedReader::readBorrowed(std::int64_t offset, unsigned char* bytes, std::size_t size) const {
    constexpr std::size_t kMostAtOnce = 1 << 30;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stream_.Seek(static_cast<long>(offset)) != 0) return false;
    for (std::size_t have = 0; have < size;) {
        const std::size_t piece = std::min(size - have, kMostAtOnce);
        if (!readExactly(stream_, bytes + have, static_cast<int>(piece))) return false;
        have += piece;
    }
    return true;
}

PositionedReader::Locked::Locked(PositionedReader& reader) : lock_(reader.mutex_), stream_(reader.stream_) {
    if (reader.file_ != nullptr) reader.file_->DropBuffer();
}

}  // namespace v1
}  // namespace MUtils
