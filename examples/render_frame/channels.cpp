#include "examples/render_frame/channels.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace render_frame {

namespace {

template <auto Member>
const void* valuesOf(const BucketPixels& pixels) {
    return (pixels.*Member).data();
}

// Aliases other than the main colour's, alpha's and depth's are this renderer's own numbers.
constexpr ChannelRow kChannels[] = {
    {"color", RCT_COLOR, RCA_COLOR, 12, valuesOf<&BucketPixels::color>},
    {"alpha", RCT_COLOR, RCA_ALPHA, 12, valuesOf<&BucketPixels::alpha>},
    {"depth", RCT_FLOAT, RCA_DEPTH, 4, valuesOf<&BucketPixels::depth>},
    {"diffuse", RCT_COLOR, 2, 12, valuesOf<&BucketPixels::diffuse>},
    {"reflection", RCT_COLOR, 3, 12, valuesOf<&BucketPixels::reflection>},
    {"normals", RCT_VECTOR, 4, 12, valuesOf<&BucketPixels::normals>},
    {"motion", RCT_FLOAT2, 5, 8, valuesOf<&BucketPixels::motion>},
    {"object_id", RCT_INT, 6, 4, valuesOf<&BucketPixels::objectId>},
    {"crypto", RCT_FLOAT4, 7, 16, valuesOf<&BucketPixels::crypto>},
    {"coverage", RCT_FLOAT, 8, 4, valuesOf<&BucketPixels::coverage>},
    {"lights.sun", RCT_COLOR, 9, 12, valuesOf<&BucketPixels::sunLight>},
};

static_assert(std::size(kChannels) <= 32, "a bit of ChannelMask for each");

}  // namespace

std::vector<MUtils::RIF_CHANNEL> channelRecords() {
    std::vector<MUtils::RIF_CHANNEL> records;
    for (const ChannelRow& row : kChannels)
        records.push_back(
            MUtils::makeChannel(static_cast<int>(records.size()), row.type, row.alias, 0, row.name));
    return records;
}

FrameChannels::FrameChannels(int maxPixels, int blockBytes)
    : descriptions_(std::begin(kChannels), std::end(kChannels)) {
    for (size_t i = 0; i < descriptions_.size(); ++i) {
        const ChannelRow& row = kChannels[i];
        list_.Add(&descriptions_[i]);
        tables_.push_back(std::make_unique<MBVTable>(row.valueSize, 0));
        tables_.back()->initNotResizable(maxPixels, row.valueSize, blockBytes);

        RegionChannel channel;
        channel.type = row.type;
        std::snprintf(channel.name, sizeof channel.name, "%s", row.name);
        channel.alias = static_cast<RegionChannelAlias>(row.alias);
        channel.data = tables_.back().get();
        region_.channels.Add(channel);
    }
}

MRRegionData* FrameChannels::load(const BucketPixels& pixels, ChannelMask wanted) {
    const Bucket& bucket = pixels.bucket;
    region_.x0 = bucket.x0;
    region_.x1 = bucket.x1;
    region_.y0 = bucket.y0;
    region_.y1 = bucket.y1;
    region_.width = bucket.width();
    region_.height = bucket.height();
    // A clipped bucket fills the start of the tables; the writer takes width * height values from there.
    for (size_t i = 0; i < tables_.size(); ++i) {
        const bool isWanted = (wanted >> i & 1) != 0;
        region_.channels[static_cast<int>(i)].data = isWanted ? tables_[i].get() : nullptr;
        if (isWanted) tables_[i]->loadFromBuffer(kChannels[i].values(pixels), bucket.pixelCount());
    }
    return &region_;
}

// One block for each channel, so that rows are never split.
WholeFrame::WholeFrame(int width, int height) : channels_(width * height, INT_MAX) {
    region()->width = region()->x1 = width;
    region()->height = region()->y1 = height;
    for (const auto& table : channels_.tables_)
        std::memset(table->item(0), 0,
                    static_cast<size_t>(table->count) * static_cast<size_t>(table->itemSize));
}

void WholeFrame::add(const BucketPixels& pixels) {
    const Bucket& bucket = pixels.bucket;
    for (size_t i = 0; i < channels_.tables_.size(); ++i) {
        MBVTable& table = *channels_.tables_[i];
        const size_t rowBytes = static_cast<size_t>(bucket.width()) * static_cast<size_t>(table.itemSize);
        const auto* row = static_cast<const unsigned char*>(kChannels[i].values(pixels));
        for (int y = bucket.y0; y < bucket.y1; ++y, row += rowBytes)
            std::memcpy(table.item(y * region()->width + bucket.x0), row, rowBytes);
    }
}

}  // namespace render_frame
