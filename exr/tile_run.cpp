#include "exr/tile_run.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "exr/channel_map.h"
#include "exr/slices.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Values that may be copied at a time; where tiles are large, so many for each thread, up to a second limit.
constexpr std::int64_t kRunBytes = 4 << 20;
constexpr int kTilesPerThread = 2;
constexpr std::int64_t kMostRunBytes = 256 << 20;

// True when a file takes values from the channel.
bool isUsed(const RegionChannel& channel, const MRRegionData& region) {
    if (!isGiven(channel)) return false;
    const int valueBytes = findExrChannelRule(channel.type, channel.alias, false)->valueBytes();
    return holdsValues(channel.data, region.width, region.height, valueBytes);
}

bool haveSameChannels(const MRRegionData& a, const MRRegionData& b) {
    return std::equal(a.channels.begin(), a.channels.end(), b.channels.begin(), b.channels.end(),
                      [&](const RegionChannel& one, const RegionChannel& other) {
                          return one.type == other.type && one.alias == other.alias &&
                                 one.flags == other.flags && isUsed(one, a) == isUsed(other, b) &&
                                 std::strncmp(one.name, other.name, sizeof one.name) == 0;
                      });
}

std::int64_t usedBytes(const MRRegionData& region) {
    std::int64_t bytes = 0;
    for (const RegionChannel& channel : region.channels) {
        if (isUsed(channel, region)) bytes += channel.data->itemSize;
    }
    return bytes * (region.x1 - region.x0) * (region.y1 - region.y0);
}

bool isNeighbour(const TileBox& run, const TileBox& tile) {
    const bool inRow = run.isRow() && tile.y0 == run.y0 && (tile.x0 == run.x1 + 1 || tile.x0 == run.x0 - 1);
    const bool inColumn =
        run.isColumn() && tile.x0 == run.x0 && (tile.y0 == run.y1 + 1 || tile.y0 == run.y0 - 1);
    return inRow || inColumn;
}

}  // namespace

void TileRun::start(MRRegionData& region, const TileBox& tile) {
    regions_.assign(1, &region);
    tiles_ = tile;
    bytes_ = usedBytes(region);
    MRRegionData& all = together_;
    all.x0 = region.x0;
    all.y0 = region.y0;
    all.x1 = region.x1;
    all.y1 = region.y1;
}

bool TileRun::add(MRRegionData& region, const TileBox& tile, int threads) {
    const std::int64_t bytes = usedBytes(region);
    const bool busy = size() >= kTilesPerThread * threads;
    const bool enough = bytes_ + bytes > (busy ? kRunBytes : kMostRunBytes);
    if (enough || !isNeighbour(tiles_, tile) || !haveSameChannels(*regions_.front(), region)) return false;
    regions_.push_back(&region);
    bytes_ += bytes;
    tiles_ = {std::min(tiles_.x0, tile.x0), std::min(tiles_.y0, tile.y0), std::max(tiles_.x1, tile.x1),
              std::max(tiles_.y1, tile.y1)};
    MRRegionData& all = together_;
    all.x0 = std::min(all.x0, region.x0);
    all.y0 = std::min(all.y0, region.y0);
    all.x1 = std::max(all.x1, region.x1);
    all.y1 = std::max(all.y1, region.y1);
    return true;
}

MRRegionData& TileRun::region() {
    if (size() == 1) return *regions_.front();
    together_.width = together_.x1 - together_.x0;
    together_.height = together_.y1 - together_.y0;
    const int channels = regions_.front()->channels.Count();
    together_.channels.setCount(channels);
    while (tables_.size() < static_cast<std::size_t>(channels)) {
        tables_.push_back(std::make_unique<TableView>());
        values_.emplace_back();
    }
    for (int i = 0; i < channels; ++i)
        copyChannel(i);
    return together_;
}

void TileRun::copyChannel(int index) {
    RegionChannel& channel = together_.channels[index];
    channel = regions_.front()->channels[index];
    if (!isUsed(channel, *regions_.front())) {
        channel.data = nullptr;
        return;
    }
    const int valueSize = channel.data->itemSize;
    const int values = together_.width * together_.height;
    ByteBuffer& buffer = values_[static_cast<std::size_t>(index)];
    TableView& table = *tables_[static_cast<std::size_t>(index)];
    table.show(reserve(buffer, static_cast<std::size_t>(values) * static_cast<std::size_t>(valueSize)),
               values, valueSize);
    channel.data = &table;
    for (const MRRegionData* from : regions_) {
        for (int y = from->y0; y < from->y1; ++y) {
            unsigned char* to = table.item((y - together_.y0) * together_.width + from->x0 - together_.x0);
            from->channels[index].data->storeToBuffer(to, (y - from->y0) * from->width, from->x1 - from->x0);
        }
    }
}

}  // namespace v1
}  // namespace MUtils
