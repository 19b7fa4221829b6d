#pragma once

#include <memory>
#include <vector>

#include "examples/render_frame/tracer.h"
#include "rawimage/format.h"
#include "rawimage/records.h"

namespace render_frame {

// One channel of the frame: its record in the file, and where a bucket keeps its values.
struct ChannelRow {
    const char* name;
    RegionChannelType type;
    int alias;
    int valueSize;  // bytes
    const void* (*values)(const BucketPixels& pixels);
};

// Bit i is channel i.
using ChannelMask = uint32_t;
constexpr ChannelMask kAllChannels = ~ChannelMask{0};

// The channels of the frame as a raw image lists them.
std::vector<MUtils::RIF_CHANNEL> channelRecords();

// The description of a channel as an output file asks for it.
class ChannelDescription final : public RegionChannelCallback {
  public:
    explicit ChannelDescription(const ChannelRow& row) : row_(row) {}

    RegionChannelType getType() override { return row_.type; }
    RegionChannelAlias getAlias() override { return static_cast<RegionChannelAlias>(row_.alias); }
    const char* getName() override { return row_.name; }
    int getFlags() override { return 0; }

  private:
    const ChannelRow& row_;
};

// The channels of the frame: the list of descriptions, and a region that carries one bucket after another in
// the same buffers.
class FrameChannels {
  public:
    static constexpr int kBlockBytes = 1 << 25;

    // Makes room for buckets of up to `maxPixels` pixels, in blocks of at most `blockBytes` bytes. Nothing is
    // allocated after that.
    explicit FrameChannels(int maxPixels, int blockBytes = kBlockBytes);
    FrameChannels(const FrameChannels&) = delete;
    FrameChannels& operator=(const FrameChannels&) = delete;

    MUtils::Table<RegionChannelCallback*, 100>* list() { return &list_; }

    // Copies a bucket's values and returns the region that holds them, valid until the next call. Channels
    // without a bit in `wanted` have no data there.
    MRRegionData* load(const BucketPixels& pixels, ChannelMask wanted = kAllChannels);

  private:
    friend class WholeFrame;

    std::vector<ChannelDescription> descriptions_;
    MUtils::Table<RegionChannelCallback*, 100> list_;  // points into descriptions_
    std::vector<std::unique_ptr<MBVTable>> tables_;
    MRRegionData region_;  // points to tables_
};

// The whole frame, put together bucket by bucket, for files that take it in one piece. Where no bucket has
// been yet, every channel is 0.
class WholeFrame {
  public:
    // A channel's values of all pixels stay below 2^31 bytes.
    WholeFrame(int width, int height);

    void add(const BucketPixels& pixels);

    MRRegionData* region() { return &channels_.region_; }

  private:
    FrameChannels channels_;
};

}  // namespace render_frame
