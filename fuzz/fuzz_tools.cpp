#include <memory>

#include "fuzz/fuzz_input.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/preview.h"
#include "rawimage/tools/settings.h"
#include "rawimage/tools/summary.h"

using fuzzing::require;

namespace {

void preview(const char* path, bool keepAspect) {
    constexpr int kWidth = 17, kHeight = 9;
    const auto out = std::make_unique<MUtils::RGB24[]>(kWidth * kHeight);
    RawImageInfo info;
    (void)makeRawImagePreview(path, kWidth, kHeight, out.get(), &info, keepAspect, {1, 2, 3}, nullptr);
    delete[] info.name;
}

void notes(const char* path) {
    const auto small = std::make_unique<char[]>(8);
    (void)readRawNote(path, small.get(), 8);
    char text[] = "replaced";
    RawImageInfo info;
    const bool failed = replaceRawNote(path, text, 0, &info);
    delete[] info.name;
    char back[MUtils::kNoteBytes] = {};
    if (!failed && !readRawNote(path, back, sizeof back))
        require(std::string(text).rfind(back, 0) == 0, "of the new note what the stored size allows");
}

}  // namespace

// The entry points that take a file's name.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFile file;
    file.fill(data, size);
    for (const bool keepAspect : {false, true})
        preview(file.path(), keepAspect);
    PBufStream settings;
    (void)readMirtSettings(file.path(), &settings);
    require(static_cast<std::size_t>(settings.Size()) <= size, "settings that the file holds");
    const MUtils::FileSummary summary = MUtils::summariseFile(file.path(), true);
    require(summary.tags.size() <= size / MUtils::kTagHeaderBytes, "tags that the file holds");
    notes(file.path());
    return 0;
}
