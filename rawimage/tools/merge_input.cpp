#include "rawimage/tools/merge_input.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "rawimage/area/coverage.h"
#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/quick_scan.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Differs, all but certainly, when tags were replaced or moved.
std::uint64_t fingerprintOf(const std::vector<INFOTAG>& tags) {
    std::uint64_t sum = 0;
    const auto mix = [&sum](std::uint64_t high, std::uint64_t low) {
        sum = (sum ^ (high << 32) ^ low) * 0x9e3779b97f4a7c15u;
        sum ^= sum >> 29;
    };
    const auto bits = [](std::int32_t word) { return std::uint64_t{static_cast<std::uint32_t>(word)}; };
    for (const INFOTAG& tag : tags) {
        mix(tag.offset, 0);
        mix(tag.id, tag.size);
        mix(bits(tag.p2), bits(tag.p3));
        mix(bits(tag.p4), bits(tag.p5));
        mix(bits(tag.p6), bits(tag.p8));
    }
    return sum;
}

std::vector<INFOTAG> pixelTagsOf(const std::vector<INFOTAG>& tags) {
    std::vector<INFOTAG> pixels;
    pixels.reserve(tags.size());
    std::copy_if(tags.begin(), tags.end(), std::back_inserter(pixels),
                 [](const INFOTAG& tag) { return isPixelTag(tag.id); });
    return pixels;
}

// The file was inspected before, and seemed sound.
std::vector<INFOTAG> pixelTagsIn(PStream& stream) {
    const QuickScan::Progress none;
    QuickScan quick(stream, none);
    if (quick.run()) return pixelTagsOf(quick.tags);
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    options.findMissing = false;
    return pixelTagsOf(inspectStream(stream, options).tags);
}

}  // namespace

BucketKey bucketKey(const RIF_TAG& tag) {
    return {tag.p8, tag.p2, tag.p3, tag.p4, tag.p5, statesWindow(tag) ? tag.p6 : 0};
}

void MergeInput::keep(const std::string& name, const FileStamp& stamp, const Inspection& file) {
    name_ = name;
    stamp_ = stamp;
    const PixelBox frame = file.facts.frame();
    area = file.facts.area();
    isPart = area != frame;
    if (isPart && file.facts.region) regionKind = file.facts.region->kind;
    std::vector<INFOTAG> pixels = pixelTagsOf(file.tags);
    listed_ = static_cast<std::int64_t>(pixels.size());
    fingerprint_ = fingerprintOf(pixels);
    for (const INFOTAG& tag : pixels) {
        const auto window = windowOf(tag, frame);
        if (!window) continue;
        windows[tag.p8].push_back(*window);
        windowTags.emplace(tag.p8, tag);
    }
    recount(pixels);
    if (stamp.wasAtRest()) kept_ = std::move(pixels);
}

// Channels mostly have the same buckets: these are united once.
void MergeInput::recount(const std::vector<INFOTAG>& pixels) {
    ChannelCover own;
    own.addPixels(pixels);
    covers_.clear();
    const std::vector<PixelBox>* before = nullptr;
    for (const auto& [channel, boxes] : own.boxes()) {
        if (before != nullptr && *before == boxes) {
            covers_.back().channels.push_back(channel);
            continue;
        }
        before = &boxes;
        MissingBoxes united = unitedBoxes(boxes, kMergeRange);
        const bool disjoint = !united.truncated;
        covers_.push_back({{channel}, disjoint ? std::move(united.boxes) : boxes, 0});
        Cover& cover = covers_.back();
        if (!disjoint) cover.pixels = coveredPixels(boxes, kMergeRange);
        for (std::size_t i = 0; disjoint && i < cover.boxes.size(); ++i)
            cover.pixels += cover.boxes[i].area();
    }
    tags_ = static_cast<std::int64_t>(pixels.size());
    bytes_ = 0;
    for (const INFOTAG& tag : pixels)
        bytes_ += tag.size;
}

// False when the tags are not those of before. A writer may have added some.
bool MergeInput::listAnew(PFileStream& stream, std::vector<INFOTAG>& pixels) const {
    pixels = pixelTagsIn(stream);
    if (static_cast<std::int64_t>(pixels.size()) > listed_) pixels.resize(static_cast<std::size_t>(listed_));
    return static_cast<std::int64_t>(pixels.size()) == listed_ && fingerprintOf(pixels) == fingerprint_;
}

std::string MergeInput::list(PFileStream& stream, std::vector<INFOTAG>& pixels) const {
    const int code = stream.Open(name_.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0) return openErrorText(code);
    if (!kept_.empty() && stamp_.isSame(FileStamp(name_.c_str()))) {
        pixels = kept_;
    } else if (!listAnew(stream, pixels)) {
        return "has changed since the merge began";
    }
    if (!leftOut_.empty()) {
        const auto isLeftOut = [this](const INFOTAG& tag) {
            return std::binary_search(leftOut_.begin(), leftOut_.end(), bucketKey(tag));
        };
        pixels.erase(std::remove_if(pixels.begin(), pixels.end(), isLeftOut), pixels.end());
    }
    return {};
}

}  // namespace v1
}  // namespace MUtils
