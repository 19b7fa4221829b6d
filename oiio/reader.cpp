#include "oiio/reader.h"

#include <OpenImageIO/imagebuf.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "oiio/frame_reader.h"
#include "oiio/line_buffer.h"
#include "oiio/proxy_stream.h"
#include "rawimage/writer.h"

namespace rimg_imageio {

// The stream goes after the frame that reads it.
class Reader::Frame {
  public:
    Frame(const std::string& name, const OIIO::ImageSpec& config) : reader(makeFrame(name), config) {}
    Frame(OIIO::Filesystem::IOProxy& proxy, const OIIO::ImageSpec& config)
        : stream_(std::make_unique<ProxyStream>(proxy)),
          reader(std::make_unique<MUtils::RawFrame>(*stream_), config) {}

  private:
    static std::unique_ptr<MUtils::RawFrame> makeFrame(const std::string& name) {
        return std::make_unique<MUtils::RawFrame>(name.c_str());
    }

    const std::unique_ptr<ProxyStream> stream_;

  public:
    FrameReader reader;
    LineBuffer lines{reader};
};

Reader::Reader() = default;

Reader::~Reader() {
    Reader::close();
}

int Reader::supports(OIIO::string_view feature) const {
    return feature == "arbitrary_metadata" || feature == "ioproxy" || feature == "thumbnail";
}

bool Reader::valid_file(const std::string& name) const {
    return RIFile::isRIFile(name.c_str());
}

bool Reader::open(const std::string& name, OIIO::ImageSpec& spec) {
    return open(name, spec, OIIO::ImageSpec());
}

bool Reader::open(const std::string& name, OIIO::ImageSpec& spec, const OIIO::ImageSpec& config) {
    // Not close(), which would forget the proxy that the caller has set.
    frame_.reset();
    ioproxy_retrieve_from_config(config);
    try {
        frame_ = ioproxy() != nullptr ? std::make_unique<Frame>(*ioproxy(), config)
                                      : std::make_unique<Frame>(name, config);
        const std::string refusal = frame_->reader.describe(m_spec);
        if (refusal.empty()) {
            spec = m_spec;
            return true;
        }
        errorfmt("\"{}\": {}", name, refusal);
    } catch (const std::exception& error) {
        errorfmt("\"{}\": {}", name, error.what());
    }
    close();
    return false;
}

bool Reader::close() {
    frame_.reset();
    ioproxy_clear();
    m_spec = OIIO::ImageSpec();
    return true;
}

bool Reader::get_thumbnail(OIIO::ImageBuf& thumb, int subimage) {
    if (frame_ == nullptr || subimage != 0) return false;
    try {
        const auto stored = frame_->reader.frame().thumbnail();
        if (!stored || stored->pixels.empty()) return false;
        thumb.reset(OIIO::ImageSpec(stored->width, stored->height, 3, OIIO::TypeUInt8));
        return thumb.set_pixels(thumb.roi(), OIIO::TypeUInt8, stored->pixels.data());
    } catch (const std::exception& error) {
        errorfmt("{}", error.what());
        return false;
    }
}

bool Reader::read_native_scanline(int subimage, int miplevel, int y, int z, void* data) {
    return read_native_scanlines(subimage, miplevel, y, y + 1, z, data);
}

bool Reader::read_native_scanlines(int subimage, int miplevel, int yBegin, int yEnd, int z, void* data) {
    return read_native_scanlines(subimage, miplevel, yBegin, yEnd, z, 0, m_spec.nchannels, data);
}

bool Reader::read_native_scanlines(int subimage, int miplevel, int yBegin, int yEnd, int /*z*/,
                                   int channelBegin, int channelEnd, void* data) {
    const Request lines{m_spec.x, m_spec.x + m_spec.width, yBegin, yEnd, channelBegin, channelEnd, true};
    return read(subimage, miplevel, lines, data);
}

bool Reader::read_native_tile(int subimage, int miplevel, int x, int y, int z, void* data) {
    return read_native_tiles(subimage, miplevel, x, x + m_spec.tile_width, y, y + m_spec.tile_height, z,
                             z + 1, data);
}

bool Reader::read_native_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd,
                               int zBegin, int zEnd, void* data) {
    return read_native_tiles(subimage, miplevel, xBegin, xEnd, yBegin, yEnd, zBegin, zEnd, 0,
                             m_spec.nchannels, data);
}

bool Reader::read_native_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd,
                               int /*zBegin*/, int /*zEnd*/, int channelBegin, int channelEnd, void* data) {
    return read(subimage, miplevel, {xBegin, xEnd, yBegin, yEnd, channelBegin, channelEnd}, data);
}

