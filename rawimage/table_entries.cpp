#include "rawimage/table_entries.h"

#include <algorithm>

#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

bool TableEntries::readPiece() {
    constexpr std::int64_t kMostEntries = 1024;
    const std::int64_t entries = std::min(kMostEntries, left_);
    const auto bytes = static_cast<int>(entries * kInfoTagBytes);
    reserve(piece_, static_cast<std::size_t>(bytes));
    pieceOffset_ = nextOffset();
    pieceEntries_ = given_ = 0;
    int got = 0;
    failed_ = stream_.Seek(static_cast<long>(pieceOffset_)) != 0 ||
              stream_.Read(piece_.data(), bytes, got) != 0 || got != bytes;
    if (failed_) return false;
    pieceEntries_ = entries;
    left_ -= entries;
    return true;
}

bool TableEntries::next(INFOTAG& entry) {
    if (given_ == pieceEntries_ && (failed_ || left_ <= 0 || !readPiece())) return false;
    entry = decodeInfoTag(piece_.data() + given_ * kInfoTagBytes);
    ++given_;
    return true;
}

}  // namespace v1
}  // namespace MUtils
