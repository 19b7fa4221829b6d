#include "rawimage/tools/note_writer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "rawimage/inspect/inspection.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/tools/note.h"
#include "support/bytes.h"
#include "support/stream_wrapper.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kName = "writeNote";
constexpr int kNoteTagBytes = kTagHeaderBytes + kNoteBytes;

using Payload = std::vector<unsigned char>;

int readAt(PStream& stream, std::int64_t offset, Payload& bytes) {
    int got = 0;
    if (const int code = stream.Seek(static_cast<long>(offset)); code != 0) return code;
    const int code = stream.Read(bytes.data(), static_cast<int>(bytes.size()), got);
    return code == 0 && got != static_cast<int>(bytes.size()) ? EIO : code;
}

// One call for all of it.
int writeAt(PStream& stream, std::int64_t offset, const Payload& bytes) {
    int written = 0;
    if (const int code = stream.Seek(static_cast<long>(offset)); code != 0) return code;
    const int code = stream.Write(bytes.data(), static_cast<int>(bytes.size()), written);
    return code == 0 && written != static_cast<int>(bytes.size()) ? ENOSPC : code;
}

int cutAt(PStream& stream, std::int64_t offset) {
    const int code = stream.Seek(static_cast<long>(offset));
    return code == 0 ? stream.Truncate() : code;
}

int setTableOffset(PStream& stream, std::int64_t offset) {
    Payload bytes(8);
    storeU64(bytes.data(), static_cast<std::uint64_t>(offset));
    return writeAt(stream, kTableOffsetPosition, bytes);
}

// Keeps the first error of a read, which an inspection takes for damage.
class WatchedReads final : public StreamWrapper {
  public:
    using StreamWrapper::StreamWrapper;

    int code() const { return code_; }

    int Read(void* data, int size, int& got) override { return watched(wrapped_.Read(data, size, got)); }
    int Seek(long position) override { return watched(wrapped_.Seek(position)); }
    int Skip(long distance) override { return watched(wrapped_.Skip(distance)); }

  private:
    int watched(int code) {
        if (code_ == 0) code_ = code;
        return code;
    }

    int code_ = 0;
};

// Writes over notes where they are.
class Replacement {
  public:
    Replacement(PStream& file, std::vector<std::int64_t> places) : file_(file), places_(std::move(places)) {}

    int write(const Payload& note) {
        for (const std::int64_t place : places_) {
            Payload old(kNoteBytes);
            if (const int code = readAt(file_, place, old); code != 0) return code;
            old_.push_back(std::move(old));
            if (const int code = writeAt(file_, place, note); code != 0) return code;
        }
        return file_.Sync();
    }

    void undo(PStream& mending) const {
        int code = 0;
        for (std::size_t i = 0; i < old_.size() && code == 0; ++i)
            code = writeAt(mending, places_[i], old_[i]);
        (void)mending.Sync();
    }

  private:
    PStream& file_;
    std::vector<std::int64_t> places_;
    std::vector<Payload> old_;  // of the first places
};

// Writes a note in the place of the table, and the table behind it.
class Addition {
  public:
    Addition(PStream& file, const INFOTAG& table)
        : file_(file),
          start_(static_cast<std::int64_t>(table.offset)),
          end_(start_ + table.size),
          old_(table.size) {}

    int write(const Payload& note) {
        if (const int code = readAt(file_, start_, old_); code != 0) return code;
        makeTags(note);
        int code = setTableOffset(file_, 0);
        if (code == 0) code = writeAt(file_, end_, tags_);
        if (code == 0) code = file_.Sync();
        if (code != 0) return code;
        // There is room.
        cut_ = true;
        code = cutAt(file_, start_);
        if (code == 0) code = writeAt(file_, start_, tags_);
        if (code == 0) code = file_.Sync();
        if (code == 0) code = setTableOffset(file_, start_ + kNoteTagBytes);
        return code == 0 ? file_.Sync() : code;
    }

    // In an order in which the file is unfinished, with all its tags, until the old table is back.
    void undo(PStream& mending) const {
        if (tags_.empty()) return;
        int code = cut_ ? setTableOffset(mending, 0) : 0;
        if (code == 0) code = cutAt(mending, cut_ ? start_ : end_);
        if (code == 0 && cut_) code = writeAt(mending, start_, old_);
        // A disk that fails here leaves what was written to the system: still the better end.
        (void)mending.Sync();
        if (code == 0) code = setTableOffset(mending, start_);
        (void)mending.Sync();
    }

