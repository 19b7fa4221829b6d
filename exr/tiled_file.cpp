#include "exr/tiled_file.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfThreading.h>
#include <ImfTileDescription.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "exr/guarded.h"
#include "exr/output_stream.h"
#include "support/scratch_buffer.h"

using namespace MUtils;

namespace {

std::string nameOf(const MUtils::RegionChannel& channel) {
    return {channel.name, strnlen(channel.name, sizeof channel.name)};
}

}  // namespace

ExrTiledFileData::~ExrTiledFileData() {
    (void)ExrTiledFileData::close();
}

ErrorCode ExrTiledFileData::setChannels(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) {
    if (ErrorCode error = checkChannels(channels); !error.empty()) return error;
    header.reset();
    std::unique_ptr<Imf::Header[]> built(new Imf::Header[1]);
    built[0] = makeHeader(takeDataWindow());
    severalDepthChannels = hasSeveralDepthChannels(*channels) ? 1 : 0;
    stagingBuffers.freeData();
    stagingBuffers.setCount(channels->Count());
    announced_.clear();
    for (MUtils::RegionChannelCallback* channel : *channels) {
        if (!isWrittenToExr(channel)) continue;
        const RegionChannelType type = channel->getType();
        const RegionChannelAlias alias = channel->getAlias();
        const auto* rule = findExrChannelRule(type, alias, severalDepthChannels != 0);
        if (rule == nullptr) continue;
        const MUtils::CharString name = channel->getName();
        announced_.push_back({name, rule->type});
        insertExrChannels(built[0].channels(), *rule,
                          exrChannelNames(*rule, name.c_str(), EmptyBase::kDotAndLabel), pixelType);
    }
    header = std::move(built);
    editHeader(0);
    return {};
}

// Without a render region the whole image is one; it keeps its mark -1.
Imath::Box2i ExrTiledFileData::takeDataWindow() {
    if (renderRegion.kind == -1) renderRegion = {-1, 0, 0, width, height};
    const RIRegionInfo& r = renderRegion;
    return {{r.left, r.top}, {lastPixel(r.left, r.width), lastPixel(r.top, r.height)}};
}

ErrorCode ExrTiledFileData::create() {
    if (fileCreated != 0) return {};
    if (variableBucketSize != 0)
        return ErrorCode("create", -1, "Tiled OpenExr does not support variable bucket size");
    if (header == nullptr) return ErrorCode("create", -1, "Header not created yet");
    return openFile("create", [this](ExrOutputStream& stream) {
        header[0].setTileDescription(Imf::TileDescription(static_cast<unsigned>(bucketWidth),
                                                          static_cast<unsigned>(bucketHeight), Imf::ONE_LEVEL,
                                                          Imf::ROUND_DOWN));
        auto opened = std::make_unique<Imf::TiledOutputFile>(stream, header[0], Imf::globalThreadCount());
        const auto columns = static_cast<std::size_t>(opened->numXTiles());
        written_.assign(columns * static_cast<std::size_t>(opened->numYTiles()), false);
        file = std::move(opened);
    });
}

// The tile that a region beginning at (x, y) has.
TileBox ExrTiledFileData::tileAt(int x, int y) const {
    const int tx = static_cast<int>((std::int64_t{x} - renderRegion.left) / bucketWidth);
    const int ty = static_cast<int>((std::int64_t{y} - renderRegion.top) / bucketHeight);
    return {tx, ty, tx, ty};
}

std::size_t ExrTiledFileData::tileIndex(int tx, int ty) const {
    return static_cast<std::size_t>(ty) * static_cast<std::size_t>(file->numXTiles()) +
           static_cast<std::size_t>(tx);
}

ErrorCode ExrTiledFileData::writeRegion(MUtils::MRRegionData* region) {
    if (bucketWidth == 0 || bucketHeight == 0) return {};
    const TileBox tile = tileAt(region->x0, region->y0);
    if (ErrorCode error = checkRegion(*region, tile); !error.empty()) return error;
    writeChecked(*region, tile);
    return {};
}

