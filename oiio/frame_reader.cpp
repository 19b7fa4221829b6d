#include "oiio/frame_reader.h"

#include <OpenImageIO/sysutil.h>

#include <algorithm>
#include <cstring>

#include "oiio/attributes.h"
#include "oiio/extra_record.h"

namespace rimg_imageio {

namespace {

using MUtils::FileFault;
using MUtils::FileState;
using MUtils::PixelBox;

constexpr int kMaxChannels = 10000;
constexpr int kMaxImageMebibytes = 32 << 10;  // where OpenImageIO has no limit of its own
constexpr double kMostExpansion = 1032;       // of a zlib stream

std::string placeOf(const FileFault& fault) {
    std::string text = "offset " + std::to_string(fault.offset);
    if (!fault.box.empty()) text += ", bucket " + MUtils::boxText(fault.box);
    if (fault.channel >= 0) text += ", channel \"" + fault.channelName + '"';
    return text + ": " + fault.cause;
}

// What the writer has added to the file, if it was this module's.
ExtraRecord extraOf(const MUtils::RawFrame& frame, MUtils::FrameRecords& records) {
    ExtraRecord extra;
    if (!records.settingsBytes || *records.settingsBytes > kMaxExtraText) return extra;
    const auto settings = frame.blob(MUtils::FrameBlob::kSettings);
    if (settings && decodeExtra(std::string(settings->begin(), settings->end()), extra))
        records.settingsBytes.reset();
    return extra;
}

// With room for the sums that callers make of places and sizes, in int.
bool fitsInt(const PixelBox& box, std::int64_t x, std::int64_t y) {
    constexpr std::int64_t kMost = 1 << 29;
    return contains(PixelBox{-kMost, -kMost, kMost, kMost}, {box.x0 + x, box.y0 + y, box.x1 + x, box.y1 + y});
}

}  // namespace

// What a read wants of one channel of the file.
struct FrameReader::Part {
    const ChannelSource* source;
    int first;  // component
    int count;
    unsigned char* target;  // of the first pixel
    // All components, where not all are wanted.
    std::vector<unsigned char> values;

    bool isWhole() const { return count == source->channel.components(); }

