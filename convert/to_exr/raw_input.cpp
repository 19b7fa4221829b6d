#include "convert/to_exr/raw_input.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>

#include "convert/convert_error.h"
#include "convert/open_input.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool isText(std::uint32_t tagId) {
    return tagId == TAG_SCENE_INFO || tagId == TAG_NOTE || tagId == TAG_STAMP_TEXT;
}

// The tags that a conversion reads. The table has nothing that other tags do not have.
bool isTaken(std::uint32_t tagId) {
    switch (tagId) {
        case TAG_RESOLUTION:
        case TAG_REGIONS_INFO:
        case TAG_CHANNEL_INFO:
        case TAG_CAMERA_INFO:
        case TAG_RENDER_REGION:
        case TAG_INFO_TAGS: return true;
        default: return isText(tagId) || isPixelTag(tagId);
    }
}

}  // namespace

RawInput::RawInput(const std::string& path, int threads, const ConvertProgress& progress) : path_(path) {
    PFileStream file;
    openInput(file, path);
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = threads;
    if (progress) options.progress = [&progress](std::int64_t, std::int64_t) { return progress(0, 0); };
    inspection_ = inspectStream(file, options);
    if (inspection_.stopped) throw ConvertError(ConvertState::kStopped, "", "stopped");
    if (inspection_.state == FileState::kCannotOpen)
        throw ConvertError(ConvertState::kCannotOpen, path, inspection_.cause);
    if (inspection_.state == FileState::kNotThisFormat)
        throw ConvertError(ConvertState::kNotThisFormat, path, inspection_.cause);
    records_ = summarise(file, inspection_);
}

std::vector<const INFOTAG*> RawInput::pixels() const {
    const std::set<std::int64_t> doubted(inspection_.doubted.begin(), inspection_.doubted.end());
    std::vector<const INFOTAG*> tags;
    for (const INFOTAG& tag : inspection_.tags) {
        if (isPixelTag(tag.id) && doubted.count(static_cast<std::int64_t>(tag.offset)) == 0)
            tags.push_back(&tag);
    }
    return tags;
}

std::vector<std::string> RawInput::otherTags() const {
    std::set<std::uint32_t> ids;
    for (const INFOTAG& tag : inspection_.tags) {
        if (!isTaken(tag.id)) ids.insert(tag.id);
    }
    std::vector<std::string> names;
    for (const std::uint32_t id : ids)
        names.emplace_back(tagName(id));
    return names;
}

std::vector<INFOTAG> RawInput::longTexts() const {
    std::vector<INFOTAG> tags;
    std::copy_if(inspection_.tags.begin(), inspection_.tags.end(), std::back_inserter(tags),
                 [](const INFOTAG& tag) { return isText(tag.id) && tag.payloadBytes() > kMaxSummaryText; });
    return tags;
}

void RawInput::refuseWithout(const std::string& what) const {
    const FileState state = inspection_.state;
    const bool sound = state == FileState::kGood || state == FileState::kIncomplete;
    throw ConvertError(state == FileState::kDamaged ? ConvertState::kDamaged : ConvertState::kIncomplete,
                       path_, "has no " + what + (sound ? "" : ": " + inspection_.cause));
}

}  // namespace v1
}  // namespace MUtils