ErrorCode ExrTiledFileData::writeTiles(MUtils::MRRegionData* region) {
    if (bucketWidth == 0 || bucketHeight == 0) return {};
    const TileBox first = tileAt(region->x0, region->y0);
    const TileBox last = tileAt(lastPixel(region->x1, 0), lastPixel(region->y1, 0));
    const TileBox tiles = {first.x0, first.y0, last.x0, last.y0};
    if (ErrorCode error = checkRegion(*region, tiles); !error.empty()) return error;
    writeChecked(*region, tiles);
    return {};
}

// A region that cannot be written ends the run before it; the next call reports why.
ErrorCode ExrTiledFileData::writeNext(RegionFeed& feed, RegionFeed::Call& call, bool& more) {
    const int threads = Imf::globalThreadCount();
    if (threads < 2 || bucketWidth == 0 || bucketHeight == 0)
        return ExrFileDataBase::writeNext(feed, call, more);
    const TileBox first = tileAt(call.region->x0, call.region->y0);
    if (ErrorCode error = checkRegion(*call.region, first); !error.empty()) return error;
    run_.start(*call.region, first);
    for (more = feed.next(false, call); more && call.region != nullptr; more = feed.next(false, call)) {
        const TileBox tile = tileAt(call.region->x0, call.region->y0);
        const ErrorCode error = guarded("", "", [&] { return checkRegion(*call.region, tile); });
        if (!error.empty() || !run_.add(*call.region, tile, threads)) break;
    }
    writeChecked(run_.region(), run_.tiles());
    for (int i = 0; i < run_.size(); ++i)
        feed.written();
    if (!more) more = feed.next(true, call);
    return {};
}

// Everything that must be right before pixels are touched.
ErrorCode ExrTiledFileData::checkRegion(const MUtils::MRRegionData& r, const TileBox& tiles) const {
    if (file == nullptr) return ErrorCode("writeRegion", -1, "The OpenExr file could not be created");
    Imath::Box2i box = file->dataWindowForTile(tiles.x0, tiles.y0, 0);
    box.extendBy(file->dataWindowForTile(tiles.x1, tiles.y1, 0));
    box.min -= Imath::V2i(originX, originY);
    box.max -= Imath::V2i(originX, originY);
    const int x1 = box.max.x + 1;
    const int y1 = box.max.y + 1;
    if (box.min.x != r.x0 || box.min.y != r.y0 || x1 != r.x1 || y1 != r.y1) {
        return ErrorCode("writeRegion", -1,
                         "Region data ((%i, %i)-(%i, %i)) and tile size ((%i, %i)-(%i, %i)) do not match",
                         r.x0, r.y0, r.x1, r.y1, box.min.x, box.min.y, x1, y1);
    }
    // Rows may be longer than the box, as those of a larger buffer are.
    if (r.width < x1 - r.x0 || r.height < y1 - r.y0) {
        return ErrorCode("writeRegion", -1,
                         "Region data of %i x %i pixels is too small for its box of %i x %i", r.width,
                         r.height, x1 - r.x0, y1 - r.y0);
    }
    if (ErrorCode error = checkChannelsOf(r); !error.empty()) return error;
    // The library refuses a tile that it has, but then hangs at the next one.
    for (int ty = tiles.y0; ty <= tiles.y1; ++ty) {
        for (int tx = tiles.x0; tx <= tiles.x1; ++tx) {
            if (written_[tileIndex(tx, ty)]) throw std::invalid_argument("The tile is already written");
        }
    }
    return {};
}

void ExrTiledFileData::writeChecked(MUtils::MRRegionData& region, const TileBox& tiles) {
    Imf::FrameBuffer frameBuffer;
    setupFrameBuffer(frameBuffer, region);
    file->setFrameBuffer(frameBuffer);
    writePixels([&] { file->writeTiles(tiles.x0, tiles.x1, tiles.y0, tiles.y1, 0); });
    for (int ty = tiles.y0; ty <= tiles.y1; ++ty) {
        for (int tx = tiles.x0; tx <= tiles.x1; ++tx)
            written_[tileIndex(tx, ty)] = true;
    }
}

// A channel that would be black although the region has it is an error, and the region is not touched.
// Channels that the file does not have pass by.
ErrorCode ExrTiledFileData::checkChannelsOf(const MUtils::MRRegionData& region) const {
    for (int i = 0; i < region.channels.Count(); ++i) {
        const MUtils::RegionChannel& channel = region.channels[i];
        const int type = isGiven(channel) ? wantedType(channel, region) : RCT_NONE;
        if (type == RCT_NONE) continue;
        if (ErrorCode error = checkValues(channel, i, type, region.width, region.height); !error.empty())
            return error;
    }
    return {};
}