bool Reader::read_tiles(int subimage, int miplevel, int xBegin, int xEnd, int yBegin, int yEnd,
                        int /*zBegin*/, int /*zEnd*/, int channelBegin, int channelEnd, OIIO::TypeDesc format,
                        void* data, OIIO::stride_t xStride, OIIO::stride_t yStride,
                        OIIO::stride_t /*zStride*/) {
    if (frame_ == nullptr || !m_spec.valid_tile_range(xBegin, xEnd, yBegin, yEnd, 0, 1)) {
        errorfmt("there are no such tiles");
        return false;
    }
    channelEnd = std::min(channelEnd, m_spec.nchannels);
    const std::size_t nativeBytes = m_spec.pixel_bytes(channelBegin, channelEnd, true);
    const std::size_t pixelBytes = format == OIIO::TypeUnknown
                                       ? nativeBytes
                                       : format.size() * static_cast<std::size_t>(channelEnd - channelBegin);
    if (xStride == OIIO::AutoStride) xStride = static_cast<OIIO::stride_t>(pixelBytes);
    if (yStride == OIIO::AutoStride) yStride = xStride * (xEnd - xBegin);
    try {
        std::vector<unsigned char> native;
        for (int y = yBegin; y < yEnd; y += m_spec.tile_height) {
            const Request rows{xBegin,       xEnd,      y, std::min(y + m_spec.tile_height, yEnd),
                               channelBegin, channelEnd};
            native.resize(nativeBytes * static_cast<std::size_t>(xEnd - xBegin) *
                          static_cast<std::size_t>(rows.yEnd - rows.yBegin));
            if (!read(subimage, miplevel, rows, native.data())) return false;
            convert(rows, native.data(), format, static_cast<unsigned char*>(data) + (y - yBegin) * yStride,
                    xStride, yStride);
        }
        return true;
    } catch (const std::exception& error) {
        errorfmt("{}", error.what());
        return false;
    }
}

// Converts runs of channels of one format at a time.
void Reader::convert(const Request& request, const unsigned char* native, OIIO::TypeDesc format,
                     unsigned char* data, OIIO::stride_t xStride, OIIO::stride_t yStride) const {
    const int width = request.xEnd - request.xBegin;
    const auto bytes =
        static_cast<OIIO::stride_t>(m_spec.pixel_bytes(request.channelBegin, request.channelEnd, true));
    for (int first = request.channelBegin; first < request.channelEnd;) {
        const OIIO::TypeDesc stored = m_spec.channelformat(first);
        int end = first + 1;
        while (end < request.channelEnd && m_spec.channelformat(end) == stored)
            ++end;
        const OIIO::TypeDesc wanted = format == OIIO::TypeUnknown ? stored : format;
        OIIO::convert_image(end - first, width, request.yEnd - request.yBegin, 1, native, stored, bytes,
                            bytes * width, OIIO::AutoStride, data, wanted, xStride, yStride,
                            OIIO::AutoStride);
        native += stored.size() * static_cast<std::size_t>(end - first);
        data += wanted.size() * static_cast<std::size_t>(end - first);
        first = end;
    }
}

bool Reader::read(int subimage, int miplevel, const Request& request, void* data) {
    if (frame_ == nullptr || subimage != 0 || miplevel != 0) return false;
    const MUtils::PixelBox box{request.xBegin, request.yBegin, request.xEnd, request.yEnd};
    // One tile is no work to share: callers read single tiles on many threads.
    const bool single =
        m_spec.tile_width > 0 && box.width() <= m_spec.tile_width && box.height() <= m_spec.tile_height;
    const int allowed = threads() > 0 ? threads() : OIIO::get_int_attribute("threads");
    const int channelEnd = std::min(request.channelEnd, m_spec.nchannels);
    auto* const pixels = static_cast<unsigned char*>(data);
    try {
        std::string fault;
        if (request.isLines) {
            const std::size_t lineBytes = m_spec.pixel_bytes(request.channelBegin, channelEnd, true) *
                                          static_cast<std::size_t>(m_spec.width);
            fault = frame_->lines.read(box, request.channelBegin, channelEnd, lineBytes, allowed, pixels);
        } else {
            fault = frame_->reader.read(box, request.channelBegin, channelEnd, single ? 1 : allowed, pixels);
        }
        if (fault.empty()) return true;
        errorfmt("{}", fault);
    } catch (const std::exception& error) {
        errorfmt("{}", error.what());
    }
    return false;
}

}  // namespace rimg_imageio
