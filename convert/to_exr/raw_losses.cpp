#include "convert/to_exr/raw_losses.h"

#include <algorithm>
#include <set>

#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMostFaults = TagScan::kMaxFaults;
constexpr std::size_t kMostBoxes = 10;

// A fault, and the word for a bucket that has it. A fault that represents several names no bucket.
struct NamedFault {
    const char* bucket;
    FileFault fault;
};

std::string textOf(const NamedFault& named) {
    const FileFault& fault = named.fault;
    std::string text;
    if (isPixelTag(fault.tagId) && fault.count == 1) {
        text = named.bucket + (' ' + boxText(fault.box)) + " of channel " + std::to_string(fault.channel);
        if (!fault.channelName.empty()) text += ' ' + fault.channelName;
        text += ": ";
    }
    text += fault.cause;
    if (fault.count > 1) text += " (" + std::to_string(fault.count) + " times)";
    return text;
}

FileFault faultOf(const PixelLoader::Loss& loss, const FrameFacts& facts) {
    FileFault fault;
    fault.offset = static_cast<std::int64_t>(loss.tag.offset);
    fault.tagId = loss.tag.id;
    fault.box = boxOf(loss.tag);
    fault.channel = loss.tag.p8;
    fault.channelName = facts.channelName(loss.tag.p8);
    fault.cause = loss.cause;
    return fault;
}

// By offset.
std::vector<NamedFault> faultsIn(const Inspection& file, const PixelLoader::Losses& unread) {
    std::vector<NamedFault> faults;
    const FileFaults found = faultsOf(file);
    for (const FileFault& fault : found.lost)
        faults.push_back({"damaged bucket", fault});
    for (const auto& [offset, loss] : unread)
        faults.push_back({"damaged bucket", faultOf(loss, file.facts)});
    for (const FileFault& fault : found.repaired)
        faults.push_back({"repaired bucket", fault});
    for (const FileFault& fault : found.doubts)
        faults.push_back({"bucket", fault});
    std::stable_sort(faults.begin(), faults.end(), [](const NamedFault& a, const NamedFault& b) {
        return a.fault.offset < b.fault.offset;
    });
    return faults;
}

void noteFaults(const RawInput& input, const std::vector<NamedFault>& faults, ConvertReport& report) {
    const std::size_t listed = std::min(faults.size(), kMostFaults);
    for (std::size_t i = 0; i < listed; ++i) {
        report.losses.push_back({"damage", input.path(), textOf(faults[i]), {}, {}, faults[i].fault.offset});
    }
    const std::int64_t more =
        static_cast<std::int64_t>(faults.size() - listed) + input.inspection().furtherFaults;
    if (more > 0)
        report.losses.push_back({"damage", input.path(), std::to_string(more) + " more faults", {}, more});
}

// The pixels that some written channel lacks.
MissingBoxes missingOf(const Inspection& file, const std::vector<ExrChannel>& channels) {
    std::set<int> written;
    for (const ExrChannel& channel : channels) {
        if (channel.isWritten()) written.insert(channel.index);
    }
    std::vector<PixelBox> lacking;
    bool truncated = false;
    for (const MissingPixels& missing : file.missing) {
        if (written.count(missing.channel) == 0) continue;
        lacking.insert(lacking.end(), missing.boxes.boxes.begin(), missing.boxes.boxes.end());
        truncated = truncated || missing.boxes.truncated;
    }
    if (lacking.empty()) return {{}, truncated};
    MissingBoxes result = unitedBoxes(lacking, file.area);
    result.truncated = result.truncated || truncated;
    return result;
}

void noteMissing(const MissingBoxes& missing, ConvertReport& report) {
    std::string text = "these pixels are missing in some channel, and are 0:";
    for (std::size_t i = 0; i < std::min(missing.boxes.size(), kMostBoxes); ++i)
        text += ' ' + boxText(missing.boxes[i]);
    if (missing.boxes.size() > kMostBoxes || missing.truncated) text += " and more";
    report.losses.push_back({"missing", "", text});
}

}  // namespace

ConvertState noteRawLosses(const RawInput& input, const std::vector<ExrChannel>& channels,
                           const PixelLoader::Losses& unread, ConvertReport& report) {
    const Inspection& file = input.inspection();
    const std::vector<NamedFault> faults = faultsIn(file, unread);
    noteFaults(input, faults, report);
    if (!faults.empty()) report.inputState = FileState::kDamaged;
    const bool unfinished = file.state == FileState::kUnfinished;
    if (unfinished) report.remarks.push_back({"unfinished", input.path(), file.cause});
    const MissingBoxes missing = missingOf(file, channels);
    const bool lacksPixels = !missing.boxes.empty() || missing.truncated;
    if (lacksPixels) noteMissing(missing, report);
    if (!faults.empty()) return ConvertState::kDamaged;
    return unfinished || lacksPixels ? ConvertState::kIncomplete : ConvertState::kGood;
}

}  // namespace v1
}  // namespace MUtils
