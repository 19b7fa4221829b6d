#include "rawimage/table_entries.h"

#include <algorithm>

#include "support/bytes.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Those of a large file written in one go would take as much memory again.
constexpr int kEntriesAtOnce = 1 << 15;

}  // namespace

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

bool reserveTablePiece(ByteBuffer& piece, int entries) {
    return tryReserve(piece, static_cast<std::size_t>(std::min(entries, kEntriesAtOnce)) * kInfoTagBytes);
}

const char* finishTable(PStream& stream, std::int64_t position, const INFOTAG* tags, int count, bool sync,
                        ByteBuffer& piece) {
    int written = 0;
    for (int first = 0; first < count; first += kEntriesAtOnce) {
        const int entries = std::min(count - first, kEntriesAtOnce);
        for (int i = 0; i < entries; ++i)
            encodeInfoTag(tags[first + i], piece.data() + std::int64_t{i} * kInfoTagBytes);
        const int bytes = entries * kInfoTagBytes;
        if (stream.Write(piece.data(), bytes, written) != 0 && written != bytes)
            return "Error writing info tags buffer.";
    }
    if (sync && stream.Sync() != 0) return "Error writing info tags buffer.";
    if (stream.Seek(kTableOffsetPosition) != 0) return "Error seeking for info tags offset.";
    unsigned char offset[8];
    storeU64(offset, static_cast<std::uint64_t>(position));
    if (stream.Write(offset, sizeof offset, written) != 0 || (sync && stream.Sync() != 0))
        return "Error writing info tags offset.";
    return nullptr;
}

}  // namespace v1
}  // namespace MUtils
