#pragma once

#include <ImfForward.h>
#include <ImfPixelType.h>

#include <cstdint>

#include "exr/channel_map.h"
#include "support/error_code.h"

namespace MUtils {
inline namespace v1 {

// One channel's values in memory: rows of `rowLength` values, the first of which is the pixel (x0, y0).
struct ValueGrid {
    const unsigned char* values;
    int x0;
    int y0;
    int rowLength;
};

// Describes the values to OpenEXR: one slice for each EXR channel, addressed by image coordinates. Integers
// are UINT, all others `floatType`; a half value is in the first two bytes of its component's four.
void insertSlices(Imf::FrameBuffer& frameBuffer, const ExrChannelRule& rule, const ExrNames& names,
                  Imf::PixelType floatType, const ValueGrid& grid);

// Moves every slice to image rows that lie `rows` further up.
void moveSlices(Imf::FrameBuffer& frameBuffer, std::int64_t rows);

// True when `data` is there and holds width x height values of `valueBytes`.
bool holdsValues(const MBVTable* data, int width, int height, int valueBytes);

// False for a channel that EXR files take nothing from: it is flagged, has no buffer, or is of a type without
// EXR channels. What the file expects of it reads 0.
bool isGiven(const RegionChannel& channel);

// The error of writeRegion() when channel `index` of a region does not hold width x height values of the type
// that was announced; empty when it does.
ErrorCode checkValues(const RegionChannel& channel, int index, int announcedType, int width, int height);

}  // namespace v1
}  // namespace MUtils
