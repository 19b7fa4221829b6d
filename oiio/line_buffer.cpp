#include "oiio/line_buffer.h"

#include <cstring>

namespace rimg_imageio {

namespace {

constexpr std::size_t kMaxBytes = std::size_t{128} << 20;

}  // namespace

std::string LineBuffer::read(const MUtils::PixelBox& lines, int channelBegin, int channelEnd,
                             std::size_t lineBytes, int threads, unsigned char* data) {
    const MUtils::PixelBox band = reader_.bucketLines(lines);
    const std::size_t size = lineBytes * static_cast<std::size_t>(band.height());
    if (band == lines || !contains(band, lines) || size > kMaxBytes)
        return reader_.read(lines, channelBegin, channelEnd, threads, data);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (band != band_ || channelBegin != channelBegin_ || channelEnd != channelEnd_) {
        band_ = {};
        bytes_.resize(size);
        // Damage that no wanted line has is no fault.
        if (!reader_.read(band, channelBegin, channelEnd, threads, bytes_.data()).empty())
            return reader_.read(lines, channelBegin, channelEnd, threads, data);
        band_ = band;
        channelBegin_ = channelBegin;
        channelEnd_ = channelEnd;
    }
    std::memcpy(data, bytes_.data() + lineBytes * static_cast<std::size_t>(lines.y0 - band.y0),
                lineBytes * static_cast<std::size_t>(lines.height()));
    return "";
}

}  // namespace rimg_imageio
