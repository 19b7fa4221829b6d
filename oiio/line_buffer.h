#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "oiio/frame_reader.h"

namespace rimg_imageio {

// Reads scan lines for those who ask for a few at a time: decodes the buckets that lines lie in once, and
// keeps all their lines. Any number of threads may call it.
class LineBuffer {
  public:
    // Borrows the reader.
    explicit LineBuffer(const FrameReader& reader) : reader_(reader) {}

    // As FrameReader::read(), of whole lines.
    std::string read(const MUtils::PixelBox& lines, int channelBegin, int channelEnd, std::size_t lineBytes,
                     int threads, unsigned char* data);

  private:
    const FrameReader& reader_;
    std::mutex mutex_;  // of all below
    MUtils::PixelBox band_;
    int channelBegin_ = 0;
    int channelEnd_ = 0;
    std::vector<unsigned char> bytes_;
};

}  // namespace rimg_imageio