// What a channel of the region must be: of its own type when it was announced so, or when EXR channels of the
// file come of it all the same, as names do not decide for the main channels; else what was announced by its
// name, unless another channel of the region is that one. RCT_NONE when the file takes nothing from it.
int ExrTiledFileData::wantedType(const MUtils::RegionChannel& channel,
                                 const MUtils::MRRegionData& region) const {
    const std::string name = nameOf(channel);
    int missing = RCT_NONE;
    for (const Announced& announced : announced_) {
        if (name != announced.name.c_str()) continue;
        if (announced.type == channel.type) return channel.type;
        const bool given = std::any_of(
            region.channels.begin(), region.channels.end(), [&](const MUtils::RegionChannel& other) {
                return other.type == announced.type && isGiven(other) && nameOf(other) == name;
            });
        if (!given) missing = announced.type;
    }
    if (missing != RCT_NONE) return missing;
    const auto* rule = findExrChannelRule(channel.type, channel.alias, severalDepthChannels != 0);
    const Imf::ChannelList& list = file->header().channels();
    for (const MUtils::CharString& made : exrChannelNames(*rule, name.c_str(), EmptyBase::kDotAndLabel)) {
        if (!made.empty() && list.findChannel(made.c_str()) != nullptr) return channel.type;
    }
    return RCT_NONE;
}

void ExrTiledFileData::setupFrameBuffer(Imf::FrameBuffer& frameBuffer, MUtils::MRRegionData& region) {
    std::vector<const MBVTable*> halved;
    for (int i = 0; i < region.channels.Count(); ++i) {
        const MUtils::RegionChannel& channel = region.channels[i];
        if (!isGiven(channel)) continue;
        const ExrChannelRule& rule =
            *findExrChannelRule(channel.type, channel.alias, severalDepthChannels != 0);
        MBVTable* data = channel.data;
        if (!holdsValues(data, region.width, region.height, rule.valueBytes())) continue;
        const int count = region.width * region.height;
        // Two channels may share their values, which must be halved once.
        if (!rule.isInteger() && std::find(halved.begin(), halved.end(), data) == halved.end()) {
            halveValues(*data, rule, count);
            halved.push_back(data);
        }
        const std::string name = nameOf(channel);
        // Of the last row what lies in the box.
        const std::int64_t used =
            std::int64_t{region.width} * (region.y1 - region.y0 - 1) + region.x1 - region.x0;
        const int needed = static_cast<int>(std::clamp<std::int64_t>(used, 0, count));
        const ValueGrid grid = {contiguousValues(*data, i, needed), region.x0 + originX, region.y0 + originY,
                                region.width};
        insertSlices(frameBuffer, rule, exrChannelNames(rule, name.c_str(), EmptyBase::kDotAndLabel),
                     pixelType, grid);
    }
}

void ExrTiledFileData::halveValues(MBVTable& data, const ExrChannelRule& rule, int count) {
    for (int first = 0, values = 0; first < count; first += values) {
        values = std::min(count - first, data.itemsPerBlock);
        convertToHalf(reinterpret_cast<float*>(data.item(first)), values * rule.components);
    }
}

// The first `count` values in one piece: where they are, or, when they reach into further blocks, copied to
// the channel's staging buffer.
const unsigned char* ExrTiledFileData::contiguousValues(const MBVTable& data, int channel, int count) {
    if (count <= data.itemsPerBlock) return data.item(0);
    if (channel >= stagingBuffers.Count()) stagingBuffers.setCount(channel + 1);
    const auto bytes = static_cast<std::size_t>(count) * static_cast<std::size_t>(data.itemSize);
    unsigned char* staged = reserve(stagingBuffers[channel], bytes);
    data.storeToBuffer(staged, 0, count);
    return staged;
}

ErrorCode ExrTiledFileData::close() {
    ErrorCode result = closeFile([this] {
        file.reset();
        header.reset();
    });
    stagingBuffers.freeData();
    fileCreated = 0;
    return result;
}
