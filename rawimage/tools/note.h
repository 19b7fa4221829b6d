#pragma once

#include "../../support/error_code.h"
#include "../export.h"
#include "../read/accepting_callback.h"
#include "info.h"

// The note of an existing raw image file.

// Copies the file's note, its NUL included, to `buffer`: at most `capacity` bytes, so a text that does not
// fit is cut without a NUL. "" when the file has none; nothing is written when the capacity is not positive.
// Returns true when the parse failed, false when all went well and also when the file cannot be opened (the
// buffer is untouched then).
RAWIMAGE_EXPORT bool readRawNote(const char* fileName, char* buffer, int capacity);

// Replaces the file's note: in place, 1024 bytes, when it has one (each, when it has several), else by a note
// tag and a new table at the end. The first 1023 characters of `note` count; null leaves the notes alone.
// `info` may be null; else width, height and scene value are filled in whatever the parse found, the name
// only when there is a scene. Returns true when the parse failed; failures to write are not reported, for
// which there is writeNote(). A missing file is created, empty, and is a failed parse, as a directory is,
// which stays as it is; a file whose tags cannot be listed is not appended to. The int is not used.
RAWIMAGE_EXPORT bool replaceRawNote(const char* fileName, char* note, int reserved, RawImageInfo* info);

namespace MUtils {
inline namespace v1 {

// Codes of writeNote() besides the system's, which are positive, and -1.
constexpr int kNoteFileNotThisFormat = -2;
constexpr int kNoteFileDamaged = -3;
constexpr int kNoteFileUnfinished = -4;

// As replaceRawNote(), for an existing file, and reports every failure: the system's code where the file
// cannot be opened, read, written, brought to the disk or closed (EWOULDBLOCK: another writer has it open);
// -1 for a note that is null or longer than 1023 characters; -2 for a file of another kind. A file without a
// note that is not finished (-4) or not sound (-3) takes none: where a tag belongs in it is not certain. A
// note that readers find is replaced in any. What is written is on the disk when it returns. After a failure
// the file is as it was, or, where the disk does not allow that either, unfinished with all its tags. Pixels
// are not looked at.
RAWIMAGE_EXPORT ErrorCode writeNote(const char* fileName, const char* note);

}  // namespace v1
}  // namespace MUtils

// Takes the note's text. Other tags are skipped.
class RAWIMAGE_EXPORT ReadNoteCallback final : public MUtils::AcceptingCallback {
  public:
    ReadNoteCallback(char* buffer, int capacity);

    int parseTag(RIF_TAG& tag) override;
    bool setNote(const char* text) override;
    const char* getNote() override;

    bool found() const { return found_; }

  private:
    char* buffer_;
    int capacity_;
    bool found_ = false;
};

// Has the reader overwrite each note, and takes what `info` wants.
class RAWIMAGE_EXPORT ReplaceNoteCallback final : public MUtils::AcceptingCallback {
  public:
    // `note` is borrowed.
    explicit ReplaceNoteCallback(const char* note);

    int parseTag(RIF_TAG& tag) override;
    bool setResolution(int w, int h, float aspect) override;
    bool setSceneInfo(RISceneInfo info) override;
    bool setNote(const char* text) override;
    const char* getNote() override;

    int width() const { return width_; }
    int height() const { return height_; }
    const RISceneInfo& scene() const { return scene_; }
    bool found() const { return found_; }

  private:
    const char* note_;
    int width_ = 0;
    int height_ = 0;
    RISceneInfo scene_;
    bool found_ = false;
};
