#pragma once

#include <OpenImageIO/imageio.h>

#include <memory>
#include <string>

namespace rimg_imageio {

// Reads raw images, finished, unfinished or damaged, on any number of threads at a time. Pixels that were
// never rendered are 0. A read that meets damage fails, with the place of the damage in its error, unless the
// caller has asked for a colour in place of missing pixels.
class Reader final : public OIIO::ImageInput {
  public:
    Reader();
    ~Reader() override;

    const char* format_name() const override { return "rimg"; }
    int supports(OIIO::string_view feature) const override;
    bool valid_file(const std::string& name) const override;
    bool open(const std::string& name, OIIO::ImageSpec& spec) override;
    bool open(const std::string& name, OIIO::ImageSpec& spec, const OIIO::ImageSpec& config) override;
    bool close() override;
    bool get_thumbnail(OIIO::ImageBuf& thumb, int subimage) override;

    bool read_native_scanline(int subimage, int miplevel, int y, int z, void* data) override;
    bool read_native_scanlines(int subimage, int miplevel, int yBegin, int yEnd, int z, void* data) override;
    bool read_native_scanlines(int subimage, int miplevel, int yBegin, int yEnd, int z, int channelBegin,
                               int channelEnd, void* data) override;
    bool read_native_tile(int subimage, int miplevel, int x, int y, int z, void* data) override;
    bool read_native_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd, int zBegin,
                           int zEnd, void* data) override;
    bool read_native_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd, int zBegin,
                           int zEnd, int channelBegin, int channelEnd, void* data) override;
    // The base class reads all channels of a tile, whichever are asked for, when they are to be converted.
    bool read_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd, int zBegin,
                    int zEnd, int channelBegin, int channelEnd, OIIO::TypeDesc format, void* data,
                    OIIO::stride_t xStride, OIIO::stride_t yStride, OIIO::stride_t zStride) override;

  private:
    class Frame;

    // What was given to read_native_...: a box of the image.
    struct Request {
        int xBegin, xEnd, yBegin, yEnd;
        int channelBegin, channelEnd;
        bool isLines = false;  // of the image, and whole ones
    };
    bool read(int subimage, int miplevel, const Request& request, void* data);
    void convert(const Request& request, const unsigned char* native, OIIO::TypeDesc format,
                 unsigned char* data, OIIO::stride_t xStride, OIIO::stride_t yStride) const;

    std::unique_ptr<Frame> frame_;
};

}  // namespace rimg_imageio
