#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "rawimage/inspect/inspection.h"
#include "support/byte_buffer.h"
#include "support/error_code.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Writes a raw image file out of tags of others, byte for byte as they are there. What cannot be read of a
// source is an error, as what cannot be written is.
class TagCopier {
  public:
    // Called on the way with the bytes copied so far; false stops.
    using Progress = std::function<bool(std::int64_t copied)>;

    explicit TagCopier(Progress progress = {}) : progress_(std::move(progress)) {}

    // Starts the file `fileName`; `compressed` is the flag of the pixels that will come.
    ErrorCode begin(const char* fileName, bool compressed);
    // Makes room for the table of as many tags, its own included. Throws std::bad_alloc.
    void expectTags(std::int64_t tags);

    // Copies tags of `source`, in their order. Tags that follow each other in the source go in one piece. Old
    // tables are left out; everything goes into the new table that must, and channel lists too. A tag in
    // `repairs`, which are in the order of their offsets, gets its header from `tags`, not from the source.
    ErrorCode copy(PStream& source, const std::vector<INFOTAG>& tags,
                   const std::vector<TagScan::Repair>& repairs = {});
    // Writes a tag of the caller's own, whose size includes the payload's; null for none.
    ErrorCode add(const RIF_TAG& tag, const void* payload);
    // True when the progress has stopped a copy, which is then not whole.
    bool stopped() const { return stopped_; }

    // Opens an existing file for reading and writing and locks it; code as PFileStream's. Then file() is it.
    int open(const char* fileName);
    PStream& file() { return file_; }
    // Continues the opened file behind the sound tags that its inspection found, cutting what follows them.
    ErrorCode resume(const Inspection& inspected);

    // Whether close() brings the file to the disk, as RIFile::setSyncOnClose(). On by default.
    void setSyncOnClose(bool on) { syncOnClose_ = on; }
    // Writes the table and closes; a full disk is reported as such.
    ErrorCode close();
    // Closes the file without a table, as a render leaves it that dies.
    ErrorCode leaveOpenEnded();

  private:
    ErrorCode copyRepaired(PStream& source, const INFOTAG& tag);
    ErrorCode copyBytes(PStream& source, std::int64_t offset, std::int64_t size);
    ErrorCode copyChunk(PStream& source, int size);
    void list(const INFOTAG& tag);
    const char* writeTable();
    ErrorCode closeAfter(const char* failure);

    PFileStream file_;
    std::vector<INFOTAG> table_;
    bool syncOnClose_ = true;
    Progress progress_;
    std::int64_t copied_ = 0;
    bool stopped_ = false;
    ByteBuffer chunk_;
};

}  // namespace v1
}  // namespace MUtils
