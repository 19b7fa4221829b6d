#include "rawimage/tools/note.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "rawimage/open_error.h"
#include "rawimage/tools/note_writer.h"
#include "rawimage/writer.h"

#if defined(__SANITIZE_ADDRESS__)
#define RAWIMAGE_HAS_LEAK_CHECKER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RAWIMAGE_HAS_LEAK_CHECKER
#endif
#endif
#if defined(RAWIMAGE_HAS_LEAK_CHECKER)
#include <sanitizer/lsan_interface.h>
#endif

ReadNoteCallback::ReadNoteCallback(char* buffer, int capacity) : buffer_(buffer), capacity_(capacity) {}

int ReadNoteCallback::parseTag(RIF_TAG& tag) {
    if (tag.id != TAG_NOTE) return 2;
    found_ = true;
    return 1;
}

bool ReadNoteCallback::setNote(const char* text) {
    if (text == nullptr || capacity_ <= 0) return true;
    // A text that does not fit is cut without a NUL, as callers with fixed-size records expect.
    const std::size_t bytes = std::min(std::strlen(text) + 1, static_cast<std::size_t>(capacity_));
    std::memcpy(buffer_, text, bytes);
    return true;
}

const char* ReadNoteCallback::getNote() {
    return buffer_;
}

ReplaceNoteCallback::ReplaceNoteCallback(const char* note) : note_(note) {}

int ReplaceNoteCallback::parseTag(RIF_TAG& tag) {
    if (tag.id == TAG_NOTE) found_ = true;
    return tag.id == TAG_RESOLUTION || tag.id == TAG_SCENE_INFO || tag.id == TAG_NOTE ? 1 : 2;
}

bool ReplaceNoteCallback::setResolution(int w, int h, float /*aspect*/) {
    width_ = w;
    height_ = h;
    return true;
}

bool ReplaceNoteCallback::setSceneInfo(RISceneInfo info) {
    scene_ = info;
    return true;
}

// Always false: the reader then writes getNote()'s text over the stored one.
bool ReplaceNoteCallback::setNote(const char* /*text*/) {
    return false;
}

const char* ReplaceNoteCallback::getNote() {
    return note_;
}

bool readRawNote(const char* fileName, char* buffer, int capacity) {
    RIFile file;
    if (!file.Open(fileName, nullptr).empty()) return false;
    ReadNoteCallback callback(buffer, capacity);
    const bool failed = file.ParseFile(callback) != 0;
    if (!callback.found() && capacity > 0) buffer[0] = 0;
    (void)file.Close();
    return failed;
}

namespace {

// For a file without a note. What fails is not reported: the file may be read-only. One whose tags cannot be
// listed takes no note.
void appendNote(const char* fileName, const char* note) {
    constexpr std::size_t kLongest = MUtils::kNoteBytes - 1;
    RIFile file;
    (void)file.Append(fileName, nullptr);
    (void)file.ReadInfoTags(nullptr);
    (void)file.WTNote(std::string(note, strnlen(note, kLongest)).c_str());
    (void)file.Close();
}

// Keeps the leak checker of a sanitizer build quiet about `object` and what it owns.
void expectLeak([[maybe_unused]] const void* object) {
#if defined(RAWIMAGE_HAS_LEAK_CHECKER)
    __lsan_ignore_object(object);
#endif
}

}  // namespace

bool replaceRawNote(const char* fileName, char* note, int /*reserved*/, RawImageInfo* info) {
    ReplaceNoteCallback callback(note);
    bool failed = false;
    {
        auto stream = std::make_unique<PFileStream>();
        RIFile file;
        // ParseFile reports a file that could not be opened.
        (void)stream->Open(fileName, PFileStream::kReadWrite, 1, PFileStream::kOpenAlways);
        (void)file.Open(fileName, stream.get());
        failed = file.ParseFile(callback) != 0;
        (void)file.Close();
        // The file is closed; the stream object itself stays with the object, deliberately.
        expectLeak(stream.release());
    }
    if (!callback.found() && note != nullptr) appendNote(fileName, note);
    if (info != nullptr) {
        info->width = callback.width();
        info->height = callback.height();
        info->scene = callback.scene().value;
        if (callback.scene().name != nullptr) info->setName(callback.scene().name);
    }
    return failed;
}

namespace MUtils {
inline namespace v1 {

ErrorCode writeNote(const char* fileName, const char* note) {
    constexpr const char* kName = "writeNote";
    constexpr unsigned kShared = 3;  // beside this call's own lock
    if (note == nullptr) return ErrorCode(kName, -1, "No note");
    try {
        PFileStream file, mending;
        int code = file.Open(fileName, PFileStream::kReadWrite, 1, PFileStream::kOpenExisting);
        if (code == 0)
            code = mending.Open(fileName, PFileStream::kReadWrite, kShared, PFileStream::kOpenExisting);
        if (code != 0) {
            ErrorCode error(kName, code, "Error opening file \"%s\" (%i)",
                            fileName != nullptr ? fileName : "", code);
            error.setCause(openCause(code));
            return error;
        }
        ErrorCode error = setNote(file, mending, note);
        if (const int closing = file.Close(); error.empty() && closing != 0)
            return ErrorCode(kName, closing, "Error closing: %s",
                             std::generic_category().message(closing).c_str());
        return error;
    } catch (const std::bad_alloc&) {
        return ErrorCode(kName, ENOMEM, "No memory.");
    }
}

}  // namespace v1
}  // namespace MUtils
