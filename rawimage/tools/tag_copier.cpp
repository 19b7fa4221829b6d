#include "rawimage/tools/tag_copier.h"

#include <algorithm>
#include <climits>
#include <system_error>
#include <utility>

#include "rawimage/tag_rules.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kPiece = 1 << 24;  // between two calls of the progress
constexpr std::int64_t kChunk = 1 << 20;  // through memory
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
    if (ErrorCode error = Create(fileName, nullptr); !error.empty()) return error;
    header = RIF_HEADER();
    header.magic = RIF_MAGIC;
    header.formatFirst = RIF_FORMAT_FIRST;
    header.formatSecond = RIF_FORMAT_SECOND;
    header.flags = compressed ? RIF_COMPRESSED : 0;
    unsigned char bytes[kFileHeaderBytes];
    encodeHeader(header, bytes);
    return writeAll(*stream, bytes, kFileHeaderBytes);
}

void TagCopier::expectTags(std::int64_t tags) {
    infoTags.Realloc(static_cast<int>(std::min<std::int64_t>(tags + 1, INT_MAX / kInfoTagBytes)));
}

void TagCopier::list(const INFOTAG& tag) {
    const TagRow* row = findTagRow(tag.id);
    if (row == nullptr || row->inTable != TableEntry::kNever) infoTags.Append(tag);
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
        const auto target = static_cast<std::uint64_t>(stream->Tell());
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
    moved.offset = static_cast<std::uint64_t>(stream->Tell());
    list(moved);
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    if (ErrorCode error = writeAll(*stream, bytes, kTagHeaderBytes); !error.empty()) return error;
    return copyBytes(source, static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes, tag.payloadBytes());
}

// From file to file without a stop in memory, as far as the system does that.
ErrorCode TagCopier::copyBytes(PStream& source, std::int64_t offset, std::int64_t size) {
    auto* fromFile = dynamic_cast<PFileStream*>(&source);
    auto* toFile = dynamic_cast<PFileStream*>(stream);
    for (std::int64_t done = 0; done < size && !stopped_;) {
        std::int64_t piece = std::min(kPiece, size - done);
        if (const int code = source.Seek(static_cast<long>(offset + done)); code != 0)
            return ErrorCode(kOperation, code, "Error seeking to %lld.",
                             static_cast<long long>(offset + done));
        const std::int64_t copied =
            fromFile != nullptr && toFile != nullptr ? toFile->CopyFrom(*fromFile, piece) : 0;
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
    if (code == 0 && got == size) return writeAll(*stream, chunk, size);
    return ErrorCode(kOperation, code != 0 ? code : -1, "Error reading at %lld.", offset);
}

ErrorCode TagCopier::add(const RIF_TAG& tag, const void* payload) {
    INFOTAG entry;
    static_cast<RIF_TAG&>(entry) = tag;
    entry.offset = static_cast<std::uint64_t>(stream->Tell());
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    ErrorCode error = writeAll(*stream, bytes, kTagHeaderBytes);
    if (error.empty()) error = writeAll(*stream, payload, static_cast<int>(tag.payloadBytes()));
    if (error.empty()) list(entry);
    return error;
}

int TagCopier::open(const char* fileName) {
    auto* existing = new PFileStream;
    delete ownStream;
    stream = ownStream = existing;
    existing->SetFile(fileName, PFileStream::kReadWrite, 1, PFileStream::kOpenExisting);
    lastError = existing->Open();
    return lastError;
}

ErrorCode TagCopier::resume(const Inspection& inspected) {
    const std::vector<INFOTAG>& tags = inspected.tags;
    header = RIF_HEADER();
    header.flags = inspected.compressed ? RIF_COMPRESSED : 0;
    infoTags.Free();
    std::int64_t end = kFileHeaderBytes;
    for (const INFOTAG& tag : tags) {
        // The table of an earlier closing gives way to what is appended.
        if (tag.id == TAG_INFO_TAGS && &tag == &tags.back()) break;
        list(tag);
        end = static_cast<std::int64_t>(tag.offset) + tag.size;
    }
    writeMode = true;
    // First the offset, so that at every moment the file is either finished or plainly unfinished.
    const unsigned char noTable[8] = {};
    if (stream->Seek(kTableOffsetPosition) != 0) return ErrorCode("resume", -1, "Error seeking.");
    if (ErrorCode error = writeAll(*stream, noTable, sizeof noTable); !error.empty()) return error;
    int code = stream->Seek(static_cast<long>(end));
    if (code == 0) code = stream->Truncate();
    if (code == 0) return {};
    return ErrorCode("resume", code, "Error cutting the file at %lld.", static_cast<long long>(end));
}

ErrorCode TagCopier::Close() {
    ErrorCode error = RIFile::Close();
    if (error.empty() || fileError() == 0) return error;
    ErrorCode told = writeFailure(fileError());
    told.setCause(std::move(error));
    return told;
}

ErrorCode TagCopier::leaveOpenEnded() {
    writeMode = false;
    return Close();
}

}  // namespace v1
}  // namespace MUtils
