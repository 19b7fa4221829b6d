#include "oiio/region_writer.h"

#include <algorithm>
#include <cstdio>

#include "rawimage/format.h"

namespace rimg_imageio {

namespace {

using MUtils::GroupedChannel;
using MUtils::PixelBox;
using OIIO::TypeDesc;

constexpr int kBitsPerChannel = 32;
constexpr int kRegionSet = 0;

TypeDesc typeOf(const OIIO::ImageSpec& spec, int channel) {
    return spec.channelformat(channel);
}

bool isInteger(const TypeDesc& type) {
    return type.basetype == TypeDesc::UINT32 || type.basetype == TypeDesc::INT32;
}

MUtils::Grouping groupingOf(const OIIO::ImageSpec& spec) {
    std::vector<MUtils::SourceChannel> channels;
    for (int i = 0; i < spec.nchannels; ++i)
        channels.push_back({0, spec.channel_name(i), isInteger(typeOf(spec, i))});
    return MUtils::groupChannels({""}, channels);
}

std::string textOf(const ErrorCode& error) {
    return error.empty() ? "" : error.describe();
}

int number(std::int64_t n) {
    return static_cast<int>(n);
}

}  // namespace

RegionWriter::RegionWriter(const OIIO::ImageSpec& spec, int bucketWidth, int bucketHeight)
    : spec_(spec),
      bucketWidth_(bucketWidth),
      bucketHeight_(bucketHeight),
      window_(MUtils::boxAt(spec.x, spec.y, spec.width, spec.height)),
      grouping_(groupingOf(spec)),
      tags_(tagValues(spec)) {
    std::size_t offset = 0;
    for (int i = 0; i < spec.nchannels; ++i) {
        offsets_.push_back(offset);
        offset += typeOf(spec, i).size();
        // Those that the reader does not take from the file's own types.
        const auto type = static_cast<TypeDesc::BASETYPE>(typeOf(spec, i).basetype);
        if (type == TypeDesc::HALF || type == TypeDesc::INT32) tags_.extra.types[spec.channel_name(i)] = type;
    }
    tags_.extra.originX = spec.full_x;
    tags_.extra.originY = spec.full_y;
    for (const GroupedChannel& channel : grouping_.channels) {
        const int valueBytes = MUtils::findChannelKind(channel.type)->valueSize;
        tables_.push_back(std::make_unique<MBVTable>(valueBytes, 0));
        tables_.back()->initNotResizable(bucketWidth * bucketHeight, valueBytes, MUtils::kMaxBlockBytes);
        RegionChannel entry;
        entry.type = channel.type;
        entry.alias = channel.alias;
        entry.data = tables_.back().get();
        std::snprintf(entry.name, sizeof entry.name, "%s", channel.name.c_str());
        region_.channels.Add(entry);
    }
}

std::string RegionWriter::create(const std::string& name, PStream* stream, int threads,
                                 MUtils::Compression compression) {
    file_.setCompressionThreads(nullptr, threads);
    file_.setCompression(compression);
    ErrorCode error = writeHead(name, stream);
    if (error.empty()) error = writeMetadata();
    return textOf(error);
}

ErrorCode RegionWriter::writeHead(const std::string& name, PStream* stream) {
    std::vector<MUtils::GroupedDescription> descriptions(grouping_.channels.begin(),
                                                         grouping_.channels.end());
    MUtils::Table<RegionChannelCallback*, 100> list;
    for (MUtils::GroupedDescription& description : descriptions)
        list.Add(&description);
    ErrorCode error = queue_.Create(name.c_str(), stream);
    if (error.empty()) error = queue_.WriteHeader(kBitsPerChannel);
    if (error.empty()) error = queue_.WTResolution(spec_.full_width, spec_.full_height, tags_.pixelAspect);
    if (error.empty()) error = queue_.WTRegionsInfo(bucketWidth_, bucketHeight_, 0);
    if (error.empty()) error = queue_.WTChannelInfo(&list);
    const PixelBox frame = MUtils::boxAt(spec_.full_x, spec_.full_y, spec_.full_width, spec_.full_height);
    if (!error.empty() || window_ == frame) return error;
    return queue_.WTRenderRegion({kRegionSet, number(window_.x0 - frame.x0), number(window_.y0 - frame.y0),
                                  spec_.width, spec_.height});
}

ErrorCode RegionWriter::writeMetadata() {
    ErrorCode error;
    if (tags_.camera) error = queue_.WTCameraInfo(*tags_.camera);
    if (error.empty() && tags_.scene) {
        RISceneInfo scene(tags_.sceneValue, tags_.scene->c_str());
        error = queue_.WTSceneInfo(scene);
    }
    if (error.empty() && tags_.stampText) error = queue_.WTStampText(tags_.stampText->c_str());
    if (error.empty() && tags_.note) {
        const std::string note = tags_.note->substr(0, MUtils::kNoteBytes - 1);
        error = queue_.run([&] { return file_.addNote(note.c_str()); });
    }
    std::string extra = encodeExtra(tags_.extra);
    if (!error.empty() || extra.empty()) return error;
    return queue_.run([&] { return file_.WTMirtSettings(extra.data(), static_cast<int>(extra.size())); });
}

std::string RegionWriter::write(const PixelBox& box, const unsigned char* pixels, std::size_t rowBytes) {
    const std::size_t pixelBytes = spec_.pixel_bytes(true);
    const auto cut = [](std::int64_t at, std::int64_t first, std::int64_t size) {
        return first + ((at - first) / size + 1) * size;
    };
    for (std::int64_t y = box.y0; y < box.y1;) {
        const std::int64_t below = std::min(cut(y, window_.y0, bucketHeight_), box.y1);
        for (std::int64_t x = box.x0; x < box.x1;) {
            const std::int64_t right = std::min(cut(x, window_.x0, bucketWidth_), box.x1);
            const unsigned char* first = pixels + static_cast<std::size_t>(y - box.y0) * rowBytes +
                                         static_cast<std::size_t>(x - box.x0) * pixelBytes;
            const ErrorCode error = writeBucket({x, y, right, below}, first, rowBytes);
            if (!error.empty()) return textOf(error);
            x = right;
        }
        y = below;
    }
    return "";
}

ErrorCode RegionWriter::writeBucket(const PixelBox& box, const unsigned char* pixels, std::size_t rowBytes) {
    region_.x0 = number(box.x0 - spec_.full_x);
    region_.y0 = number(box.y0 - spec_.full_y);
    region_.width = number(box.width());
    region_.height = number(box.height());
    region_.x1 = region_.x0 + region_.width;
    region_.y1 = region_.y0 + region_.height;
    for (std::size_t i = 0; i < tables_.size(); ++i)
        loadChannel(i, region_.width, region_.height, pixels, rowBytes);
    return queue_.WTRegion(&region_, 0, 0, 0);
}

void RegionWriter::loadChannel(std::size_t index, int width, int height, const unsigned char* pixels,
                               std::size_t rowBytes) {
    const GroupedChannel& channel = grouping_.channels[index];
    const auto components = static_cast<std::size_t>(channel.components);
    const auto pixelBytes = static_cast<OIIO::stride_t>(spec_.pixel_bytes(true));
    const auto valueBytes = static_cast<OIIO::stride_t>(components * sizeof values_[0]);
    values_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * components);
    for (std::size_t c = 0; c < components; ++c) {
        const int source = channel.sources[c];
        const TypeDesc from = typeOf(spec_, source);
        OIIO::convert_image(1, width, height, 1, pixels + offsets_[static_cast<std::size_t>(source)], from,
                            pixelBytes, static_cast<OIIO::stride_t>(rowBytes), OIIO::AutoStride,
                            values_.data() + c, isInteger(from) ? from : OIIO::TypeFloat, valueBytes,
                            valueBytes * width, OIIO::AutoStride);
    }
    tables_[index]->loadFromBuffer(values_.data(), width * height);
}

std::string RegionWriter::writeThumbnail(std::vector<RGB24> pixels, int width, int height) {
    return textOf(queue_.run([&] { return file_.WTPreview(pixels.data(), width, height); }));
}

std::string RegionWriter::close() {
    return textOf(queue_.Close());
}

}  // namespace rimg_imageio