  private:
    // The note's tag and the new table: the old entries and the note's.
    void makeTags(const Payload& note) {
        INFOTAG entry;
        entry.id = TAG_NOTE;
        entry.size = kNoteTagBytes;
        entry.offset = static_cast<std::uint64_t>(start_);
        RIF_TAG table = decodeTag(old_.data());
        table.size += kInfoTagBytes;
        ++table.p1;
        tags_.resize(kNoteTagBytes + old_.size() + kInfoTagBytes);
        unsigned char* at = tags_.data();
        encodeTag(entry, at);
        std::copy(note.begin(), note.end(), at + kTagHeaderBytes);
        encodeTag(table, at += kNoteTagBytes);
        std::copy(old_.begin() + kTagHeaderBytes, old_.end(), at + kTagHeaderBytes);
        encodeInfoTag(entry, at + old_.size());
    }

    PStream& file_;
    const std::int64_t start_, end_;  // of the old table
    Payload old_;
    Payload tags_;
    bool cut_ = false;
};

template <class Change>
ErrorCode apply(Change change, const Payload& note, PStream& mending) {
    const int code = change.write(note);
    if (code == 0) return {};
    change.undo(mending);
    return ErrorCode(kName, code, "Error writing: %s", std::generic_category().message(code).c_str());
}

bool isNote(const RIF_TAG& tag) {
    return tag.id == TAG_NOTE && tag.size == kNoteTagBytes && unusedParametersClear(tag);
}

// The payloads of all notes. One that is not a proper note is replaced, too, where nothing but its text is
// wrong: half of it may be an older one's.
std::vector<std::int64_t> notesIn(const Inspection& found) {
    std::vector<std::int64_t> places;
    for (const INFOTAG& tag : found.tags) {
        if (isNote(tag)) places.push_back(static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes);
    }
    for (const TagGap& gap : found.gaps) {
        if (isNote(gap.tag) && gap.end - gap.offset == kNoteTagBytes)
            places.push_back(gap.offset + kTagHeaderBytes);
    }
    return places;
}

// What leads a reader, which walks by sizes, astray before it comes to `place`; null when nothing does.
const char* damageBefore(std::int64_t place, const Inspection& found) {
    if (!found.repairs.empty() && found.repairs.front().offset < place) return found.repairs.front().cause;
    const auto astray = std::find_if(found.gaps.begin(), found.gaps.end(),
                                     [](const TagGap& gap) { return gap.tag.size != gap.end - gap.offset; });
    return astray != found.gaps.end() && astray->offset < place ? astray->cause : nullptr;
}

// Why no tag can be added; empty when one can.
ErrorCode reasonAgainst(const Inspection& found) {
    constexpr const char* kFormat = "No note can be added: %s.";
    if (found.state == FileState::kDamaged)
        return ErrorCode(kName, kNoteFileDamaged, kFormat, found.cause.c_str());
    if (found.tableOffset == 0)
        return ErrorCode(kName, kNoteFileUnfinished, kFormat, "the file is not finished");
    if (found.tags.back().size > INT_MAX - kNoteTagBytes - kInfoTagBytes)
        return ErrorCode(kName, -1, kFormat, "the tag table is full");
    return {};
}

}  // namespace

ErrorCode setNote(PStream& file, PStream& mending, const char* note) {
    Payload payload(kNoteBytes);
    const std::size_t length = strnlen(note, kNoteBytes);
    if (length == kNoteBytes)
        return ErrorCode(kName, -1, "A note has at most %i characters.", kNoteBytes - 1);
    std::copy_n(note, length, payload.begin());
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    WatchedReads watched(file);
    const Inspection found = inspectStream(watched, options);
    if (const int code = watched.code(); code != 0)
        return ErrorCode(kName, code, "Error reading: %s", std::generic_category().message(code).c_str());
    if (found.state == FileState::kNotThisFormat)
        return ErrorCode(kName, kNoteFileNotThisFormat, "Not a raw image file.");
    std::vector<std::int64_t> notes = notesIn(found);
    if (!notes.empty()) {
        if (const char* damage = damageBefore(*std::max_element(notes.begin(), notes.end()), found))
            return ErrorCode(kName, kNoteFileDamaged, "Readers do not find the note: %s.", damage);
        return apply(Replacement(file, std::move(notes)), payload, mending);
    }
    if (ErrorCode error = reasonAgainst(found); !error.empty()) return error;
    return apply(Addition(file, found.tags.back()), payload, mending);
}

}  // namespace v1
}  // namespace MUtils
