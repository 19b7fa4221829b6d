#include "rawimage/tools/merge.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "rawimage/area/coverage.h"
#include "rawimage/inspect/channel_cover.h"
#include "rawimage/tools/merge_input.h"
#include "rawimage/tools/merge_output.h"
#include "rawimage/tools/merge_reader.h"
#include "rawimage/tools/merge_repeats.h"
#include "support/bytes.h"
#include "support/files.h"

namespace MUtils {
inline namespace v1 {

namespace {

std::string sizeText(const FrameFacts& facts) {
    const PixelBox frame = facts.frame();
    return facts.resolution ? std::to_string(frame.width()) + "x" + std::to_string(frame.height())
                            : "unknown";
}

// An aspect word of 0 means 1.
std::uint32_t aspectOf(const FrameFacts& facts) {
    const std::int32_t word = facts.resolution ? facts.resolution->p3 : 0;
    return word != 0 ? static_cast<std::uint32_t>(word) : bitsFromFloat(1.0f);
}

// What keeps two files from being pieces of one frame; "" when nothing does.
std::string difference(const FrameFacts& a, const FrameFacts& b) {
    if (a.frame() != b.frame()) return "the frame is " + sizeText(b) + ", not " + sizeText(a);
    if (aspectOf(a) != aspectOf(b)) return "the pixel aspect differs";
    const std::vector<RIF_CHANNEL>& ours = a.channels;
    const std::vector<RIF_CHANNEL>& theirs = b.channels;
    if (ours.size() != theirs.size())
        return std::to_string(theirs.size()) + " channels, not " + std::to_string(ours.size());
    for (std::size_t i = 0; i < ours.size(); ++i) {
        const std::string which = "channel " + std::to_string(ours[i].index);
        if (ours[i].index != theirs[i].index)
            return which + " is in the place of channel " + std::to_string(theirs[i].index);
        if (std::string(ours[i].name) != theirs[i].name)
            return which + " is \"" + theirs[i].name + "\", not \"" + ours[i].name + "\"";
        if (ours[i].type != theirs[i].type)
            return which + " is of type " + std::to_string(theirs[i].type) + ", not " +
                   std::to_string(ours[i].type);
    }
    return {};
}

constexpr std::size_t kMostKeptTags = (24 << 20) / sizeof(INFOTAG);

constexpr const char* kNoPixels = "ends before its channels: its pixels are holes";

// The file of a render that died at once: it fits no other, and none of its frame is known.
bool endsBeforePixels(const Inspection& file) {
    return file.facts.channels.empty() && std::none_of(file.tags.begin(), file.tags.end(),
                                                       [](const auto& tag) { return isPixelTag(tag.id); });
}

// The boxes of one channel, and how many pixels they would cover if no two files overlapped.
struct ChannelSum {
    std::vector<PixelBox> boxes;
    std::int64_t pixels = 0;

    void add(const MergeInput::Cover& cover) {
        boxes.insert(boxes.end(), cover.boxes.begin(), cover.boxes.end());
        pixels += std::min(cover.pixels, std::numeric_limits<std::int64_t>::max() - pixels);
    }
    std::int64_t overlap() const { return pixels - coveredPixels(boxes, kMergeRange); }
};

class Merge {
  public:
    Merge(const std::vector<std::string>& names, const MergeOptions& options, MergeReport& report)
        : names_(names), options_(options), report_(report) {}

    void run(const std::string& output) {
        if (!read(output)) return;
        unite();
        collectWindows();
        if (settleOverlaps() && checkHoles()) write(output);
    }

  private:
    // An input whose loss the others may make good.
    struct Damaged {
        std::string name;
        std::string cause;
        FrameFacts facts;
    };

    bool fail(MergeState state, const std::string& file, const std::string& cause);
    bool read(const std::string& output);
    bool readOne(const std::string& name, MergeReader::Found& found);
    bool take(const std::string& name, MergeReader::Found& found);
    void unite();
    void collectWindows();
    std::set<std::int32_t> channels() const;
    ChannelSum sumOf(std::int32_t channel, std::size_t inputs) const;
    std::vector<std::int32_t> overlappingChannels() const;
    bool settleOverlaps();
    bool refuseOverlap(std::int32_t channel);
    bool checkHoles();
    bool setAsideDamaged();
    void write(const std::string& output);

    const std::vector<std::string>& names_;
    const MergeOptions& options_;
    MergeReport& report_;
    std::vector<MergeInput> inputs_;  // in the caller's order
    std::vector<Damaged> damaged_;
    FrameFacts facts_;  // of the first input that is not damaged
    bool compressed_ = false;
    std::size_t keptTags_ = 0;             // of all inputs
    std::set<std::uint32_t> metadata_;     // ids that some input has
    std::vector<MergeWindow> ownWindows_;  // that no input states, for channels of which another states some
    PixelBox area_;
    bool regionIsPart_ = false;  // some input has a render region that is not the whole frame
};

bool Merge::fail(MergeState state, const std::string& file, const std::string& cause) {
    report_.state = state;
    report_.file = file;
    report_.cause = cause;
    return false;
}

bool Merge::read(const std::string& output) {
    const FileStamp written(output.c_str());
    MergeReader reader(names_, options_.threads);
    for (const std::string& name : names_) {
        MergeReader::Found& found = reader.next();
        if (found.stamp.isSameFile(written))
            return fail(MergeState::kWriteFailed, output, "input and output are the same file");
        if (!readOne(name, found)) return false;
        if (options_.progress && !options_.progress(0, 1))
            return fail(MergeState::kStopped, output, "stopped");
    }
    if (!inputs_.empty()) return true;
    if (names_.empty()) return fail(MergeState::kCannotOpen, "", "no input");
    if (damaged_.empty()) return fail(MergeState::kMismatch, names_.front(), kNoPixels);
    return fail(MergeState::kDamaged, damaged_.front().name, damaged_.front().cause);
}

bool Merge::readOne(const std::string& name, MergeReader::Found& found) {
    if (found.code != 0)
        return fail(MergeState::kCannotOpen, name, std::generic_category().message(found.code));
    const Inspection& file = found.file;
    switch (file.state) {
        case FileState::kCannotOpen: return fail(MergeState::kCannotOpen, name, file.cause);
        case FileState::kNotThisFormat: return fail(MergeState::kNotThisFormat, name, file.cause);
        case FileState::kDamaged:
            damaged_.push_back({name, file.cause + " at " + std::to_string(file.causeOffset), file.facts});
            return true;
        case FileState::kUnfinished:
            report_.unfinished.push_back(name);
            if (!endsBeforePixels(file)) break;
            return options_.allowHoles || fail(MergeState::kHoles, name, kNoPixels);
        default: break;
    }
    return take(name, found);
}

bool Merge::take(const std::string& name, MergeReader::Found& found) {
    const Inspection& file = found.file;
    if (inputs_.empty()) {
        facts_ = file.facts;
        compressed_ = file.compressed;
    }
    std::string differs = difference(facts_, file.facts);
    if (differs.empty() && compressed_ != file.compressed)
        differs = "one file is compressed and the other is not";
    if (!differs.empty())
        return fail(MergeState::kMismatch, name, "does not fit " + inputs_.front().name() + ": " + differs);
    inputs_.push_back(std::move(found.input));
    keptTags_ += inputs_.back().keptTags();
    if (keptTags_ > kMostKeptTags) inputs_.back().dropTags();
    std::set<std::uint32_t> here;
    for (const INFOTAG& tag : file.tags) {
        if (isPixelTag(tag.id) || tag.id == TAG_INFO_TAGS || metadata_.count(tag.id) > 0) continue;
        here.insert(tag.id);
        inputs_.back().metadata.push_back(tag);
    }
    metadata_.insert(here.begin(), here.end());
    return true;
}

void Merge::unite() {
    const auto add = [this](const PixelBox& area) {
        regionIsPart_ = regionIsPart_ || area != facts_.frame();
        area_ = boxAround(area_, area);
    };
    for (const MergeInput& input : inputs_)
        add(input.area);
    for (const Damaged& damaged : damaged_) {
        if (difference(facts_, damaged.facts).empty()) add(damaged.facts.area());
    }
    // A render region's size is a 32-bit number.
    area_.x1 = std::min(area_.x1, area_.x0 + INT32_MAX);
    area_.y1 = std::min(area_.y1, area_.y0 + INT32_MAX);
    report_.area = area_;
    report_.frame = facts_.frame();
}

// Where one file states a window of a channel, the others mean all of their area: without a window stated for
// them their part of the channel would count as outside.
void Merge::collectWindows() {
    std::map<std::int32_t, RIF_TAG> stated;
    for (const MergeInput& input : inputs_)
        stated.insert(input.windowTags.begin(), input.windowTags.end());
    for (const auto& [channel, tag] : stated) {
        for (const MergeInput& input : inputs_) {
            if (input.windows.count(channel) > 0) continue;
            const PixelBox inFrame = intersect(input.area, facts_.frame());
            if (!inFrame.empty()) ownWindows_.push_back({tag, inFrame});
        }
    }
}

std::set<std::int32_t> Merge::channels() const {
    std::set<std::int32_t> all;
    for (const MergeInput& input : inputs_) {
        for (const MergeInput::Cover& cover : input.covers())
            all.insert(cover.channels.begin(), cover.channels.end());
    }
    return all;
}

ChannelSum Merge::sumOf(std::int32_t channel, std::size_t inputs) const {
    ChannelSum sum;
    for (std::size_t i = 0; i < inputs; ++i) {
        for (const MergeInput::Cover& cover : inputs_[i].covers()) {
            if (std::find(cover.channels.begin(), cover.channels.end(), channel) != cover.channels.end())
                sum.add(cover);
        }
    }
    return sum;
}

std::vector<std::int32_t> Merge::overlappingChannels() const {
    std::vector<std::int32_t> overlapping;
    ChannelSum before;
    bool overlapped = false;
    for (const std::int32_t channel : channels()) {
        ChannelSum sum = sumOf(channel, inputs_.size());
        // Channels mostly have the same buckets.
        if (sum.boxes != before.boxes) overlapped = sum.overlap() > 0;
        if (overlapped) overlapping.push_back(channel);
        before = std::move(sum);
    }
    return overlapping;
}

bool Merge::settleOverlaps() {
    const bool refuses = options_.overlap == MergeOverlap::kRefuse;
    if (refuses && overlappingChannels().empty()) return true;
    MergeRepeats repeats(inputs_, options_, compressed_);
    if (!repeats.settle()) {
        if (repeats.cause().empty()) return fail(MergeState::kStopped, "", "stopped");
        return fail(MergeState::kCannotOpen, repeats.failedFile(), repeats.cause());
    }
    report_.repeats = repeats.repeats();
    if (!refuses) return true;
    const std::vector<std::int32_t> overlapping = overlappingChannels();
    return overlapping.empty() || refuseOverlap(overlapping.front());
}

// Names the first input that overlaps those before it.
bool Merge::refuseOverlap(std::int32_t channel) {
    std::size_t without = 0, with = inputs_.size();
    while (with - without > 1) {
        const std::size_t middle = without + (with - without) / 2;
        (sumOf(channel, middle).overlap() > 0 ? with : without) = middle;
    }
    return fail(MergeState::kOverlap, inputs_[with - 1].name(),
                "overlaps the files before it in channel " + std::to_string(channel) + " by " +
                    std::to_string(sumOf(channel, with).overlap()) + " pixels");
}

// The holes are known.
bool Merge::setAsideDamaged() {
    for (const Damaged& damaged : damaged_) {
        const PixelBox area = damaged.facts.area();
        const std::vector<PixelBox>& holes = report_.holes.boxes;
        const bool whole = difference(facts_, damaged.facts).empty() && !report_.holes.truncated &&
                           std::none_of(holes.begin(), holes.end(),
                                        [&area](const PixelBox& hole) { return overlaps(hole, area); });
        if (!whole) return fail(MergeState::kDamaged, damaged.name, damaged.cause);
        report_.setAside.push_back({damaged.name, damaged.cause});
    }
    return true;
}

bool Merge::checkHoles() {
    ChannelCover cover;
    cover.addChannels(facts_.channels);
    for (const MergeInput& input : inputs_) {
        for (const MergeInput::Cover& own : input.covers()) {
            for (const std::int32_t channel : own.channels)
                cover.addBoxes(channel, own.boxes);
        }
        for (const auto& [channel, windows] : input.windows) {
            for (const PixelBox& window : windows)
                cover.addWindow(channel, window);
        }
    }
    for (const MergeWindow& window : ownWindows_)
        cover.addWindow(window.tag.p8, window.box);
    ChannelCover::Missing missing = cover.missing(area_);
    report_.holes = std::move(missing.inAny);
    if (!setAsideDamaged()) return false;
    if (options_.allowHoles || (report_.holes.boxes.empty() && !report_.holes.truncated)) return true;
    if (missing.channels.empty()) return fail(MergeState::kMismatch, "", "there are no channels");
    const auto& [channel, holes] = missing.channels.front();
    const std::string name = facts_.channelName(channel);
    return fail(MergeState::kHoles, "",
                "channel " + std::to_string(channel) + (name.empty() ? "" : " \"" + name + "\"") +
                    " has holes: " + std::to_string(holes.boxes.size()) +
                    (holes.truncated ? " or more" : "") + ", the first " +
                    (holes.boxes.empty() ? "" : boxText(holes.boxes.front())));
}

void Merge::write(const std::string& output) {
    const auto word = [](std::int64_t value) { return static_cast<std::int32_t>(value); };
    RIRegionInfo region{0, word(area_.x0), word(area_.y0), word(area_.width()), word(area_.height())};
    const auto part =
        std::find_if(inputs_.begin(), inputs_.end(), [](const MergeInput& input) { return input.isPart; });
    if (part != inputs_.end()) region.kind = part->regionKind;
    MergeOutput merged(inputs_, options_, compressed_, report_);
    merged.write(output, ownWindows_, regionIsPart_ ? &region : nullptr);
    if (options_.verify && report_.state == MergeState::kGood) merged.verify(output);
}

}  // namespace

const char* stateName(MergeState state) {
    switch (state) {
        case MergeState::kGood: return "good";
        case MergeState::kCannotOpen: return "cannot open";
        case MergeState::kNotThisFormat: return "not this format";
        case MergeState::kDamaged: return "damaged";
        case MergeState::kMismatch: return "mismatch";
        case MergeState::kOverlap: return "overlap";
        case MergeState::kHoles: return "holes";
        case MergeState::kWriteFailed: return "write failed";
        case MergeState::kNotVerified: return "not verified";
        case MergeState::kStopped: break;
    }
    return "stopped";
}

MergeReport mergeFiles(const std::vector<std::string>& inputs, const std::string& output,
                       const MergeOptions& options) {
    MergeReport report;
    Merge(inputs, options, report).run(output);
    return report;
}

}  // namespace v1
}  // namespace MUtils
