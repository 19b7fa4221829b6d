#include "convert/to_exr/raw_input.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool isText(std::uint32_t tagId) {
    return tagId == TAG_SCENE_INFO || tagId == TAG_NOTE || tagId == TAG_STAMP_TEXT;
}

// The records that a conversion reads. The table has nothing that other tags do not have.
bool isTaken(std::uint32_t tagId) {
    switch (tagId) {
        case TAG_RESOLUTION:
        case TAG_REGIONS_INFO:
        case TAG_CHANNEL_INFO:
        case TAG_CAMERA_INFO:
        case TAG_RENDER_REGION:
        case TAG_INFO_TAGS: return true;
        default: return isText(tagId);
    }
}

RawFrame openFrame(const std::string& path, int threads, const ConvertProgress& progress) {
    bool stopped = false;
    RawFrameOptions options;
    options.inspect = InspectDepth::kRecords;
    options.threads = threads;
    if (progress) {
        options.progress = [&](std::int64_t, std::int64_t) {
            stopped = stopped || !progress(0, 0);
            return !stopped;
        };
    }
    RawFrame frame(path.c_str(), options);
    if (stopped) throw ConvertError(ConvertState::kStopped, "", "stopped");
    const FileState state = frame.state();
    if (state == FileState::kCannotOpen) throw ConvertError(ConvertState::kCannotOpen, path, frame.cause());
    if (state == FileState::kNotThisFormat)
        throw ConvertError(ConvertState::kNotThisFormat, path, frame.cause());
    return frame;
}

}  // namespace

RawInput::RawInput(const std::string& file, int threads, const ConvertProgress& progress)
    : path(file), frame(openFrame(file, threads, progress)), info(frame.info()), records(frame.records()) {}

std::vector<std::string> RawInput::otherTags() const {
    std::set<std::uint32_t> ids;
    for (const INFOTAG& tag : frame.recordTags()) {
        if (!isTaken(tag.id)) ids.insert(tag.id);
    }
    std::vector<std::string> names;
    for (const std::uint32_t id : ids)
        names.emplace_back(tagName(id));
    return names;
}

std::vector<INFOTAG> RawInput::longTexts() const {
    std::vector<INFOTAG> tags;
    const std::vector<INFOTAG> all = frame.recordTags();
    std::copy_if(all.begin(), all.end(), std::back_inserter(tags),
                 [](const INFOTAG& tag) { return isText(tag.id) && tag.payloadBytes() > kMaxSummaryText; });
    return tags;
}

void RawInput::refuseWithout(const std::string& what) const {
    const FileState state = frame.state();
    const bool sound = state == FileState::kGood || state == FileState::kIncomplete;
    throw ConvertError(state == FileState::kDamaged ? ConvertState::kDamaged : ConvertState::kIncomplete,
                       path, "has no " + what + (sound ? "" : ": " + frame.cause()));
}

}  // namespace v1
}  // namespace MUtils
