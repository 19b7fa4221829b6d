#include "convert/to_exr/raw_losses.h"

#include <algorithm>
#include <set>
#include <utility>

#include "rawimage/area/missing_boxes.h"

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

// A bucket that several reads have met counts once.
void dropRepeats(std::vector<FileFault>& faults) {
    const auto byOffset = [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; };
    const auto same = [](const FileFault& a, const FileFault& b) {
        return a.offset == b.offset && a.count == 1 && b.count == 1;
    };
    std::stable_sort(faults.begin(), faults.end(), byOffset);
    faults.erase(std::unique(faults.begin(), faults.end(), same), faults.end());
}

// By offset.
std::vector<NamedFault> faultsIn(const RawFrame& file, std::vector<FileFault> unread) {
    std::vector<NamedFault> faults;
    const auto add = [&faults](const char* bucket, std::vector<FileFault>& found) {
        for (FileFault& fault : found)
            faults.push_back({bucket, std::move(fault)});
    };
    FileFaults found = file.faults();
    dropRepeats(unread);
    add("damaged bucket", found.lost);
    add("damaged bucket", unread);
    add("repaired bucket", found.repaired);
    add("bucket", found.doubts);
    std::stable_sort(faults.begin(), faults.end(), [](const NamedFault& a, const NamedFault& b) {
        return a.fault.offset < b.fault.offset;
    });
    return faults;
}

void noteFaults(const RawInput& input, const std::vector<NamedFault>& faults, ConvertReport& report) {
    const std::size_t listed = std::min(faults.size(), kMostFaults);
    for (std::size_t i = 0; i < listed; ++i) {
        report.losses.push_back({"damage", input.path, textOf(faults[i]), {}, {}, faults[i].fault.offset});
    }
    const std::int64_t more = static_cast<std::int64_t>(faults.size() - listed) + input.frame.furtherFaults();
    if (more > 0)
        report.losses.push_back({"damage", input.path, std::to_string(more) + " more faults", {}, more});
}

// The pixels that some written channel lacks.
MissingBoxes missingOf(const RawFrame& file, const std::vector<ExrChannel>& channels,
                       const PixelBox& window) {
    std::set<int> written;
    for (const ExrChannel& channel : channels) {
        if (channel.isWritten()) written.insert(channel.index);
    }
    std::vector<PixelBox> lacking;
    bool truncated = false;
    for (const MissingPixels& missing : file.missing()) {
        if (written.count(missing.channel) == 0) continue;
        lacking.insert(lacking.end(), missing.boxes.boxes.begin(), missing.boxes.boxes.end());
        truncated = truncated || missing.boxes.truncated;
    }
    if (lacking.empty()) return {{}, truncated};
    MissingBoxes result = unitedBoxes(lacking, window);
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
                           const PixelBox& window, std::vector<FileFault> unread, ConvertReport& report) {
    const std::vector<NamedFault> faults = faultsIn(input.frame, std::move(unread));
    noteFaults(input, faults, report);
    if (!faults.empty()) report.inputState = FileState::kDamaged;
    const bool unfinished = input.frame.state() == FileState::kUnfinished;
    if (unfinished) report.remarks.push_back({"unfinished", input.path, input.frame.cause()});
    const MissingBoxes missing = missingOf(input.frame, channels, window);
    const bool lacksPixels = !missing.boxes.empty() || missing.truncated;
    if (lacksPixels) noteMissing(missing, report);
    if (!faults.empty()) return ConvertState::kDamaged;
    return unfinished || lacksPixels ? ConvertState::kIncomplete : ConvertState::kGood;
}

}  // namespace v1
}  // namespace MUtils
