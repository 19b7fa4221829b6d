#include "python/native/output_region.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace rawimage_python {

namespace {

constexpr int kBlockBytes = 1 << 25;

MUtils::RegionChannel regionChannel(const MUtils::FrameChannel& of) {
    MUtils::RegionChannel channel;
    channel.type = of.type;
    channel.alias = of.alias;
    channel.flags = of.flags;
    std::snprintf(channel.name, sizeof channel.name, "%s", of.name.c_str());
    return channel;
}

}  // namespace

OutputRegion::OutputRegion(const std::vector<MUtils::FrameChannel>& frameChannels, int x, int y,
                           const std::vector<std::pair<int, py::array>>& values) {
    for (const MUtils::FrameChannel& channel : frameChannels)
        channels.Add(regionChannel(channel));
    for (const auto& [place, array] : values) {
        const MUtils::FrameChannel& channel = frameChannels.at(static_cast<std::size_t>(place));
        const std::string what = "channel " + channel.name;
        const char* const type = dtypeNameOf(channel.isInteger());
        if (!hasType(array, type)) refuseType(array, what, type);
        if (array.ndim() < 2)
            throw py::value_error(what + ": expected the shape (height, width, " +
                                  std::to_string(channel.components()) + "), not " + shapeText(array));
        if (sources_.empty()) {
            if (array.shape(0) > INT_MAX - (y > 0 ? y : 0) || array.shape(1) > INT_MAX - (x > 0 ? x : 0))
                throw py::value_error(what + ": the bucket reaches beyond the largest coordinate");
            height = static_cast<int>(array.shape(0));
            width = static_cast<int>(array.shape(1));
        }
        const ArrayPlane plane = planeOf(array, what, width, height, channel.components());
        if (width == 0 || height == 0) throw py::value_error(what + ": a bucket has at least one pixel");
        if (std::int64_t{width} * height > INT_MAX / channel.valueBytes())
            throw py::value_error(what + ": a bucket has less than 2 GiB of values");
        tables_.push_back(std::make_unique<MBVTable>(channel.valueBytes(), 0));
        sources_.push_back({plane, channel.components(), tables_.back().get()});
        channels[place].data = tables_.back().get();
    }
    x0 = x;
    y0 = y;
    x1 = x + width;
    y1 = y + height;
}

void OutputRegion::load() {
    for (const Source& source : sources_) {
        source.table->initNotResizable(width * height, source.components * 4, kBlockBytes);
        loadOne(source);
    }
}

void OutputRegion::loadOne(const Source& source) const {
    const ArrayPlane& plane = source.plane;
    const auto size = static_cast<std::size_t>(source.components) * 4;
    const bool touching = source.components == 1 || plane.component == 4;
    int index = 0;
    for (int y = 0; y < height; ++y) {
        const unsigned char* from = plane.data + y * plane.row;
        for (int x = 0; x < width; ++x, from += plane.pixel, ++index) {
            unsigned char* const to = source.table->item(index);
            if (touching) {
                std::memcpy(to, from, size);
            } else {
                for (int i = 0; i < source.components; ++i)
                    std::memcpy(to + 4 * i, from + i * plane.component, 4);
            }
        }
    }
}

}  // namespace rawimage_python
