#include "rawimage/tools/merge_repeats.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "rawimage/inspect/payload_pool.h"

namespace MUtils {
inline namespace v1 {

bool MergeRepeats::list(std::size_t input, PFileStream& stream, std::vector<INFOTAG>& pixels) {
    cause_ = inputs_[input].list(stream, pixels);
    if (!cause_.empty()) failedFile_ = inputs_[input].name();
    return cause_.empty();
}

bool MergeRepeats::collect() {
    std::size_t tags = 0;
    for (const MergeInput& input : inputs_)
        tags += static_cast<std::size_t>(input.tags());
    entries_.reserve(tags);
    std::vector<INFOTAG> pixels;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        PFileStream stream;
        if (!list(i, stream, pixels)) return false;
        for (const INFOTAG& tag : pixels)
            entries_.push_back({bucketKey(tag), static_cast<std::uint32_t>(i)});
    }
    return true;
}

void MergeRepeats::group() {
    const auto place = [](const Entry& entry) { return std::tie(entry.key, entry.input); };
    std::sort(entries_.begin(), entries_.end(),
              [place](const Entry& a, const Entry& b) { return place(a) < place(b); });
    entries_.erase(std::unique(entries_.begin(), entries_.end(),
                               [place](const Entry& a, const Entry& b) { return place(a) == place(b); }),
                   entries_.end());
    std::size_t kept = 0;
    for (std::size_t first = 0, end; first < entries_.size(); first = end) {
        for (end = first; end < entries_.size() && entries_[end].key == entries_[first].key;)
            ++end;
        if (end - first < 2) continue;
        const std::size_t count = end - first;
        const bool last = options_.overlap == MergeOverlap::kLast;
        groups_.push_back({kept, kept + count, kept + (last ? count - 1 : 0), false});
        std::move(entries_.begin() + static_cast<std::ptrdiff_t>(first),
                  entries_.begin() + static_cast<std::ptrdiff_t>(end),
                  entries_.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += count;
    }
    entries_.resize(kept);
}

MergeRepeats::Group* MergeRepeats::groupOf(const BucketKey& key) {
    const auto found = std::lower_bound(
        groups_.begin(), groups_.end(), key,
        [this](const Group& group, const BucketKey& of) { return entries_[group.first].key < of; });
    return found != groups_.end() && entries_[found->first].key == key ? &*found : nullptr;
}

// Marks the damaged buckets of an input among those for which no input before it was sound, and lets it count
// for the others.
bool MergeRepeats::checkInput(std::uint32_t input) {
    PFileStream stream;
    std::vector<INFOTAG> pixels;
    if (!list(input, stream, pixels)) return false;
    const auto open = [this](const RIF_TAG& tag) {
        const Group* group = groupOf(bucketKey(tag));
        return group != nullptr && !group->settled;
    };
    const auto progress = [this](std::int64_t, std::int64_t) {
        return !options_.progress || options_.progress(0, 1);
    };
    std::vector<PayloadPool::Bad> bad;
    PayloadPool pool(stream, options_.threads, TagRules(compressed_));
    if (!pool.check(pixels, open, progress, bad)) return false;
    const auto entryOf = [this, input](Group& group) {
        return std::find_if(entries_.begin() + static_cast<std::ptrdiff_t>(group.first), entries_.end(),
                            [input](const Entry& entry) { return entry.input == input; });
    };
    for (const PayloadPool::Bad& found : bad)
        entryOf(*groupOf(bucketKey(pixels[found.index])))->damaged = true;
    for (const INFOTAG& tag : pixels) {
        Group* group = groupOf(bucketKey(tag));
        if (group == nullptr || group->settled) continue;
        const auto entry = entryOf(*group);
        if (entry->damaged) continue;
        group->winner = static_cast<std::size_t>(entry - entries_.begin());
        group->settled = true;
    }
    return true;
}

// Where no input is sound, the first one counts.
bool MergeRepeats::chooseSound() {
    std::vector<bool> repeats(inputs_.size());
    for (const Entry& entry : entries_)
        repeats[entry.input] = true;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        if (repeats[i] && !checkInput(static_cast<std::uint32_t>(i))) return false;
    }
    return true;
}

bool MergeRepeats::leaveOut() {
    std::vector<std::vector<BucketKey>> keys(inputs_.size());
    for (const Group& group : groups_) {
        for (std::size_t i = group.first; i < group.end; ++i) {
            if (i != group.winner) keys[entries_[i].input].push_back(entries_[i].key);
        }
    }
    std::vector<INFOTAG> pixels;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        if (keys[i].empty()) continue;
        inputs_[i].leaveOut(std::move(keys[i]));
        PFileStream stream;
        if (!list(i, stream, pixels)) return false;
        inputs_[i].recount(pixels);
    }
    return true;
}

bool MergeRepeats::settle() {
    if (!collect()) return false;
    group();
    return (options_.overlap != MergeOverlap::kRefuse || chooseSound()) && leaveOut();
}

std::vector<MergeRepeat> MergeRepeats::repeats() const {
    std::map<std::pair<std::uint32_t, std::uint32_t>, MergeRepeat> pairs;
    for (const Group& group : groups_) {
        for (std::size_t i = group.first; i < group.end; ++i) {
            if (i == group.winner) continue;
            const std::uint32_t loser = entries_[i].input, winner = entries_[group.winner].input;
            MergeRepeat& repeat = pairs[{loser, winner}];
            repeat.file = inputs_[loser].name();
            repeat.takenFrom = inputs_[winner].name();
            ++repeat.tags;
            repeat.damaged += entries_[i].damaged ? 1 : 0;
        }
    }
    std::vector<MergeRepeat> list;
    for (auto& [files, repeat] : pairs)
        list.push_back(std::move(repeat));
    return list;
}

}  // namespace v1
}  // namespace MUtils
