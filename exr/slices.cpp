#include "exr/slices.h"

#include <ImfFrameBuffer.h>

#include <cstddef>

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

MBVTable* soundData(const MUtils::RegionChannel& channel, int width, int height) {
    const ExrChannelRule* rule = findExrChannelRule(channel.type, RCA_NONE, false);
    if (rule == nullptr || (channel.flags & MUtils::kChannelSkippedInExr) != 0) return nullptr;
    return holdsValues(channel.data, width, height, rule->valueBytes()) ? channel.data : nullptr;
}
