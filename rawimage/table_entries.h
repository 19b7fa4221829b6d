#pragma once

#include <cstdint>

#include "rawimage/format.h"
#include "support/byte_buffer.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Reads the entries of a tag table, many at a time. Throws std::bad_alloc.
class TableEntries {
  public:
    // `count` entries from `offset` on; a negative count is none. `stream` must outlive the object.
    TableEntries(PStream& stream, std::int64_t offset, std::int64_t count)
        : stream_(stream), pieceOffset_(offset), left_(count) {}

    // False behind the last entry, and when a piece of the table cannot be read as a whole.
    bool next(INFOTAG& entry);

    // Where the entry is that next() gave last.
    std::int64_t entryOffset() const { return pieceOffset_ + (given_ - 1) * kInfoTagBytes; }
    // Where the next one is.
    std::int64_t nextOffset() const { return pieceOffset_ + given_ * kInfoTagBytes; }
    // True when a read failed or came to the end of the stream.
    bool failed() const { return failed_; }

  private:
    bool readPiece();

    PStream& stream_;
    std::int64_t pieceOffset_;
    std::int64_t left_;  // behind the piece
    std::int64_t pieceEntries_ = 0;
    std::int64_t given_ = 0;  // of the piece
    bool failed_ = false;
    ByteBuffer piece_;
};

// Reserves the memory for the pieces in which a table of as many entries is written. False when there is
// none.
bool reserveTablePiece(ByteBuffer& piece, int entries);

// Finishes a file: writes the entries of its table, whose header is at `position`, behind that header, and
// then where the table begins into the file header. With `sync` the table is on the disk before the file
// header leads to it, and that before the call returns. `piece` has been reserved. Returns what failed, or
// null.
const char* finishTable(PStream& stream, std::int64_t position, const INFOTAG* tags, int count, bool sync,
                        ByteBuffer& piece);

}  // namespace v1
}  // namespace MUtils