    void copy(std::size_t pixels, std::size_t pixelBytes) const {
        if (isWhole()) return;
        const std::size_t size = source->type.size();
        const std::size_t valueBytes = size * static_cast<std::size_t>(source->channel.components());
        const unsigned char* from = values.data() + size * static_cast<std::size_t>(first);
        unsigned char* to = target;
        for (std::size_t i = 0; i < pixels; ++i, from += valueBytes, to += pixelBytes)
            std::memcpy(to, from, size * static_cast<std::size_t>(count));
    }
};

FrameReader::FrameReader(std::unique_ptr<MUtils::RawFrame> frame, const OIIO::ImageSpec& config)
    : frame_(std::move(frame)), missingColor_(config) {}

std::string FrameReader::describe(OIIO::ImageSpec& spec) {
    const FileState state = frame_->state();
    if (state == FileState::kCannotOpen || state == FileState::kNotThisFormat) return frame_->cause();
    const auto info = frame_->info();
    MUtils::FrameRecords records = frame_->records();
    const ExtraRecord extra = extraOf(*frame_, records);
    channels_ = PixelChannels(*info, extra.types);
    area_ = info->area;
    originX_ = extra.originX;
    originY_ = extra.originY;
    const std::string which = state == FileState::kDamaged ? " (" + frame_->cause() + ')' : "";
    if (info->frame.empty() || area_.empty()) return "the file has no resolution" + which;
    if (channels_.count() == 0) return "the file has no channels with pixels" + which;
    if (channels_.count() > kMaxChannels)
        return "the file has " + std::to_string(channels_.count()) + " channels, too many for an image";
    if (!fitsInt(area_, originX_, originY_) || !fitsInt(info->frame, originX_, originY_))
        return "the frame is too large for an image: " + MUtils::boxText(area_);

    spec = OIIO::ImageSpec();
    spec.x = static_cast<int>(area_.x0) + originX_;
    spec.y = static_cast<int>(area_.y0) + originY_;
    spec.width = static_cast<int>(area_.width());
    spec.height = static_cast<int>(area_.height());
    spec.full_x = originX_;
    spec.full_y = originY_;
    spec.full_width = static_cast<int>(info->frame.width());
    spec.full_height = static_cast<int>(info->frame.height());
    spec.depth = spec.full_depth = 1;
    channels_.describe(spec);
    if (std::string refusal = checkSize(spec); !refusal.empty()) return refusal;
    setTiles(spec);
    spec.attribute("PixelAspectRatio", info->pixelAspect);
    addRecords(records, spec);
    addState(*frame_, area_, spec);
    for (const OIIO::ParamValue& attribute : extra.attributes)
        spec.extra_attribs.add_or_replace(attribute);
    return "";
}

// Whoever opens an image soon allocates all of it. A file may state any size; more than the machine has, or
// than OpenImageIO takes for plausible, is accepted only where the file can have pixels for it.
std::string FrameReader::checkSize(const OIIO::ImageSpec& spec) const {
    const double bytes =
        static_cast<double>(spec.width) * spec.height * static_cast<double>(spec.pixel_bytes(true));
    const double plausible = kMostExpansion * static_cast<double>(frame_->info()->fileBytes);
    const double memory = static_cast<double>(OIIO::Sysutil::physical_memory());
    const double limit = OIIO::get_int_attribute("limits:imagesize_MB", kMaxImageMebibytes) * double{1 << 20};
    if (bytes <= std::max(plausible, limit > 0 ? std::min(limit, memory) : memory)) return "";
    return "a frame of " + std::to_string(spec.width) + " x " + std::to_string(spec.height) +
           " pixels with " + std::to_string(spec.nchannels) + " channels is too large for this file";
}

// The buckets are tiles when they begin where tiles do and none is cut. One channel is enough to know: a
// wrong guess costs time only, as pixels are read by place.
void FrameReader::setTiles(OIIO::ImageSpec& spec) const {
    const auto info = frame_->info();
    if (!info->buckets || info->buckets->varies || info->buckets->width < 1 || info->buckets->height < 1)
        return;
    const std::int64_t width = std::min<std::int64_t>(info->buckets->width, area_.width());
    const std::int64_t height = std::min<std::int64_t>(info->buckets->height, area_.height());
    for (const PixelBox& bucket : frame_->buckets(area_, channels_.sources().front().channel.index)) {
        const std::int64_t x = bucket.x0 - area_.x0;
        const std::int64_t y = bucket.y0 - area_.y0;
        if (x % width != 0 || y % height != 0 || bucket.x1 != std::min(bucket.x0 + width, area_.x1) ||
            bucket.y1 != std::min(bucket.y0 + height, area_.y1))
            return;
    }
    spec.tile_width = static_cast<int>(width);
    spec.tile_height = static_cast<int>(height);
    spec.tile_depth = 1;
}

std::vector<FrameReader::Part> FrameReader::partsOf(int channelBegin, int channelEnd,
                                                    unsigned char* data) const {
    std::vector<Part> parts;
    for (const ChannelSource& source : channels_.sources()) {
        const int first = std::max(channelBegin - source.first, 0);
        const int count = std::min(source.count, channelEnd - source.first) - first;
        if (count <= 0) continue;
        parts.push_back({&source, first, count, data, {}});
        data += static_cast<std::size_t>(count) * source.type.size();
    }
    return parts;
}

std::string FrameReader::read(const PixelBox& box, int channelBegin, int channelEnd, int threads,
                              unsigned char* data) const {
    std::vector<Part> parts = partsOf(channelBegin, channelEnd, data);
    if (parts.empty() || box.empty()) return "";
    const auto pixels = static_cast<std::size_t>(box.area());
    std::size_t pixelBytes = 0;
    for (const Part& part : parts)
        pixelBytes += static_cast<std::size_t>(part.count) * part.source->type.size();

    std::vector<MUtils::ChannelTarget> targets;
    for (Part& part : parts) {
        const MUtils::FrameChannel& channel = part.source->channel;
        const std::size_t size = part.source->type.size();
        const bool isHalf = part.source->type == OIIO::TypeHalf;
        if (!part.isWhole())
            part.values.resize(pixels * static_cast<std::size_t>(channel.components()) * size);
        MUtils::ChannelTarget target(channel, part.isWhole() ? part.target : part.values.data(),
                                     isHalf ? MUtils::ValueFormat::kHalf : MUtils::ValueFormat::kStored);
        if (part.isWhole()) target.pixelStride = static_cast<std::ptrdiff_t>(pixelBytes);
        targets.push_back(target);
    }
    MUtils::FrameReadOptions options;
    options.threads = threads;
    const MUtils::FrameRead result = frame_->read(inFrame(box), targets, options);
    for (const Part& part : parts)
        part.copy(pixels, pixelBytes);
    if (!missingColor_.wanted()) return faultOf(result);
    for (const Part& part : parts)
        color(part, box, pixelBytes, result);
    return "";
}

PixelBox FrameReader::bucketLines(const PixelBox& box) const {
    const auto info = frame_->info();
    const std::int64_t height = info->buckets && info->buckets->height > 0 ? info->buckets->height : 64;
    const PixelBox wanted = inFrame(box);
    const auto above = [height](std::int64_t y) { return y - (y % height + height) % height; };
    const std::int64_t y0 = std::max(above(wanted.y0), area_.y0);
    const std::int64_t y1 = std::min(above(wanted.y1 - 1) + height, area_.y1);
    return {area_.x0 + originX_, y0 + originY_, area_.x1 + originX_, y1 + originY_};
}

void FrameReader::color(const Part& part, const PixelBox& box, std::size_t pixelBytes,
                        const MUtils::FrameRead& read) const {
    std::vector<PixelBox> lacking;
    for (const MUtils::MissingPixels& missing : read.missing) {
        if (missing.channel == part.source->channel.index)
            lacking.insert(lacking.end(), missing.boxes.boxes.begin(), missing.boxes.boxes.end());
    }
    for (const FileFault& fault : read.damaged) {
        if (fault.channel == part.source->channel.index) lacking.push_back(fault.box);
    }
    const std::vector<OIIO::TypeDesc> types(static_cast<std::size_t>(part.count), part.source->type);
    for (const PixelBox& place : lacking) {
        const PixelBox inImage{place.x0 + originX_, place.y0 + originY_, place.x1 + originX_,
                               place.y1 + originY_};
        missingColor_.fill(intersect(inImage, box), box, pixelBytes, types, part.source->first + part.first,
                           part.target);
    }
}

PixelBox FrameReader::inFrame(const PixelBox& box) const {
    return {box.x0 - originX_, box.y0 - originY_, box.x1 - originX_, box.y1 - originY_};
}

// Pixels that a damaged file lacks may have been in what is lost; those of an unfinished one were never
// there.
std::string FrameReader::faultOf(const MUtils::FrameRead& read) const {
    if (!read.damaged.empty()) return "damaged at " + placeOf(read.damaged.front());
    if (read.missing.empty() || frame_->state() != FileState::kDamaged) return "";
    const MUtils::MissingPixels& missing = read.missing.front();
    const MUtils::FileFaults faults = frame_->faults();
    std::string text = "damaged at offset " + std::to_string(frame_->causeOffset()) + ": " + frame_->cause();
    if (!faults.lost.empty()) text = "damaged at " + placeOf(faults.lost.front());
    text += "; the channel \"" + missing.name + "\" lacks pixels";
    return missing.boxes.boxes.empty() ? text
                                       : text + ", bucket " + MUtils::boxText(missing.boxes.boxes.front());
}

}  // namespace rimg_imageio
