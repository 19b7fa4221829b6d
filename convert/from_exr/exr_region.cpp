#include "convert/from_exr/exr_region.h"

#include <algorithm>
#include <cstdio>

#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

namespace {

int valueSize(const GroupedChannel& channel) {
    return MUtils::findChannelKind(channel.type)->valueSize;
}

}  // namespace

double ExrRegion::bytesNeeded(const std::vector<GroupedChannel>& channels, std::int64_t maxPixels) {
    constexpr int kCopies = 4;  // values_ here; raw, gathered and compressed in the writer
    int largest = 0;
    double bytesOfPixel = 0;
    for (const GroupedChannel& channel : channels) {
        largest = std::max(largest, valueSize(channel));
        bytesOfPixel += valueSize(channel);
    }
    return static_cast<double>(maxPixels) * (bytesOfPixel + kCopies * largest);
}

ExrRegion::ExrRegion(const std::vector<GroupedChannel>& channels, int maxPixels)
    : channels_(channels), descriptions_(channels.begin(), channels.end()) {
    for (GroupedDescription& description : descriptions_)
        list_.Add(&description);
    for (const GroupedChannel& channel : channels) {
        tables_.push_back(std::make_unique<MBVTable>(valueSize(channel), 0));
        tables_.back()->initNotResizable(maxPixels, valueSize(channel), MUtils::kMaxBlockBytes);
        RegionChannel entry;
        entry.type = channel.type;
        entry.alias = channel.alias;
        std::snprintf(entry.name, sizeof entry.name, "%s", channel.name.c_str());
        region_.channels.Add(entry);
    }
}

MRRegionData* ExrRegion::load(const ExrBands& bands, const std::vector<PixelBox>& areas,
                              const PixelBox& area) {
    setBox(area);
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const GroupedChannel& channel = channels_[i];
        const auto part = static_cast<std::size_t>(channel.part);
        const bool present = areas[part] == area;
        if (present) loadChannel(*bands[part], channel, area, *tables_[i]);
        region_.channels[static_cast<int>(i)].data = present ? tables_[i].get() : nullptr;
    }
    return &region_;
}

MRRegionData* ExrRegion::announce(const std::vector<PixelBox>& windows, const PixelBox& window) {
    setBox({window.x0, window.y0, window.x1, window.y0});
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const bool stated = windows[static_cast<std::size_t>(channels_[i].part)] == window;
        region_.channels[static_cast<int>(i)].data = stated ? tables_[i].get() : nullptr;
    }
    return &region_;
}

void ExrRegion::setBox(const PixelBox& box) {
    region_.x0 = static_cast<int>(box.x0);
    region_.y0 = static_cast<int>(box.y0);
    region_.x1 = static_cast<int>(box.x1);
    region_.y1 = static_cast<int>(box.y1);
    region_.width = static_cast<int>(box.width());
    region_.height = static_cast<int>(box.height());
}

// The values of a clipped bucket are at the start of the table, where the writer reads width * height of
// them.
void ExrRegion::loadChannel(const ExrBand& band, const GroupedChannel& channel, const PixelBox& area,
                            MBVTable& table) {
    const auto components = static_cast<std::size_t>(channel.components);
    const auto width = static_cast<std::size_t>(area.width());
    values_.resize(static_cast<std::size_t>(area.area()) * components);
    for (std::size_t c = 0; c < components; ++c) {
        std::uint32_t* out = values_.data() + c;
        for (std::int64_t y = area.y0; y < area.y1; ++y) {
            const std::uint32_t* in = band.at(channel.sources[c], area.x0, y);
            for (std::size_t x = 0; x < width; ++x, out += components)
                *out = in[x];
        }
    }
    table.loadFromBuffer(values_.data(), static_cast<int>(area.area()));
}

}  // namespace v1
}  // namespace MUtils
