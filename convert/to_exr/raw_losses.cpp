#include "convert/to_exr/raw_losses.h"

#include <algorithm>
#include <set>

#include "cli/report.h"
#include "rawimage/area/tag_box.h"

namespace rimg {

namespace {

using MUtils::PixelBox;

constexpr std::size_t kMostFaults = 10;
constexpr std::size_t kMostBoxes = 10;

struct Fault {
    std::int64_t offset;
    std::string text;
};

std::string pixelsOf(const PixelBox& box, int channel, const std::string& name) {
    return "pixels " + boxText(box) + " of channel " + std::to_string(channel) +
           (name.empty() ? "" : " \"" + name + '"') + ": ";
}

std::string nameOf(const RawInput& input, int channel) {
    for (const MUtils::ChannelSummary& listed : input.records().channels) {
        if (listed.record.index == channel) return listed.record.name;
    }
    return {};
}

std::vector<Fault> faultsOf(const RawInput& input, const std::vector<PixelLoader::Loss>& lost) {
    std::vector<Fault> faults;
    for (const MUtils::FileFault& fault : input.state().faults) {
        const bool pixels = isPixelTag(fault.tagId);
        faults.push_back(
            {fault.offset,
             (pixels ? pixelsOf(fault.box, fault.channel, fault.channelName) : "") + fault.cause});
    }
    for (const PixelLoader::Loss& loss : lost) {
        const std::int32_t channel = loss.tag.p8;
        faults.push_back({static_cast<std::int64_t>(loss.tag.offset),
                          pixelsOf(MUtils::boxOf(loss.tag), channel, nameOf(input, channel)) + loss.cause});
    }
    std::stable_sort(faults.begin(), faults.end(),
                     [](const Fault& a, const Fault& b) { return a.offset < b.offset; });
    return faults;
}

// The pixels that some written channel lacks.
MUtils::MissingBoxes missingOf(const RawInput& input, const std::vector<ExrChannel>& channels) {
    std::set<int> written;
    for (const ExrChannel& channel : channels) {
        if (channel.isWritten()) written.insert(channel.index);
    }
    std::vector<PixelBox> lacking;
    bool truncated = false;
    for (const MUtils::MissingPixels& missing : input.state().missing) {
        if (written.count(missing.channel) == 0) continue;
        lacking.insert(lacking.end(), missing.boxes.boxes.begin(), missing.boxes.boxes.end());
        truncated = truncated || missing.boxes.truncated;
    }
    if (lacking.empty()) return {{}, truncated};
    MUtils::MissingBoxes result = MUtils::unitedBoxes(lacking, input.state().area);
    result.truncated = result.truncated || truncated;
    return result;
}

void tellFaults(const RawInput& input, const std::vector<Fault>& faults, ConvertLog& log) {
    for (std::size_t i = 0; i < std::min(faults.size(), kMostFaults); ++i)
        log.lose({"damage", input.path(), faults[i].text, {}, {}, faults[i].offset});
    const std::int64_t more = static_cast<std::int64_t>(faults.size()) -
                              static_cast<std::int64_t>(std::min(faults.size(), kMostFaults)) +
                              input.state().furtherFaults;
    if (more > 0) {
        log.lose({"damage",
                  input.path(),
                  std::to_string(more) + " more faults; rimg verify lists them",
                  {},
                  more});
    }
}

void tellMissing(const MUtils::MissingBoxes& missing, const std::string& output, ConvertLog& log) {
    std::string text = "these pixels are missing in some channel, and are 0:";
    for (std::size_t i = 0; i < std::min(missing.boxes.size(), kMostBoxes); ++i)
        text += ' ' + boxText(missing.boxes[i]);
    if (missing.boxes.size() > kMostBoxes || missing.truncated) text += " and more; rimg missing lists them";
    log.lose({"missing", output, text});
}

}  // namespace

ExitCode tellLosses(const RawInput& input, const std::vector<ExrChannel>& channels,
                    const std::vector<PixelLoader::Loss>& lost, const std::string& output, ConvertLog& log) {
    const std::vector<Fault> faults = faultsOf(input, lost);
    tellFaults(input, faults, log);
    const bool unfinished = input.state().state == MUtils::FileState::kUnfinished;
    if (unfinished) log.remark(input.path(), input.state().cause);
    const MUtils::MissingBoxes missing = missingOf(input, channels);
    const bool lacksPixels = !missing.boxes.empty() || missing.truncated;
    if (lacksPixels) tellMissing(missing, output, log);
    if (!faults.empty()) return ExitCode::kDamaged;
    return unfinished || lacksPixels ? ExitCode::kIncomplete : ExitCode::kGood;
}

}  // namespace rimg
