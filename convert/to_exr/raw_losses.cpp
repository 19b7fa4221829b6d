#include "convert/to_exr/raw_losses.h"

#include <algorithm>
#include <set>

#include "rawimage/area/tag_box.h"

namespace MUtils {

namespace {

constexpr std::size_t kMostFaults = 10;
constexpr std::size_t kMostBoxes = 10;

std::string bucketText(const char* what, const FileFault& fault) {
    const std::string name = fault.channelName.empty() ? "" : ' ' + fault.channelName;
    return what + (' ' + boxText(fault.box)) + " of channel " + std::to_string(fault.channel) + name + ": ";
}

// Adds the faults to `notes`. `what` is the word for a bucket.
void addFaults(const std::vector<FileFault>& faults, const char* what, const std::string& file,
               std::vector<ConvertNote>& notes) {
    for (const FileFault& fault : faults) {
        std::string text = (isPixelTag(fault.tagId) ? bucketText(what, fault) : "") + fault.cause;
        if (fault.count > 1) text += " (" + std::to_string(fault.count) + " times)";
        notes.push_back({"damage", file, text, {}, {}, fault.offset});
    }
}

std::vector<ConvertNote> damageOf(const RawInput& input, const std::vector<PixelLoader::Loss>& unread) {
    constexpr const char* kDamaged = "damaged bucket";
    FileFaults faults = faultsOf(input.inspection());
    for (const PixelLoader::Loss& loss : unread) {
        FileFault fault;
        fault.offset = static_cast<std::int64_t>(loss.tag.offset);
        fault.tagId = loss.tag.id;
        fault.box = boxOf(loss.tag);
        fault.channel = loss.tag.p8;
        fault.channelName = input.inspection().facts.channelName(loss.tag.p8);
        fault.cause = loss.cause;
        faults.lost.push_back(fault);
    }
    std::vector<ConvertNote> notes;
    addFaults(faults.lost, kDamaged, input.path(), notes);
    addFaults(faults.repaired, "bucket", input.path(), notes);
    addFaults(faults.doubts, "bucket", input.path(), notes);
    std::stable_sort(notes.begin(), notes.end(),
                     [](const ConvertNote& a, const ConvertNote& b) { return a.offset < b.offset; });
    return notes;
}

void noteDamage(std::vector<ConvertNote> notes, std::int64_t further, ConvertReport& report) {
    const std::size_t listed = std::min(notes.size(), kMostFaults);
    const std::int64_t more = static_cast<std::int64_t>(notes.size() - listed) + further;
    const std::string file = notes.front().file;
    std::move(notes.begin(), notes.begin() + static_cast<std::ptrdiff_t>(listed),
              std::back_inserter(report.losses));
    if (more > 0) report.losses.push_back({"damage", file, std::to_string(more) + " more faults", {}, more});
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
                           const std::vector<PixelLoader::Loss>& unread, ConvertReport& report) {
    const Inspection& file = input.inspection();
    std::vector<ConvertNote> damage = damageOf(input, unread);
    const bool damaged = !damage.empty();
    if (damaged) {
        noteDamage(std::move(damage), file.furtherFaults, report);
        report.inputState = FileState::kDamaged;
    }
    const bool unfinished = file.state == FileState::kUnfinished;
    if (unfinished) report.remarks.push_back({"unfinished", input.path(), file.cause});
    const MissingBoxes missing = missingOf(file, channels);
    const bool lacksPixels = !missing.boxes.empty() || missing.truncated;
    if (lacksPixels) noteMissing(missing, report);
    if (damaged) return ConvertState::kDamaged;
    return unfinished || lacksPixels ? ConvertState::kIncomplete : ConvertState::kGood;
}

}  // namespace MUtils
