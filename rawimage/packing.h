#pragma once

#include <memory>
#include <vector>

#include "rawimage/region_packer.h"
#include "rawimage/writer.h"
#include "support/deflate.h"

// One channel on its way into a tag.
struct RIFile::Channel {
    const MBVTable* data = nullptr;
    int index = 0;
    RegionChannelType type = RCT_NONE;
    int x = 0, y = 0, width = 0, height = 0;
    int p6 = 0, p7 = 0;
    // The index of its order with the other threads, when they pack it.
    std::size_t order = 0;

    // Bytes of the values, -1 when a tag cannot hold as many or the type is unknown.
    std::int64_t bytes() const;
};

// What the writer packs channels with. The lists are those of the region that is being written, kept for the
// next one.
struct RIFile::Packing {
    MUtils::Deflater deflater;
    MUtils::CompressionSetting setting{MUtils::Compression::kSmall, MUtils::kCompressionLevel};
    int threads = 1;
    ThreadManager* manager = nullptr;
    std::unique_ptr<MUtils::RegionPacker> packer;
    std::vector<Channel> channels;
    std::vector<MUtils::RegionPacker::Order> orders;
};
