#include "rawimage/tools/tag_copier.h"

#include <algorithm>
#include <climits>
#include <system_error>
#include <utility>

#include "rawimage/open_error.h"
#include "rawimage/table_entries.h"
#include "rawimage/tag_rules.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kPiece = 1 << 24;  // between two calls of the progress
constexpr std::int64_t kChunk = 1 << 20;  // through memory
constexpr std::int64_t kMostEntries = (INT_MAX - kTagHeaderBytes) / kInfoTagBytes;  // of a table
constexpr const char* kOperation = "copy";

// A code of 0 is a short count without an error.
ErrorCode writeFailure(int code) {
    return ErrorCode(kOperation, code != 0 ? code : -1, "Error writing: %s",
                     std::generic_category().message(code).c_str());
}

ErrorCode writeAll(PStream& stream, const void* bytes, int size) {
    int written = 0;
    const int code = stream.Write(bytes, size, written);
    return code == 0 && written == size ? ErrorCode() : writeFailure(code);
}

}  // namespace

ErrorCode TagCopier::begin(const char* fileName, bool compressed) {
    if (const int code = file_.Create(fileName, 0); code != 0) {
        ErrorCode error("Create", code, "Error creating file \"%s\" (%i)", fileName, code);
        error.setCause(openCause(code));
        return error;
    }
    table_.clear();
    RIF_HEADER header;
    header.magic = RIF_MAGIC;
    header.formatFirst = RIF_FORMAT_FIRST;
    header.formatSecond = RIF_FORMAT_SECOND;
    header.flags = compressed ? RIF_COMPRESSED : 0;
    unsigned char bytes[kFileHeaderBytes];
    encodeHeader(header, bytes);
    return writeAll(file_, bytes, kFileHeaderBytes);
}

void TagCopier::expectTags(std::int64_t tags) {
    table_.reserve(static_cast<std::size_t>(std::min(tags, kMostEntries)));
}

void TagCopier::list(const INFOTAG& tag) {
    const TagRow* row = findTagRow(tag.id);
    if (row == nullptr || row->inTable != TableEntry::kNever) table_.push_back(tag);
}

ErrorCode TagCopier::copy(PStream& source, const std::vector<INFOTAG>& tags,
                          const std::vector<TagScan::Repair>& repairs) {
    const auto isRepaired = [&repairs](const INFOTAG& tag) {
        const auto repair = std::lower_bound(
            repairs.begin(), repairs.end(), static_cast<std::int64_t>(tag.offset),
            [](const TagScan::Repair& of, std::int64_t offset) { return of.offset < offset; });
        return repair != repairs.end() && repair->offset == static_cast<std::int64_t>(tag.offset);
    };
    for (std::size_t i = 0; i < tags.size() && !stopped_;) {
        if (tags[i].id == TAG_INFO_TAGS) {
            ++i;
            continue;
        }
        if (isRepaired(tags[i])) {
            if (ErrorCode error = copyRepaired(source, tags[i++]); !error.empty()) return error;
            continue;
        }
        const std::uint64_t start = tags[i].offset;
        const auto target = static_cast<std::uint64_t>(file_.Tell());
        std::uint64_t end = start;
        for (; i < tags.size() && tags[i].offset == end && tags[i].id != TAG_INFO_TAGS; ++i) {
            if (isRepaired(tags[i])) break;
            INFOTAG moved = tags[i];
            moved.offset = target + (tags[i].offset - start);
            list(moved);
            end += tags[i].size;
        }
        ErrorCode error =
            copyBytes(source, static_cast<std::int64_t>(start), static_cast<std::int64_t>(end - start));
        if (!error.empty()) return error;
    }
    return {};
}

// The header as it was written, the payload as it is in the source.
ErrorCode TagCopier::copyRepaired(PStream& source, const INFOTAG& tag) {
    INFOTAG moved = tag;
    moved.offset = static_cast<std::uint64_t>(file_.Tell());
    list(moved);
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    if (ErrorCode error = writeAll(file_, bytes, kTagHeaderBytes); !error.empty()) return error;
    return copyBytes(source, static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes, tag.payloadBytes());
}

