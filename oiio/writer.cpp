#include "oiio/writer.h"

#include <OpenImageIO/imagebuf.h>

#include <algorithm>
#include <climits>
#include <exception>

namespace rimg_imageio {

namespace {

constexpr int kBucketSide = 64;
constexpr int kMaxChannels = 10000;
constexpr std::int64_t kMaxPlace = 1 << 29;         // leaves room for sums in int
constexpr std::int64_t kMaxBucketPixels = 1 << 26;  // the largest channel of a bucket stays below 2^31 bytes

std::string refusalOf(const OIIO::ImageSpec& spec) {
    const auto outside = [](int first, int size) {
        return size < 1 || first < -kMaxPlace || std::int64_t{first} + size > kMaxPlace;
    };
    if (spec.deep) return "deep images cannot be written";
    if (spec.depth > 1 || spec.full_depth > 1 || spec.z != 0) return "volumes cannot be written";
    if (spec.nchannels < 1 || spec.nchannels > kMaxChannels)
        return std::to_string(spec.nchannels) + " channels cannot be written";
    if (outside(spec.x, spec.width) || outside(spec.y, spec.height) ||
        outside(spec.full_x, spec.full_width) || outside(spec.full_y, spec.full_height))
        return "an image of this size cannot be written";
    const bool largeTiles = std::int64_t{spec.tile_width} * spec.tile_height > kMaxBucketPixels;
    return largeTiles ? "tiles of this size cannot be written" : "";
}

MUtils::Compression compressionOf(const OIIO::ImageSpec& spec) {
    const std::string name = spec.get_string_attribute("rawimage:compression");
    if (name == "fast") return MUtils::Compression::kFast;
    return name == "balanced" ? MUtils::Compression::kBalanced : MUtils::Compression::kSmall;
}

// Puts those of touching pixels in place of automatic ones. Pixels without a format are in the native layout.
void settleStrides(const OIIO::ImageSpec& spec, OIIO::TypeDesc format, int width, int height,
                   OIIO::stride_t& x, OIIO::stride_t& y, OIIO::stride_t& z) {
    const bool native = format == OIIO::TypeUnknown;
    const std::size_t pixel =
        native ? spec.pixel_bytes(true) : format.size() * static_cast<std::size_t>(spec.nchannels);
    if (x == OIIO::AutoStride) x = static_cast<OIIO::stride_t>(pixel);
    if (y == OIIO::AutoStride) y = x * width;
    if (z == OIIO::AutoStride) z = y * height;
}

}  // namespace

Writer::~Writer() {
    Writer::close();
}

int Writer::supports(OIIO::string_view feature) const {
    for (const char* name : {"alpha", "arbitrary_metadata", "channelformats", "displaywindow", "ioproxy",
                             "nchannels", "negativeorigin", "origin", "random_access", "rectangles",
                             "thumbnail", "thumbnail_after_write", "tiles"}) {
        if (feature == name) return 1;
    }
    return 0;
}

bool Writer::refuse(const std::string& name, const std::string& fault) {
    errorfmt("\"{}\": {}", name, fault);
    writer_.reset();
    stream_.reset();
    return false;
}

bool Writer::report(const std::string& fault) {
    if (!fault.empty()) errorfmt("{}", fault);
    return fault.empty();
}

bool Writer::open(const std::string& name, const OIIO::ImageSpec& spec, OpenMode mode) {
    if (mode != Create) return refuse(name, "a file has one image");
    close();
    m_spec = spec;
    // Channels of different formats may come without a common one; set_format() would drop theirs.
    if (m_spec.format == OIIO::TypeUnknown) m_spec.format = OIIO::TypeFloat;
    if (m_spec.full_width < 1) m_spec.full_width = m_spec.width;
    if (m_spec.full_height < 1) m_spec.full_height = m_spec.height;
    if (const std::string refusal = refusalOf(m_spec); !refusal.empty()) return refuse(name, refusal);
    ioproxy_retrieve_from_config(m_spec);
    // A pointer of the caller's, and no attribute of the image.
    m_spec.erase_attribute("oiio:ioproxy");
    const bool tiled = m_spec.tile_width > 0 && m_spec.tile_height > 0;
    try {
        if (ioproxy() != nullptr) stream_ = std::make_unique<ProxyStream>(*ioproxy());
        writer_ = std::make_unique<RegionWriter>(
            m_spec, std::min(tiled ? m_spec.tile_width : kBucketSide, m_spec.width),
            std::min(tiled ? m_spec.tile_height : kBucketSide, m_spec.height));
        const int allowed = threads() > 0 ? threads() : OIIO::get_int_attribute("threads");
        const std::string fault = writer_->create(name, stream_.get(), allowed, compressionOf(m_spec));
        return fault.empty() || refuse(name, fault);
    } catch (const std::exception& error) {
        return refuse(name, error.what());
    }
}

bool Writer::close() {
    if (writer_ == nullptr) return true;
    std::string fault;
    try {
        while (!bands_.empty() && fault.empty())
            fault = flushBand(bands_.begin()->first);
        const std::string closing = writer_->close();
        if (fault.empty()) fault = closing;
    } catch (const std::exception& error) {
        fault = error.what();
    }
    bands_.clear();
    writer_.reset();
    stream_.reset();
    ioproxy_clear();
    return report(fault);
}

bool Writer::set_thumbnail(const OIIO::ImageBuf& thumb) {
    const OIIO::ImageSpec& spec = thumb.spec();
    if (writer_ == nullptr || !thumb.initialized() || spec.nchannels < 1) return false;
    // A grey picture has one channel for all three.
    const auto channels = static_cast<std::size_t>(std::min(spec.nchannels, 3));
    const OIIO::ROI roi(spec.x, spec.x + spec.width, spec.y, spec.y + spec.height, 0, 1, 0,
                        static_cast<int>(channels));
    try {
        std::vector<unsigned char> bytes(spec.image_pixels() * channels);
        if (!thumb.get_pixels(roi, OIIO::TypeUInt8, bytes.data())) return report(thumb.geterror());
        std::vector<RGB24> pixels;
        for (const unsigned char* at = bytes.data(); at != bytes.data() + bytes.size(); at += channels)
            pixels.push_back(channels == 3 ? RGB24{at[0], at[1], at[2]} : RGB24{at[0], at[0], at[0]});
        return report(writer_->writeThumbnail(std::move(pixels), spec.width, spec.height));
    } catch (const std::exception& error) {
        return report(error.what());
    }
}

bool Writer::write_scanline(int y, int z, OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride) {
    return write_scanlines(y, y + 1, z, format, data, xStride, OIIO::AutoStride);
}

bool Writer::write_scanlines(int yBegin, int yEnd, int z, OIIO::TypeDesc format, const void* data,
                             OIIO::stride_t xStride, OIIO::stride_t yStride) {
    if (writer_ == nullptr) return report("no file is open");
    if (yBegin < m_spec.y || yEnd > m_spec.y + m_spec.height) return report("there are no such scan lines");
    try {
        const void* native = to_native_rectangle(m_spec.x, m_spec.x + m_spec.width, yBegin, yEnd, z, z + 1,
                                                 format, data, xStride, yStride, OIIO::AutoStride, native_);
        const auto* row = static_cast<const unsigned char*>(native);
        std::string fault;
        for (int y = yBegin; y < yEnd && fault.empty(); ++y, row += rowBytes())
            addLine(y, row, fault);
        return report(fault);
    } catch (const std::exception& error) {
        return report(error.what());
    }
}

void Writer::addLine(int y, const unsigned char* pixels, std::string& fault) {
    const int line = y - m_spec.y;
    const int index = line / kBucketSide;
    const int height = std::min(kBucketSide, m_spec.height - index * kBucketSide);
    Band& band = bands_[index];
    if (band.present.empty()) {
        band.present.resize(static_cast<std::size_t>(height));
        band.pixels.resize(static_cast<std::size_t>(height) * rowBytes());
    }
    const auto at = static_cast<std::size_t>(line % kBucketSide);
    std::copy_n(pixels, rowBytes(), band.pixels.data() + at * rowBytes());
    if (!band.present[at]) ++band.count;
    band.present[at] = true;
    if (band.count == height) fault = flushBand(index);
}

// Writes the lines that a band has, without those that have not come.
std::string Writer::flushBand(int index) {
    const Band band = std::move(bands_[index]);
    bands_.erase(index);
    std::string fault;
    const auto end = band.present.end();
    for (auto first = band.present.begin(); first != end && fault.empty();) {
        first = std::find(first, end, true);
        const auto last = std::find(first, end, false);
        const std::int64_t y = m_spec.y + std::int64_t{index} * kBucketSide;
        const std::int64_t top = first - band.present.begin();
        const MUtils::PixelBox box{m_spec.x, y + top, std::int64_t{m_spec.x} + m_spec.width,
                                   y + (last - band.present.begin())};
        if (!box.empty())
            fault = writer_->write(box, band.pixels.data() + static_cast<std::size_t>(top) * rowBytes(),
                                   rowBytes());
        first = last;
    }
    return fault;
}

bool Writer::write_tile(int x, int y, int z, OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride,
                        OIIO::stride_t yStride, OIIO::stride_t zStride) {
    settleStrides(m_spec, format, m_spec.tile_width, m_spec.tile_height, xStride, yStride, zStride);
    // What a tile at the edge has outside the image is left out.
    return write_rectangle(x, std::min(x + m_spec.tile_width, m_spec.x + m_spec.width), y,
                           std::min(y + m_spec.tile_height, m_spec.y + m_spec.height), z, z + 1, format, data,
                           xStride, yStride, zStride);
}

bool Writer::write_rectangle(int xBegin, int xEnd, int yBegin, int yEnd, int zBegin, int zEnd,
                             OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride,
                             OIIO::stride_t yStride, OIIO::stride_t zStride) {
    if (writer_ == nullptr) return report("no file is open");
    const MUtils::PixelBox box{xBegin, yBegin, xEnd, yEnd};
    if (box.empty() || !contains(writer_->window(), box)) return report("the pixels lie outside the image");
    try {
        const void* native = to_native_rectangle(xBegin, xEnd, yBegin, yEnd, zBegin, zEnd, format, data,
                                                 xStride, yStride, zStride, native_);
        return report(writer_->write(box, static_cast<const unsigned char*>(native),
                                     static_cast<std::size_t>(box.width()) * m_spec.pixel_bytes(true)));
    } catch (const std::exception& error) {
        return report(error.what());
    }
}

bool Writer::write_image(OIIO::TypeDesc format, const void* data, OIIO::stride_t xStride,
                         OIIO::stride_t yStride, OIIO::stride_t zStride, OIIO::ProgressCallback progress,
                         void* progressData) {
    settleStrides(m_spec, format, m_spec.width, m_spec.height, xStride, yStride, zStride);
    const int rows = m_spec.tile_height > 0 ? m_spec.tile_height : kBucketSide;
    for (int y = 0; y < m_spec.height; y += rows) {
        if (progress != nullptr &&
            progress(progressData, static_cast<float>(y) / static_cast<float>(m_spec.height)))
            return false;
        const int end = std::min(y + rows, m_spec.height);
        if (!write_rectangle(m_spec.x, m_spec.x + m_spec.width, m_spec.y + y, m_spec.y + end, 0, 1, format,
                             static_cast<const unsigned char*>(data) + y * yStride, xStride, yStride,
                             zStride))
            return false;
    }
    if (progress != nullptr) progress(progressData, 1.0f);
    return true;
}

}  // namespace rimg_imageio
