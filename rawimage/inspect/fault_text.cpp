#include "rawimage/inspect/fault_text.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

#include "support/safe_text.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Shows the first few parts of a list: "3 alpha, 4 z and 7 more".
std::string listText(const std::vector<std::string>& parts) {
    constexpr std::size_t kMost = 8;
    std::string text;
    for (std::size_t i = 0; i < std::min(parts.size(), kMost); ++i)
        text += (i == 0 ? "" : ", ") + parts[i];
    return parts.size() > kMost ? text + " and " + std::to_string(parts.size() - kMost) + " more" : text;
}

const char* plural(const std::vector<std::string>& parts) {
    return parts.size() > 1 ? "s " : " ";
}

bool isOfBucket(std::uint32_t tagId, const PixelBox& box) {
    return isPixelTag(tagId) && !box.empty();
}

// The faults of a line: one fault, or those of one bucket.
class FaultGroup {
  public:
    explicit FaultGroup(const FileFault& first) : tagId_(first.tagId), box_(first.box), count_(first.count) {
        add(first);
    }

    void add(const FileFault& fault) {
        const std::string channel = channelText(fault.channel, fault.channelName);
        if (std::find(channels_.begin(), channels_.end(), channel) == channels_.end())
            channels_.push_back(channel);
        if (std::find(causes_.begin(), causes_.end(), fault.cause) == causes_.end())
            causes_.push_back(fault.cause);
        // The tags of a bucket often lie side by side.
        const bool joins = !ranges_.empty() && fault.end > fault.offset && ranges_.back().end == fault.offset;
        joins ? void(ranges_.back().end = fault.end) : ranges_.push_back({fault.offset, fault.end});
    }

    std::string text() const {
        std::vector<std::string> offsets;
        for (const Range& range : ranges_) {
            const std::string end = range.end > range.begin ? ".." + std::to_string(range.end) : "";
            offsets.push_back(std::to_string(range.begin) + end);
        }
        const std::string subject = subjectText();
        std::string text = subject + (subject.empty() ? "offset" : ", offset") + plural(offsets);
        text += listText(offsets) + ": " + listText(causes_);
        return count_ > 1 ? text + " (" + std::to_string(count_) + " times)" : text;
    }

  private:
    struct Range {
        std::int64_t begin, end;
    };

    // "bucket 64x64+0+0 of channel 3 alpha", "note", "bytes" of no known tag, or nothing. A fault that
    // represents several is about more than the tag that it names.
    std::string subjectText() const {
        if (count_ > 1) return "";
        if (tagId_ == 0) return ranges_.front().end > ranges_.front().begin ? "bytes" : "";
        const std::string name = tagName(tagId_);
        if (!isOfBucket(tagId_, box_)) return name == "unknown" ? name + " tag" : name;
        return "bucket " + boxText(box_) + " of channel" + plural(channels_) + listText(channels_);
    }

    std::uint32_t tagId_;
    PixelBox box_;
    std::vector<std::string> channels_;  // in the order of their tags, as the ranges are
    std::vector<std::string> causes_;
    std::vector<Range> ranges_;
    std::int64_t count_;
};

}  // namespace

std::string channelText(int index, const std::string& name) {
    return std::to_string(index) + (name.empty() ? "" : " " + safeText(name));
}

std::string faultText(const FileFault& fault) {
    return FaultGroup(fault).text();
}

std::vector<std::string> faultLines(const std::vector<FileFault>& faults) {
    std::vector<FaultGroup> groups;
    std::map<std::array<std::int64_t, 4>, std::size_t> groupOf;
    for (const FileFault& fault : faults) {
        const PixelBox& box = fault.box;
        const bool joins = isOfBucket(fault.tagId, box) && fault.count == 1;
        const auto [place, isNew] = joins
                                        ? groupOf.try_emplace({box.x0, box.y0, box.x1, box.y1}, groups.size())
                                        : std::make_pair(groupOf.end(), true);
        isNew ? groups.emplace_back(fault), void() : groups[place->second].add(fault);
    }
    std::vector<std::string> lines;
    std::transform(groups.begin(), groups.end(), std::back_inserter(lines),
                   [](const FaultGroup& group) { return group.text(); });
    return lines;
}

}  // namespace v1
}  // namespace MUtils
