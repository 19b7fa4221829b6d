#pragma once

#include <OpenImageIO/imageio.h>

#include <memory>
#include <string>
#include <vector>

#include "oiio/missing_color.h"
#include "oiio/pixel_channels.h"
#include "rawimage/frame/raw_frame.h"

namespace rimg_imageio {

// A raw image as an image of OpenImageIO: its description, and its pixels in boxes of that image's
// coordinates. Constant functions may be called by several threads at a time.
class FrameReader {
  public:
    FrameReader(std::unique_ptr<MUtils::RawFrame> frame, const OIIO::ImageSpec& config);

    // Puts the image's description into `spec`. "" when the file can be read as an image, else why it cannot.
    std::string describe(OIIO::ImageSpec& spec);

    // Reads the channels [channelBegin, channelEnd) of the pixels of `box` into `data`, row by row without
    // gaps, in their own formats. "" for success, else what is damaged.
    std::string read(const MUtils::PixelBox& box, int channelBegin, int channelEnd, int threads,
                     unsigned char* data) const;

    // The whole lines of the image from the first to the last line of all buckets that `box` touches, as far
    // as buckets are of the announced height.
    MUtils::PixelBox bucketLines(const MUtils::PixelBox& box) const;

    const MUtils::RawFrame& frame() const { return *frame_; }

  private:
    struct Part;

    std::vector<Part> partsOf(int channelBegin, int channelEnd, unsigned char* data) const;
    // Puts the colour in place of what `read` could not give of the part.
    void color(const Part& part, const MUtils::PixelBox& box, std::size_t pixelBytes,
               const MUtils::FrameRead& read) const;
    MUtils::PixelBox inFrame(const MUtils::PixelBox& box) const;
    std::string faultOf(const MUtils::FrameRead& read) const;
    std::string checkSize(const OIIO::ImageSpec& spec) const;
    void setTiles(OIIO::ImageSpec& spec) const;

    const std::unique_ptr<MUtils::RawFrame> frame_;
    const MissingColor missingColor_;
    PixelChannels channels_;
    MUtils::PixelBox area_;  // the pixels of the image, in the frame
    int originX_ = 0;        // of the frame in the image
    int originY_ = 0;
};

}  // namespace rimg_imageio