// From file to file without a stop in memory, as far as the system does that.
ErrorCode TagCopier::copyBytes(PStream& source, std::int64_t offset, std::int64_t size) {
    auto* fromFile = dynamic_cast<PFileStream*>(&source);
    for (std::int64_t done = 0; done < size && !stopped_;) {
        std::int64_t piece = std::min(kPiece, size - done);
        if (const int code = source.Seek(static_cast<long>(offset + done)); code != 0)
            return ErrorCode(kOperation, code, "Error seeking to %lld.",
                             static_cast<long long>(offset + done));
        const std::int64_t copied = fromFile != nullptr ? file_.CopyFrom(*fromFile, piece) : 0;
        if (copied > 0) {
            piece = copied;
        } else {
            piece = std::min(kChunk, piece);
            if (ErrorCode error = copyChunk(source, static_cast<int>(piece)); !error.empty()) return error;
        }
        done += piece;
        copied_ += piece;
        stopped_ = progress_ && !progress_(copied_);
    }
    return {};
}

// From position to position.
ErrorCode TagCopier::copyChunk(PStream& source, int size) {
    unsigned char* chunk = reserve(chunk_, static_cast<std::size_t>(size));
    const auto offset = static_cast<long long>(source.Tell());
    int got = 0;
    const int code = source.Read(chunk, size, got);
    if (code == 0 && got == size) return writeAll(file_, chunk, size);
    return ErrorCode(kOperation, code != 0 ? code : -1, "Error reading at %lld.", offset);
}

ErrorCode TagCopier::add(const RIF_TAG& tag, const void* payload) {
    INFOTAG entry;
    static_cast<RIF_TAG&>(entry) = tag;
    entry.offset = static_cast<std::uint64_t>(file_.Tell());
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    ErrorCode error = writeAll(file_, bytes, kTagHeaderBytes);
    if (error.empty() && payload != nullptr)
        error = writeAll(file_, payload, static_cast<int>(tag.payloadBytes()));
    if (error.empty()) list(entry);
    return error;
}

int TagCopier::open(const char* fileName) {
    file_.SetFile(fileName, PFileStream::kReadWrite, 1, PFileStream::kOpenExisting);
    return file_.Open();
}

ErrorCode TagCopier::resume(const Inspection& inspected) {
    const std::vector<INFOTAG>& tags = inspected.tags;
    table_.clear();
    std::int64_t end = kFileHeaderBytes;
    for (const INFOTAG& tag : tags) {
        // The table of an earlier closing gives way to what is appended.
        if (tag.id == TAG_INFO_TAGS && &tag == &tags.back()) break;
        list(tag);
        end = static_cast<std::int64_t>(tag.offset) + tag.size;
    }
    // First the offset, so that at every moment the file is either finished or plainly unfinished.
    const unsigned char noTable[8] = {};
    if (file_.Seek(kTableOffsetPosition) != 0) return ErrorCode("resume", -1, "Error seeking.");
    if (ErrorCode error = writeAll(file_, noTable, sizeof noTable); !error.empty()) return error;
    int code = file_.Seek(static_cast<long>(end));
    if (code == 0) code = file_.Truncate();
    if (code == 0) return {};
    return ErrorCode("resume", code, "Error cutting the file at %lld.", static_cast<long long>(end));
}

// Returns what failed, or null.
const char* TagCopier::writeTable() {
    const auto entries = static_cast<std::int64_t>(table_.size());
    const std::int64_t position = file_.Tell();
    if (entries > kMostEntries || !reserveTablePiece(chunk_, static_cast<int>(entries)))
        return "Error writing info tags buffer.";
    RIF_TAG tag;
    tag.id = TAG_INFO_TAGS;
    tag.size = static_cast<std::uint32_t>(kTagHeaderBytes + entries * kInfoTagBytes);
    tag.p1 = static_cast<std::int32_t>(entries);
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    if (!writeAll(file_, bytes, kTagHeaderBytes).empty()) return "Error writing tag header.";
    return finishTable(file_, position, table_.data(), static_cast<int>(entries), syncOnClose_, chunk_);
}

ErrorCode TagCopier::close() {
    return closeAfter(writeTable());
}

ErrorCode TagCopier::leaveOpenEnded() {
    return closeAfter(nullptr);
}

ErrorCode TagCopier::closeAfter(const char* failure) {
    if (file_.IsOpen() && file_.Close() != 0 && failure == nullptr) failure = "Error closing stream.";
    if (failure == nullptr) return {};
    ErrorCode error("Close", -1, "%s", failure);
    if (file_.writeError() == 0) return error;
    ErrorCode withCause = writeFailure(file_.writeError());
    withCause.setCause(std::move(error));
    return withCause;
}

}  // namespace v1
}  // namespace MUtils
