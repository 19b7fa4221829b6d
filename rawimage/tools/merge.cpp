#include "rawimage/tools/merge.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <system_error>

#include "rawimage/area/coverage.h"
#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/inspection.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/tools/tag_copier.h"
#include "support/bytes.h"
#include "support/files.h"

namespace MUtils {
inline namespace v1 {

namespace {

struct Input {
    std::string name;
    PFileStream file;
    Inspection inspected;
    std::vector<INFOTAG> pixels;  // to copy
};

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

// Of a place or a size within the area.
std::int32_t word(std::int64_t value) {
    return static_cast<std::int32_t>(value);
}

// A channel and a box of it, or a window, in some order.
using BucketKey = std::array<std::int32_t, 6>;

BucketKey keyOf(const RIF_TAG& tag) {
    return {tag.p8, tag.p2, tag.p3, tag.p4, tag.p5, statesWindow(tag) ? tag.p6 : 0};
}

// Pixels, wherever a renderer may put a bucket.
std::int64_t coveredBy(const ChannelCover& cover, std::int32_t channel) {
    constexpr std::int64_t kHalf = INT32_MAX / 2;
    const PixelBox everywhere{-kHalf, -kHalf, kHalf, kHalf};
    const auto found = cover.boxes().find(channel);
    return found != cover.boxes().end() ? coveredPixels(found->second, everywhere) : 0;
}

class Merge {
  public:
    Merge(const std::vector<std::string>& names, const MergeOptions& options, MergeReport& report)
        : names_(names), options_(options), report_(report) {}

    void run(const std::string& output) {
        if (!open(output) || !agree()) return;
        collectWindows();
        if (settleOverlaps() && checkHoles()) write(output);
    }

  private:
    bool fail(MergeState state, const std::string& file, const std::string& cause);
    bool open(const std::string& output);
    bool openOne(Input& input);
    bool agree();
    static std::string difference(const Input& a, const Input& b);
    void unite();
    bool settleOverlaps();
    bool refuseOverlap(std::int32_t channel);
    void leaveOutRepeated();
    bool checkHoles();
    void write(const std::string& output);
    ErrorCode writeMetadata(TagCopier& copier);
    ErrorCode writeRegion(TagCopier& copier, const INFOTAG& tag);
    void collectWindows();
    ErrorCode writeWindows(TagCopier& copier);

    const std::vector<std::string>& names_;
    const MergeOptions& options_;
    MergeReport& report_;
    std::vector<std::unique_ptr<Input>> inputs_;  // in the caller's order
    // A pixel tag of a channel and the window that it has to state.
    struct Window {
        RIF_TAG tag;
        PixelBox box;
    };
    std::vector<Window> ownWindows_;  // that no input states, for channels of which another states some
    PixelBox area_;
    bool regionIsPart_ = false;  // some input has a render region that is not the whole frame
};

bool Merge::fail(MergeState state, const std::string& file, const std::string& cause) {
    report_.state = state;
    report_.file = file;
    report_.cause = cause;
    return false;
}

bool Merge::openOne(Input& input) {
    const int code = input.file.Open(input.name.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0) return fail(MergeState::kCannotOpen, input.name, std::generic_category().message(code));
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    input.inspected = inspectStream(input.file, options);
    const Inspection& found = input.inspected;
    switch (found.state) {
        case FileState::kCannotOpen: return fail(MergeState::kCannotOpen, input.name, found.cause);
        case FileState::kNotThisFormat:
            return fail(MergeState::kNotThisFormat, input.name, "not a raw image file");
        case FileState::kDamaged:
            return fail(MergeState::kDamaged, input.name,
                        found.cause + " at " + std::to_string(found.causeOffset));
        case FileState::kUnfinished: report_.unfinished.push_back(input.name); break;
        default: break;
    }
    std::copy_if(input.inspected.tags.begin(), input.inspected.tags.end(), std::back_inserter(input.pixels),
                 [](const INFOTAG& tag) { return isPixelTag(tag.id); });
    return true;
}

bool Merge::open(const std::string& output) {
    for (const std::string& name : names_) {
        if (isSameFile(name.c_str(), output.c_str()))
            return fail(MergeState::kWriteFailed, output, "input and output are the same file");
        inputs_.push_back(std::make_unique<Input>());
        inputs_.back()->name = name;
        if (!openOne(*inputs_.back())) return false;
    }
    return !inputs_.empty() || fail(MergeState::kCannotOpen, "", "no input");
}

// What keeps two files from being pieces of one frame; "" when nothing does.
std::string Merge::difference(const Input& a, const Input& b) {
    if (a.inspected.facts.frame() != b.inspected.facts.frame())
        return "the frame is " + sizeText(b.inspected.facts) + ", not " + sizeText(a.inspected.facts);
    if (aspectOf(a.inspected.facts) != aspectOf(b.inspected.facts)) return "the pixel aspect differs";
    if (a.inspected.compressed != b.inspected.compressed)
        return "one file is compressed and the other is not";
    const std::vector<RIF_CHANNEL>& ours = a.inspected.facts.channels;
    const std::vector<RIF_CHANNEL>& theirs = b.inspected.facts.channels;
    if (ours.size() != theirs.size())
        return std::to_string(theirs.size()) + " channels, not " + std::to_string(ours.size());
    for (std::size_t i = 0; i < ours.size(); ++i) {
        const std::string which = "channel " + std::to_string(ours[i].index);
        if (ours[i].index != theirs[i].index)
            return which + " stands where channel " + std::to_string(theirs[i].index) + " is";
        if (std::string(ours[i].name) != theirs[i].name)
            return which + " is \"" + theirs[i].name + "\", not \"" + ours[i].name + "\"";
        if (ours[i].type != theirs[i].type)
            return which + " is of type " + std::to_string(theirs[i].type) + ", not " +
                   std::to_string(ours[i].type);
    }
    return {};
}

bool Merge::agree() {
    for (const auto& input : inputs_) {
        const std::string differs = difference(*inputs_.front(), *input);
        if (!differs.empty()) {
            return fail(MergeState::kMismatch, input->name,
                        "does not fit " + inputs_.front()->name + ": " + differs);
        }
    }
    unite();
    return true;
}

void Merge::unite() {
    for (const auto& input : inputs_) {
        const PixelBox area = input->inspected.facts.area();
        regionIsPart_ = regionIsPart_ || area != input->inspected.facts.frame();
        area_ = boxAround(area_, area);
    }
    // A render region's size is a 32-bit number.
    area_.x1 = std::min(area_.x1, area_.x0 + INT32_MAX);
    area_.y1 = std::min(area_.y1, area_.y0 + INT32_MAX);
    report_.area = area_;
    report_.frame = inputs_.front()->inspected.facts.frame();
}

// Inputs overlap when together they cover less than they add up to.
bool Merge::settleOverlaps() {
    if (options_.overlap != MergeOverlap::kRefuse) {
        leaveOutRepeated();
        return true;
    }
    std::map<std::int32_t, std::int64_t> sums;
    ChannelCover together;
    for (const auto& input : inputs_) {
        ChannelCover own;
        own.addPixels(input->pixels);
        together.addPixels(input->pixels);
        for (const auto& boxes : own.boxes())
            sums[boxes.first] += coveredBy(own, boxes.first);
    }
    for (const auto& [channel, sum] : sums) {
        if (coveredBy(together, channel) < sum) return refuseOverlap(channel);
    }
    return true;
}

// Names the first input that overlaps those before it.
bool Merge::refuseOverlap(std::int32_t channel) {
    ChannelCover together;
    std::int64_t before = 0;
    for (const auto& input : inputs_) {
        ChannelCover own;
        own.addPixels(input->pixels);
        together.addPixels(input->pixels);
        const std::int64_t sum = before + coveredBy(own, channel);
        before = coveredBy(together, channel);
        if (before < sum) {
            return fail(MergeState::kOverlap, input->name,
                        "overlaps the files before it in channel " + std::to_string(channel) + " by " +
                            std::to_string(sum - before) + " pixels");
        }
    }
    return fail(MergeState::kOverlap, "", "files overlap in channel " + std::to_string(channel));
}

// From the input that counts down.
void Merge::leaveOutRepeated() {
    std::set<BucketKey> taken;
    const auto leaveOut = [&taken](Input& input) {
        std::vector<INFOTAG>& pixels = input.pixels;
        pixels.erase(std::remove_if(pixels.begin(), pixels.end(),
                                    [&taken](const INFOTAG& tag) { return taken.count(keyOf(tag)) > 0; }),
                     pixels.end());
        for (const INFOTAG& tag : pixels)
            taken.insert(keyOf(tag));
    };
    if (options_.overlap == MergeOverlap::kFirst) {
        std::for_each(inputs_.begin(), inputs_.end(), [&](const auto& input) { leaveOut(*input); });
    } else {
        std::for_each(inputs_.rbegin(), inputs_.rend(), [&](const auto& input) { leaveOut(*input); });
    }
}

bool Merge::checkHoles() {
    ChannelCover cover;
    cover.addChannels(inputs_.front()->inspected.facts.channels);
    for (const auto& input : inputs_)
        cover.addPixels(input->pixels);
    for (const auto& input : inputs_)
        cover.addWindows(input->pixels, input->inspected.facts.frame());
    for (const Window& window : ownWindows_)
        cover.addWindow(window.tag.p8, window.box);
    ChannelCover::Missing missing = cover.missing(area_);
    if (missing.inAny.boxes.empty() && !missing.inAny.truncated) return true;
    report_.holes = std::move(missing.inAny);
    if (options_.allowHoles) return true;
    if (missing.channels.empty()) return fail(MergeState::kMismatch, "", "there are no channels");
    const auto& [channel, holes] = missing.channels.front();
    const std::string name = inputs_.front()->inspected.facts.channelName(channel);
    return fail(MergeState::kHoles, "",
                "channel " + std::to_string(channel) + (name.empty() ? "" : " \"" + name + "\"") +
                    " has holes: " + std::to_string(holes.boxes.size()) +
                    (holes.truncated ? " or more" : "") + ", the first " +
                    (holes.boxes.empty() ? "" : boxText(holes.boxes.front())));
}

// Where one file states a window of a channel, the others mean all of their area: without a window stated for
// them their part of the channel would count as outside.
void Merge::collectWindows() {
    std::map<std::int32_t, RIF_TAG> stated;
    std::vector<ChannelCover> covers(inputs_.size());
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        covers[i].addWindows(inputs_[i]->pixels, inputs_[i]->inspected.facts.frame());
        for (const INFOTAG& tag : inputs_[i]->pixels) {
            if (windowOf(tag, inputs_[i]->inspected.facts.frame())) stated.emplace(tag.p8, tag);
        }
    }
    for (const auto& [channel, tag] : stated) {
        for (std::size_t i = 0; i < inputs_.size(); ++i) {
            if (covers[i].windows().count(channel) > 0) continue;
            const MissingBoxes inFrame =
                unitedBoxes({inputs_[i]->inspected.facts.area()}, inputs_[i]->inspected.facts.frame());
            if (!inFrame.boxes.empty()) ownWindows_.push_back({tag, inFrame.boxes.front()});
        }
    }
}

ErrorCode Merge::writeWindows(TagCopier& copier) {
    constexpr unsigned char kNothingDeflated[] = {0x78, 0xda, 0x03, 0, 0, 0, 0, 1};
    const bool compressed = inputs_.front()->inspected.compressed;
    for (const Window& window : ownWindows_) {
        RIF_TAG tag = window.tag;
        tag.size = kTagHeaderBytes + (compressed ? sizeof kNothingDeflated : 0);
        tag.p2 = word(window.box.x0);
        tag.p3 = word(window.box.y0);
        tag.p4 = word(window.box.width());
        tag.p6 = word(window.box.height());
        if (ErrorCode error = copier.add(tag, kNothingDeflated); !error.empty()) return error;
    }
    return {};
}

// The box around all; everything else stays as the tag has it.
ErrorCode Merge::writeRegion(TagCopier& copier, const INFOTAG& tag) {
    RIRegionInfo region{0, word(area_.x0), word(area_.y0), word(area_.width()), word(area_.height())};
    for (const auto& input : inputs_) {
        const FrameFacts& facts = input->inspected.facts;
        if (facts.area() == facts.frame() || !facts.region) continue;
        region.kind = facts.region->kind;
        break;
    }
    unsigned char bytes[kRegionRecordBytes];
    encodeRegion(region, bytes);
    return copier.add(tag, bytes);
}

// In the order of the file that has each kind first.
ErrorCode Merge::writeMetadata(TagCopier& copier) {
    std::set<std::uint32_t> taken;
    for (const auto& input : inputs_) {
        std::set<std::uint32_t> here;
        for (const INFOTAG& tag : input->inspected.tags) {
            if (taken.count(tag.id) > 0 || isPixelTag(tag.id) || tag.id == TAG_INFO_TAGS) continue;
            here.insert(tag.id);
            ErrorCode error = tag.id == TAG_RENDER_REGION && regionIsPart_ ? writeRegion(copier, tag)
                                                                           : copier.copy(input->file, {tag});
            if (!error.empty()) return error;
        }
        taken.insert(here.begin(), here.end());
    }
    return {};
}

// Readers draw later tags over earlier ones, so the file that counts goes last.
void Merge::write(const std::string& output) {
    std::int64_t total = 0;
    for (const auto& input : inputs_) {
        for (const INFOTAG& tag : input->pixels)
            total += tag.size;
    }
    TagCopier::Progress copying;
    if (options_.progress)
        copying = [&](std::int64_t copied) { return options_.progress(copied, std::max(copied, total)); };
    TagCopier copier(copying);
    copier.setSyncOnClose(options_.sync);
    ErrorCode error = copier.begin(output.c_str(), inputs_.front()->inspected.compressed);
    if (error.empty()) error = writeMetadata(copier);
    if (error.empty()) error = writeWindows(copier);
    if (options_.overlap == MergeOverlap::kFirst) std::reverse(inputs_.begin(), inputs_.end());
    for (const auto& input : inputs_) {
        if (!error.empty() || copier.stopped()) break;
        error = copier.copy(input->file, input->pixels);
        report_.tags += static_cast<std::int64_t>(input->pixels.size());
    }
    const bool whole = error.empty() && !copier.stopped();
    ErrorCode closing = whole ? copier.Close() : copier.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) {
        fail(MergeState::kWriteFailed, output, error.describe());
        report_.error = std::move(error);
    } else if (!whole) {
        fail(MergeState::kStopped, output, "stopped");
    }
}

}  // namespace

MergeReport mergeFiles(const std::vector<std::string>& inputs, const std::string& output,
                       const MergeOptions& options) {
    MergeReport report;
    Merge(inputs, options, report).run(output);
    return report;
}

}  // namespace v1
}  // namespace MUtils
