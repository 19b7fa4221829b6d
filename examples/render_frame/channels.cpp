#include "examples/render_frame/channels.h"

#include <cstdio>
#include <iterator>

namespace render_frame {

namespace {

constexpr int kMaxBlockBytes = 1 << 25;

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

}  // namespace

FrameChannels::FrameChannels(int maxPixels) : descriptions_(std::begin(kChannels), std::end(kChannels)) {
    for (size_t i = 0; i < descriptions_.size(); ++i) {
        const ChannelRow& row = kChannels[i];
        list_.Add(&descriptions_[i]);
        tables_.push_back(std::make_unique<MBVTable>(row.valueSize, 0));
        tables_.back()->initNotResizable(maxPixels, row.valueSize, kMaxBlockBytes);

        RegionChannel channel;
        channel.type = row.type;
        std::snprintf(channel.name, sizeof channel.name, "%s", row.name);
        channel.alias = static_cast<RegionChannelAlias>(row.alias);
        channel.data = tables_.back().get();
        region_.channels.Add(channel);
    }
}

MRRegionData* FrameChannels::load(const BucketPixels& pixels) {
    const Bucket& bucket = pixels.bucket;
    region_.x0 = bucket.x0;
    region_.x1 = bucket.x1;
    region_.y0 = bucket.y0;
    region_.y1 = bucket.y1;
    region_.width = bucket.width();
    region_.height = bucket.height();
    // A clipped bucket fills the start of the tables; the writer takes width * height values from there.
    for (size_t i = 0; i < tables_.size(); ++i)
        tables_[i]->loadFromBuffer(kChannels[i].values(pixels), bucket.pixelCount());
    return &region_;
}

}  // namespace render_frame
