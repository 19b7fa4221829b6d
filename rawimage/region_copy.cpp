#include "rawimage/region_copy.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <utility>

#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Channels begin at multiples of it.
constexpr std::int64_t kAlignment = 64;

// The values of a channel that are copied: at least one where there is one, so that the writers find the same
// fault in a region without pixels.
int valuesOf(const MBVTable& data, const MRRegionData& region) {
    if (data.itemSize <= 0) return 0;
    const std::int64_t pixels = std::int64_t{region.width} * region.height;
    const std::int64_t most = std::min(data.capacity, INT_MAX / data.itemSize);
    return static_cast<int>(std::clamp<std::int64_t>(pixels, std::min<std::int64_t>(1, most), most));
}

std::int64_t alignedBytes(const MBVTable& data, int values) {
    return (std::int64_t{values} * data.itemSize + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace

RegionCopy::RegionCopy(std::int64_t bytes) {
    reserve(bytes_, static_cast<std::size_t>(bytes));
}

std::int64_t RegionCopy::bytesOf(const MRRegionData& region) {
    std::int64_t bytes = 0;
    for (const RegionChannel& channel : region.channels) {
        if (channel.data != nullptr) bytes += alignedBytes(*channel.data, valuesOf(*channel.data, region));
    }
    return bytes;
}

void RegionCopy::assign(const MRRegionData& region) {
    x0 = region.x0;
    x1 = region.x1;
    y0 = region.y0;
    y1 = region.y1;
    width = region.width;
    height = region.height;
    numChannels_ = region.numChannels();
    channels.setCount(region.channels.Count());
    while (views_.size() < static_cast<std::size_t>(channels.Count()))
        views_.push_back(std::make_unique<TableView>());
    unsigned char* bytes = bytes_.data();
    for (int i = 0; i < channels.Count(); ++i) {
        channels[i] = region.channels[i];
        const MBVTable* data = channels[i].data;
        if (data == nullptr) continue;
        const int values = valuesOf(*data, region);
        TableView& view = *views_[static_cast<std::size_t>(i)];
        view.show(bytes, values, data->itemSize);
        data->storeToBuffer(bytes, 0, values);
        // Values that are there and do not count are missing in the copy, too.
        view.count = std::min(view.count, data->count);
        channels[i].data = &view;
        bytes += alignedBytes(*data, values);
    }
}

std::unique_ptr<RegionCopy> RegionCopyPool::take(std::int64_t bytes, std::int64_t limit) {
    std::unique_ptr<RegionCopy> copy;
    // Memory that is much larger would be missing elsewhere.
    const std::int64_t most = bytes + bytes / 4;
    const auto fitting = std::find_if(kept_.rbegin(), kept_.rend(), [bytes, most](const Kept& kept) {
        return kept.capacity >= bytes && kept.capacity <= most;
    });
    if (fitting != kept_.rend()) {
        copy = std::move(fitting->copy);
        keptBytes_ -= copy->capacity();
        kept_.erase(std::next(fitting).base());
    } else {
        while (!kept_.empty() && givenBytes_ + keptBytes_ + bytes > limit) {
            keptBytes_ -= kept_.front().capacity;
            kept_.erase(kept_.begin());
        }
        copy = std::make_unique<RegionCopy>(bytes);
    }
    givenBytes_ += copy->capacity();
    return copy;
}

void RegionCopyPool::giveBack(std::unique_ptr<RegionCopy> copy) {
    const std::int64_t capacity = copy->capacity();
    kept_.push_back({capacity, std::move(copy)});
    keptBytes_ += capacity;
    givenBytes_ -= capacity;
}

}  // namespace v1
}  // namespace MUtils
