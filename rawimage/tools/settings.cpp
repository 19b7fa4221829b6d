#include "rawimage/tools/settings.h"

#include "rawimage/writer.h"

namespace {

constexpr int kCopyChunk = 32768;

// Makes `target` as large as `source` and copies everything. Both are closed afterwards.
void copyWhole(PBufStream& source, PBufStream& target) {
    target.Alloc(source.Size());
    source.Open();
    target.Open();
    PStream::StreamCopy(source, target, kCopyChunk);
    source.Close();
    target.Close();
}

}  // namespace

int ReadMirtSettingsCallback::parseTag(RIF_TAG& tag) {
    return tag.id == TAG_SETTINGS ? 1 : 2;
}

bool ReadMirtSettingsCallback::setMirtSettings(PBufStream* source) {
    if (source == nullptr) return false;
    copyWhole(*source, settings_);
    return true;
}

bool readMirtSettings(const char* fileName, PBufStream* out) {
    RIFile file;
    if (!file.Open(fileName, nullptr).empty()) return false;
    ReadMirtSettingsCallback callback;
    const bool failed = file.ParseFile(callback) != 0;
    (void)file.Close();
    if (out != nullptr) copyWhole(callback.settings(), *out);
    return failed;
}
