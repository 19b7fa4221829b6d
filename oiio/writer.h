#pragma once

#include <OpenImageIO/imageio.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "oiio/proxy_stream.h"
#include "oiio/region_writer.h"

namespace rimg_imageio {

// Writes raw images: tiles as buckets, scan lines once the lines of a row of buckets are there, rectangles as
// they come, all in any order. An image that is closed before all its pixels have come lacks the others.
class Writer final : public OIIO::ImageOutput {
  public:
    Writer() = default;
    ~Writer() override;

    const char* format_name() const override { return "rimg"; }
    int supports(OIIO::string_view feature) const override;
    bool open(const std::string& name, const OIIO::ImageSpec& spec, OpenMode mode) override;
    bool close() override;
    bool set_thumbnail(const OIIO::ImageBuf& thumb) override;

    bool write_scanline(int y, int z, OIIO::TypeDesc format, const void* data,
                        OIIO::stride_t xStride) override;
    bool write_scanlines(int yBegin, int yEnd, int z, OIIO::TypeDesc format, const void* data,
                         OIIO::stride_t xStride, OIIO::stride_t yStride) override;
    bool write_tile(int x, int y, int z, OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride,
                    OIIO::stride_t yStride, OIIO::stride_t zStride) override;
    bool write_rectangle(int xBegin, int xEnd, int yBegin, int yEnd, int zBegin, int zEnd,
                         OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride,
                         OIIO::stride_t yStride, OIIO::stride_t zStride) override;
    // The base class begins at pixel (0, 0), wherever the image does.
    bool write_image(OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride, OIIO::stride_t yStride,
                     OIIO::stride_t zStride, OIIO::ProgressCallback progress, void* progressData) override;

  private:
    // Lines of a row of buckets.
    struct Band {
        std::vector<unsigned char> pixels;
        std::vector<bool> present;
        int count = 0;
    };

    bool refuse(const std::string& name, const std::string& fault);
    bool report(const std::string& fault);
    void addLine(int y, const unsigned char* pixels, std::string& fault);
    std::string flushBand(int index);
    std::size_t rowBytes() const { return m_spec.scanline_bytes(true); }

    std::unique_ptr<ProxyStream> stream_;
    std::unique_ptr<RegionWriter> writer_;
    std::map<int, Band> bands_;  // by their place from the top
    std::vector<unsigned char> native_;
};

}  // namespace rimg_imageio
