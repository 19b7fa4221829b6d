#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "rawimage/writer.h"

using fuzzing::require;

namespace {

// Every look-up over the list, and every payload through a buffer that holds no more than the file does.
void lookUp(RIFile& file, std::size_t fileBytes) {
    const int count = file.NumTags();
    for (int i = -1; i <= count; ++i) {
        const INFOTAG* entry = file.GetTag(i);
        require((entry != nullptr) == (i >= 0 && i < count), "an entry for each index");
        const int next = file.FindNextChanTag(i);
        require(next == -1 || (next > i && next < count), "a later entry");
        if (entry == nullptr) continue;
        require(file.FindNextTag(entry->id, i) == i, "the entry itself");
        const std::int64_t size = file.GetTagDataSize(i);
        const auto room = std::clamp<std::int64_t>(size, 1, static_cast<std::int64_t>(fileBytes) + 1);
        std::vector<unsigned char> payload(static_cast<std::size_t>(room));
        const int code = file.ReadTag(i, payload.data());
        require(code == 0 || code == -2 || code == -3, "a code of ReadTag's list");
        require(code != 0 || size <= static_cast<std::int64_t>(fileBytes), "no more than the file holds");
    }
}

// Continues the file: whatever it was, what is appended stands behind it and a table ends it.
void append(const std::uint8_t* data, std::size_t size) {
    fuzzing::InputStream stream(data, size);
    RIFile file;
    require(file.Append(nullptr, &stream).empty(), "opening for appending");
    if (file.ReadInfoTags(nullptr) != 0) return;
    const int before = file.NumTags();
    require(file.WTNote("appended").empty() && file.Close().empty(), "appending");
    require(static_cast<std::size_t>(stream.Length()) <= size + 2048 + 48 * static_cast<std::size_t>(before),
            "growth by what was appended");

    stream.Open();
    RIFile again;
    require(again.Open(nullptr, &stream).empty() && again.ReadInfoTags(nullptr) == 0, "listing it again");
    require(again.NumTags() == before + 1, "the old entries and the new one");
    std::vector<char> note(MUtils::kNoteBytes);
    require(again.ReadTag(before, note.data()) == 0 && std::string(note.data()) == "appended", "the note");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const bool lengthKnown : {true, false}) {
        fuzzing::InputStream stream(data, size, lengthKnown);
        RIFile file;
        int mask = 0;
        require(file.Open(nullptr, &stream).empty(), "opening");
        const int code = file.ReadInfoTags(&mask);
        require((code <= 0 && code >= -5) || code == EINVAL, "a code of ReadInfoTags' list");
        require(static_cast<std::size_t>(file.NumTags()) <= size / MUtils::kTagHeaderBytes + 1,
                "entries in the file");
        lookUp(file, size);
    }
    append(data, size);
    return 0;
}
