#include "exr/slices.h"

#include <ImfFrameBuffer.h>

#include <cstddef>

namespace MUtils {
inline namespace v1 {

namespace {

// A slice's base is the address that pixel (0, 0) would have. It mostly lies outside the buffer, where
// pointers must not go: it is computed as a number.
char* movedBase(const void* base, std::int64_t bytes) {
    return reinterpret_cast<char*>(reinterpret_cast<std::intptr_t>(base) + static_cast<std::intptr_t>(bytes));
}

}  // namespace

void insertSlices(Imf::FrameBuffer& frameBuffer, const ExrChannelRule& rule, const ExrNames& names,
                  Imf::PixelType floatType, const ValueGrid& grid) {
    const std::int64_t valueBytes = rule.valueBytes();
    const std::int64_t rowBytes = grid.rowLength * valueBytes;
    const std::int64_t toOrigin = grid.y0 * rowBytes + grid.x0 * valueBytes;
    for (int i = 0; i < rule.channels; ++i) {
        const Imf::Slice slice(rule.pixelType(floatType), movedBase(grid.values, i * 4 - toOrigin),
                               static_cast<std::size_t>(valueBytes), static_cast<std::size_t>(rowBytes));
        frameBuffer.insert(names[static_cast<std::size_t>(i)].c_str(), slice);
    }
}

void moveSlices(Imf::FrameBuffer& frameBuffer, std::int64_t rows) {
    for (auto it = frameBuffer.begin(); it != frameBuffer.end(); ++it) {
        Imf::Slice& slice = it.slice();
        slice.base = movedBase(slice.base, rows * static_cast<std::int64_t>(slice.yStride));
    }
}

bool holdsValues(const MBVTable* data, int width, int height, int valueBytes) {
    return data != nullptr && width > 0 && height > 0 && std::int64_t{width} * height <= data->count &&
           data->itemSize == valueBytes;
}

bool isGiven(const RegionChannel& channel) {
    return channel.data != nullptr && (channel.flags & kChannelSkippedInExr) == 0 &&
           findExrChannelRule(channel.type, RCA_NONE, false) != nullptr;
}

ErrorCode checkValues(const RegionChannel& channel, int index, int announcedType, int width, int height) {
    constexpr const char* kName = "writeRegion";
    const int bytes = findExrChannelRule(announcedType, RCA_NONE, false)->valueBytes();
    const std::int64_t count = std::int64_t{width} * height;
    if (channel.type != announcedType) {
        return ErrorCode(kName, -1, "Region channel %i (%.64s) is of type %i, announced was %i", index,
                         channel.name, channel.type, announcedType);
    }
    if (channel.data->itemSize != bytes) {
        return ErrorCode(kName, -1, "Region channel %i (%.64s) has values of %i bytes, its type has %i",
                         index, channel.name, channel.data->itemSize, bytes);
    }
    if (channel.data->count < count) {
        return ErrorCode(kName, -1, "Region channel %i (%.64s) has %i values, its region %lli", index,
                         channel.name, channel.data->count, static_cast<long long>(count));
    }
    return {};
}

}  // namespace v1
}  // namespace MUtils
