#pragma once

#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfMultiPartInputFile.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "convert/channel_grouping.h"
#include "convert/exr_stream.h"
#include "convert/from_exr/exr_chunks.h"
#include "convert/from_exr/from_exr.h"
#include "rawimage/area/pixel_box.h"
#include "rawimage/records.h"

namespace MUtils {
inline namespace v1 {

// Frame metadata that the OpenEXR writers make header attributes of.
struct ExrMetadata {
    std::optional<RICameraInfo> camera;  // only when all its attributes are there with the right types
    std::optional<std::string> stampText;
    std::optional<std::string> note;
    std::optional<std::string> scene;
    int sceneValue = 0;
};

// An OpenEXR file opened for conversion: scan-line or tiled (its full-resolution level), one part or several.
// All positions are relative to the frame, whose first pixel is (0, 0).
class ExrInput {
  public:
    // Throws ConvertError: kCannotOpen, kDamaged when the headers make no sense, kUnsupported for content
    // that a raw image cannot carry (deep pixels, subsampled channels, frames too large
    // for it).
    ExrInput(const std::string& path, FrameChoice frame);

    const std::string& path() const { return path_; }
    std::int64_t frameWidth() const { return width_; }    // 1 to 2^31 - 1
    std::int64_t frameHeight() const { return height_; }  // likewise
    float pixelAspect() const { return file_->header(0).pixelAspectRatio(); }

    int parts() const { return file_->parts(); }
    // The data window of a part. It may reach past the frame on any side, or lie outside it.
    PixelBox window(int part) const;
    std::vector<PixelBox> windows() const;
    // As groupChannels() takes them.
    std::vector<std::string> partNames() const;
    // Of all parts, part after part; within a part in the order of its header.
    const std::vector<SourceChannel>& channels() const { return channels_; }
    ExrMetadata metadata() const;

    // The display window; (0, 0, width, height) when it is the frame.
    PixelBox displayWindow() const;

    // For the readers of pixels: the file, the stream under it, the sizes of its blocks, and the frame's
    // first pixel in the file's coordinates.
    Imf::MultiPartInputFile& file() const { return *file_; }
    ExrStream& stream() { return stream_; }
    ExrChunks& chunks() { return *chunks_; }
    const Imf::Header& header(int part) const { return file_->header(part); }
    std::int64_t originX() const { return originX_; }
    std::int64_t originY() const { return originY_; }

  private:
    void open();
    void measureFrame(FrameChoice choice);
    void listChannels(int part);
    PixelBox seenFromFrame(const Imath::Box2i& box) const;

    const std::string path_;
    ExrStream stream_;
    std::unique_ptr<Imf::MultiPartInputFile> file_;  // reads from stream_
    std::unique_ptr<ExrChunks> chunks_;
    std::int64_t width_ = 0;
    std::int64_t height_ = 0;
    std::int64_t originX_ = 0;
    std::int64_t originY_ = 0;
    std::vector<SourceChannel> channels_;
};

}  // namespace v1
}  // namespace MUtils
