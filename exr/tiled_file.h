#pragma once

#include <ImfTiledOutputFile.h>

#include <memory>
#include <vector>

#include "exr/channel_map.h"
#include "exr/file_data.h"
#include "exr/slices.h"
#include "exr/tile_run.h"

// Tiled files of one part: every bucket is exactly one tile, of the size that the buckets were announced
// with. The first bucket opens the file.
class ExrTiledFileData : public ExrFileDataBase {
  public:
    ExrTiledFileData() = default;
    ~ExrTiledFileData() override;

    // Opens the file, once between two calls of close(), whether that works or not. Varying bucket sizes and
    // a missing header fail every time.
    ErrorCode create() override;
    ErrorCode close() override;
    // Builds the header: the render region is the data window. An empty channel name throws, and leaves no
    // header.
    ErrorCode setChannels(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) override;
    // The region's box is one tile; it may lie in longer and more rows. Throws what OpenEXR throws, also for
    // a region outside the grid of tiles and for a tile that is already written.
    ErrorCode writeRegion(MUtils::MRRegionData* region) override;
    // As writeRegion(), for a box of several whole tiles, which OpenEXR packs at the same time.
    ErrorCode writeTiles(MUtils::MRRegionData* region) override;
    // Writes regions that wait in the feed together when their tiles lie beside each other.
    ErrorCode writeNext(RegionFeed& feed, RegionFeed::Call& call, bool& more) override;

    // Describes the region's channels, and with pixel type HALF turns their float values into halves where
    // they are.
    void setupFrameBuffer(Imf::FrameBuffer& frameBuffer, MUtils::MRRegionData& region);

  private:
    Imath::Box2i takeDataWindow();
    MUtils::TileBox tileAt(int x, int y) const;
    ErrorCode checkRegion(const MUtils::MRRegionData& region, const MUtils::TileBox& tiles) const;
    void writeChecked(MUtils::MRRegionData& region, const MUtils::TileBox& tiles);
    std::size_t tileIndex(int tx, int ty) const;
    ErrorCode checkChannelsOf(const MUtils::MRRegionData& region) const;
    int wantedType(const MUtils::RegionChannel& channel, const MUtils::MRRegionData& region) const;
    void halveValues(MBVTable& data, const MUtils::ExrChannelRule& rule, int count);
    const unsigned char* contiguousValues(const MBVTable& data, int channel, int count);

    // A channel of the file.
    struct Announced {
        MUtils::CharString name;
        int type = 0;
    };
    std::vector<Announced> announced_;
    std::unique_ptr<Imf::TiledOutputFile> file;
    std::vector<bool> written_;  // tiles of the open file, row by row
    MUtils::TileRun run_;
};
