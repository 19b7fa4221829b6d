#pragma once

#include <OpenEXR/ImfForward.h>
#include <OpenEXR/ImfHeader.h>

#include <map>
#include <string>
#include <vector>

#include "bench/frame.h"
#include "exr/exr_file.h"

// The same EXR file twice: through our writer, and by the shortest direct use of OpenEXR.

namespace bench {

// One region for scan-line files, the tiles in their order for tiled ones.
struct ExrSource {
    const Frame& frame;
    const std::vector<Bucket>& regions;
};

// A part of a frame with all channels, 960 x 512 pixels moved to the origin: as one region, or as tiles.
struct ExrPart {
    ExrPart(const std::string& path, bool tiled);

    Frame frame;  // without buckets
    std::vector<Bucket> regions;
};

struct ExrLayout {
    ExrFile::Kind kind;
    int compression;  // as ExrFile::setCompressionType has it
    int bits;         // 16 or 32; 16 not for tiled files, whose values our writer uses up
};

// The channels of some rows of a file, one after another in `values`, but for the one named `without`, which
// may be null.
void readBand(Imf::InputFile& file, int first, int last, const char* without, Bytes& values);
// Reads all of a file by OpenEXR, some rows at a time, and drops it.
void readExr(const std::string& path);

// With `queued`, through a queue.
void writeOurExr(const ExrSource& source, const ExrLayout& layout, const std::string& path,
                 bool queued = false);

// Writes the parts and channels that a file of our writer has, from the values where they stand (halves: from
// planes that it makes of them, as OpenEXR asks for). Like the renderer's buckets, tiles come one at a time.
class DirectExr {
  public:
    // Takes the headers from `ours`, which writeOurExr() made of the same source.
    DirectExr(const ExrSource& source, const ExrLayout& layout, const std::string& ours);
    void write(const std::string& path) const;
    // True when every pixel of the file is the source's: bit for bit, save that an alpha channel's mean of
    // equal numbers may be off by rounding, and halves are compared after rounding.
    bool holds(const std::string& path) const;

  private:
    // Where an EXR channel's values are: component of a render channel.
    struct Place {
        std::size_t channel = 0;
        int component = 0;
        int components = 1;
        bool integer = false;
    };
    const Place& placeOf(const Imf::Header& header, const std::string& channel) const;
    void addSlices(const Imf::Header& header, const Bucket& region,
                   std::vector<std::vector<unsigned short>>& planes, Imf::FrameBuffer& buffer) const;
    void writeScanlines(const std::string& path) const;
    void writeTiles(const std::string& path) const;
    bool partHolds(Imf::MultiPartInputFile& file, int part) const;

    const ExrSource& source_;
    ExrLayout layout_;
    std::vector<Imf::Header> headers_;
    std::map<std::string, Place> places_;
};

}  // namespace bench
