#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "convert/channel_grouping.h"
#include "oiio/attributes.h"
#include "rawimage/area/pixel_box.h"
#include "rawimage/output_queue.h"
#include "rawimage/writer.h"

namespace rimg_imageio {

// Writes an image's pixels into a raw image as buckets. Its channels are grouped as the conversion from
// OpenEXR groups them: R, G and B are the main colour, x.R, x.G and x.B the colour x. One thread at a time
// uses an object.
class RegionWriter {
  public:
    // The image is described by `spec`, as the caller has it: pixels come in its native layout. Buckets have
    // at most this size.
    RegionWriter(const OIIO::ImageSpec& spec, int bucketWidth, int bucketHeight);

    // Starts the file, on the stream when there is one, and writes all but pixels. "" for success, as below.
    std::string create(const std::string& name, PStream* stream, int threads,
                       MUtils::Compression compression);
    // Writes the pixels of `box`, cut where buckets meet. Rows are `rowBytes` apart.
    std::string write(const MUtils::PixelBox& box, const unsigned char* pixels, std::size_t rowBytes);
    std::string writeThumbnail(std::vector<RGB24> pixels, int width, int height);
    // Finishes the file.
    std::string close();

    const MUtils::PixelBox& window() const { return window_; }

  private:
    ErrorCode writeHead(const std::string& name, PStream* stream);
    ErrorCode writeMetadata();
    ErrorCode writeBucket(const MUtils::PixelBox& box, const unsigned char* pixels, std::size_t rowBytes);
    void loadChannel(std::size_t index, int width, int height, const unsigned char* pixels,
                     std::size_t rowBytes);

    const OIIO::ImageSpec spec_;
    const int bucketWidth_;
    const int bucketHeight_;
    const MUtils::PixelBox window_;  // in the image
    MUtils::Grouping grouping_;
    std::vector<std::size_t> offsets_;  // of the image's channels in a pixel
    TagValues tags_;
    std::vector<std::unique_ptr<MBVTable>> tables_;
    MRRegionData region_;  // points to tables_
    std::vector<std::uint32_t> values_;
    RIFile file_;
    OutputQueue queue_{file_};
};

}  // namespace rimg_imageio
