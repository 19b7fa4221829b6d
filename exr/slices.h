#pragma once

#include <ImfForward.h>
#include <ImfPixelType.h>

#include <cstdint>

#include "exr/channel_map.h"

// One channel's values in memory: rows of `rowLength` values, the first of which is the pixel (x0, y0).
struct ValueGrid {
    const unsigned char* values;
    int x0;
    int y0;
    int rowLength;
};

// Describes the values to OpenEXR: one slice for each EXR channel, addressed by image coordinates. Integers
// are UINT, all others `floatType`; a half value stands in the first two bytes of its component's four.
void insertSlices(Imf::FrameBuffer& frameBuffer, const ExrChannelRule& rule, const ExrNames& names,
                  Imf::PixelType floatType, const ValueGrid& grid);

// Makes every slice's memory stand for image rows that lie `rows` further up.
void moveSlices(Imf::FrameBuffer& frameBuffer, std::int64_t rows);

// True when `data` is there and holds width x height values of `valueBytes`.
bool holdsValues(const MBVTable* data, int width, int height, int valueBytes);

// The channel's buffer when it holds width x height values of its type, else null: such a channel, and one
// that EXR files skip, gets no slice, and its EXR channels read 0.
MBVTable* soundData(const MUtils::RegionChannel& channel, int width, int height);
