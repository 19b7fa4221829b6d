#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "rawimage/format.h"
#include "rawimage/writer.h"

// The data that is measured on: frames in raw image files, in memory as the renderer has them.

namespace bench {

using Bytes = std::vector<unsigned char>;
using Tables = std::vector<std::unique_ptr<MBVTable>>;

// Room for so many values.
std::unique_ptr<MBVTable> makeTable(int values, int valueSize);

// A box of the frame with the values of each channel, by channel index.
struct Bucket {
    int x = 0, y = 0, width = 0, height = 0;
    Tables values;
};

struct Frame {
    std::string path;
    int width = 0, height = 0;
    std::vector<MUtils::RIF_CHANNEL> channels;
    std::vector<Bucket> buckets;

    // Reads a file; with `every` above 1 only each every-th bucket. Throws when a bucket lacks a channel.
    static Frame load(const std::string& path, std::size_t every = 1);
    // One bucket that covers a box of the frame, gathered from the frame's own. Values it lacks are 0.
    Bucket crop(int x, int y, int boxWidth, int boxHeight) const;

    // Makes `region` the bucket's, without copying a value.
    void describe(const Bucket& bucket, MRRegionData& region) const;
    std::int64_t rawBytes() const;
    std::int64_t pixelBytes() const;  // of all channels
};

// `side` x `side` pixels without noise, at most 1024: balls of smooth shade on a black ground, the same in
// every run.
Frame makeCleanFrame(int side = 1024);

// The renderer's description of the frame's channels, for the writers.
class ChannelList {
  public:
    explicit ChannelList(const std::vector<MUtils::RIF_CHANNEL>& channels);
    MUtils::Table<RegionChannelCallback*, 100>* table() { return &table_; }

  private:
    class Entry final : public RegionChannelCallback {
      public:
        explicit Entry(const MUtils::RIF_CHANNEL& channel) : channel_(channel) {}
        RegionChannelType getType() override { return static_cast<RegionChannelType>(channel_.type); }
        RegionChannelAlias getAlias() override { return static_cast<RegionChannelAlias>(channel_.alias); }
        const char* getName() override { return channel_.name; }
        int getFlags() override { return 0; }

      private:
        MUtils::RIF_CHANNEL channel_;
    };
    std::vector<std::unique_ptr<Entry>> entries_;
    MUtils::Table<RegionChannelCallback*, 100> table_;
};

// The pixel tags of a file, from its table.
std::vector<INFOTAG> pixelTags(const std::string& path);

// Channel, x, y of a pixel tag, and a checksum of its values.
using Checksums = std::map<std::tuple<int, int, int>, unsigned long>;
// As the reader delivers them; `threads` above 1 for the multi-threaded one.
Checksums checksumsRead(const std::string& path, int threads);
// The same by plain reads and zlib, on the tags given.
Checksums checksumsPlain(const std::string& path, const std::vector<INFOTAG>& tags);

// Where input files are kept and output files go. Files made once stay there for the next run.
struct Folder {
    std::string path;
    std::string demo;  // the demo frame
    std::string real;  // a real frame, empty when there is none

    std::string file(const char* name) const { return path + '/' + name; }
};

}  // namespace bench
