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

#include "exr/output_stream.h"

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
    for (MUtils::RegionChannelCallback* channel : *channels) {
        if (!isWrittenToExr(channel)) continue;
        const auto* rule =
            findExrChannelRule(channel->getType(), channel->getAlias(), severalDepthChannels != 0);
        if (rule == nullptr) continue;
        const MUtils::CharString name = channel->getName();
        insertExrChannels(built[0].channels(), *rule,
                          exrChannelNames(*rule, name.c_str(), EmptyBase::kDotAndLabel), pixelType);
    }
    header = std::move(built);
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

ErrorCode ExrTiledFileData::writeRegion(MUtils::MRRegionData* region) {
    if (bucketWidth == 0 || bucketHeight == 0) return {};
    if (file == nullptr) return ErrorCode("writeRegion", -1, "The OpenExr file could not be created");
    const MUtils::MRRegionData& r = *region;
    const int tx = static_cast<int>((std::int64_t{r.x0} - renderRegion.left) / bucketWidth);
    const int ty = static_cast<int>((std::int64_t{r.y0} - renderRegion.top) / bucketHeight);
    const Imath::Box2i tile = file->dataWindowForTile(tx, ty, 0);
    const int x1 = tile.max.x + 1;
    const int y1 = tile.max.y + 1;
    const bool sameBox = tile.min.x == r.x0 && tile.min.y == r.y0 && x1 == r.x1 && y1 == r.y1;
    if (!sameBox || r.width != x1 - tile.min.x || r.height != y1 - tile.min.y) {
        return ErrorCode("writeRegion", -1,
                         "Region data ((%i, %i)-(%i, %i)) and tile size ((%i, %i)-(%i, %i)) do not match",
                         r.x0, r.y0, r.x1, r.y1, tile.min.x, tile.min.y, x1, y1);
    }
    // The library refuses a tile that it has, but then hangs at the next one.
    const std::size_t index = static_cast<std::size_t>(ty) * static_cast<std::size_t>(file->numXTiles()) +
                              static_cast<std::size_t>(tx);
    if (written_[index]) throw std::invalid_argument("The tile is already written");
    Imf::FrameBuffer frameBuffer;
    setupFrameBuffer(frameBuffer, *region);
    file->setFrameBuffer(frameBuffer);
    writePixels([&] { file->writeTile(tx, ty, 0); });
    written_[index] = true;
    return {};
}

void ExrTiledFileData::setupFrameBuffer(Imf::FrameBuffer& frameBuffer, MUtils::MRRegionData& region) {
    std::vector<const MBVTable*> halved;
    for (int i = 0; i < region.channels.Count(); ++i) {
        const MUtils::RegionChannel& channel = region.channels[i];
        MBVTable* data = soundData(channel, region.width, region.height);
        if (data == nullptr) continue;
        const int count = region.width * region.height;
        const ExrChannelRule& rule =
            *findExrChannelRule(channel.type, channel.alias, severalDepthChannels != 0);
        // Two channels may share their values, which must be halved once.
        if (!rule.isInteger() && std::find(halved.begin(), halved.end(), data) == halved.end()) {
            halveValues(*data, rule, count);
            halved.push_back(data);
        }
        const std::string name(channel.name, strnlen(channel.name, sizeof channel.name));
        const ValueGrid grid = {contiguousValues(*data, i, count), region.x0, region.y0, region.width};
        insertSlices(frameBuffer, rule, exrChannelNames(rule, name.c_str(), EmptyBase::kDotAndLabel),
                     pixelType, grid);
    }
}

void ExrTiledFileData::halveValues(MBVTable& data, const ExrChannelRule& rule, int count) {
    for (int first = 0; first < count; first += data.itemsPerBlock) {
        const int values = std::min(count - first, data.itemsPerBlock);
        convertToHalf(reinterpret_cast<float*>(data.item(first)), values * rule.components);
    }
}

// The first `count` values in one piece: where they stand, or, when they reach into further blocks, copied to
// the channel's staging buffer.
const unsigned char* ExrTiledFileData::contiguousValues(const MBVTable& data, int channel, int count) {
    if (count <= data.itemsPerBlock) return data.item(0);
    if (channel >= stagingBuffers.Count()) stagingBuffers.setCount(channel + 1);
    const auto bytes = static_cast<std::size_t>(count) * static_cast<std::size_t>(data.itemSize);
    unsigned char* staged = stagingBuffers[channel].reserve(bytes);
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
