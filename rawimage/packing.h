#pragma once

#include <memory>
#include <vector>

#include "rawimage/region_packer.h"
#include "rawimage/writer.h"
#include "support/deflate.h"

// What the writer packs channels with.
struct RIFile::Packing {
    MUtils::Deflater deflater;
    MUtils::CompressionSetting setting{MUtils::Compression::kSmall, MUtils::kCompressionLevel};
    int threads = 1;
    ThreadManager* manager = nullptr;
    std::unique_ptr<MUtils::RegionPacker> packer;
    // Of the region that is being written, when this thread packs it; kept for the next one.
    std::vector<MUtils::ChannelTag> channels;
};
