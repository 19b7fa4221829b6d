#include "bench/direct_exr.h"

#include <Imath/half.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfInputPart.h>
#include <OpenEXR/ImfMultiPartInputFile.h>
#include <OpenEXR/ImfMultiPartOutputFile.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfOutputPart.h>
#include <OpenEXR/ImfTiledOutputFile.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "bench/harness.h"
#include "exr/channel_map.h"
#include "rawimage/output_queue.h"

using namespace MUtils;

namespace bench {

namespace {

// Where a slice begins whose first value is pixel (x, y).
char* originOf(const void* first, int x, int y, std::size_t xStride, std::size_t yStride) {
    const auto offset = static_cast<std::intptr_t>(xStride) * x + static_cast<std::intptr_t>(yStride) * y;
    return reinterpret_cast<char*>(reinterpret_cast<std::intptr_t>(first) - offset);
}

float floatAt(const MBVTable& values, int index, int component) {
    float value;
    std::memcpy(&value, values.item(index) + 4 * component, sizeof value);
    return value;
}

constexpr int kTile = 64;
constexpr int kPartWidth = 15 * kTile;
constexpr int kPartHeight = 8 * kTile;

}  // namespace

ExrPart::ExrPart(const std::string& path, bool tiled) : frame(Frame::load(path)) {
    const int left = (frame.width - kPartWidth) / 2, top = (frame.height - kPartHeight) / 2;
    const int width = tiled ? kTile : kPartWidth, height = tiled ? kTile : kPartHeight;
    for (int y = 0; y < kPartHeight; y += height) {
        for (int x = 0; x < kPartWidth; x += width) {
            regions.push_back(frame.crop(left + x, top + y, width, height));
            regions.back().x = x;
            regions.back().y = y;
        }
    }
    frame.buckets.clear();
    frame.width = kPartWidth;
    frame.height = kPartHeight;
}

void readBand(Imf::InputFile& file, int first, int last, const char* without, Bytes& values) {
    const int width = file.header().dataWindow().max.x + 1;
    const std::size_t stride = static_cast<std::size_t>(width) * 4;
    const std::size_t plane = stride * static_cast<std::size_t>(last - first + 1);
    std::vector<std::string> names;
    for (auto c = file.header().channels().begin(); c != file.header().channels().end(); ++c) {
        if (without == nullptr || std::strcmp(c.name(), without) != 0) names.emplace_back(c.name());
    }
    values.resize(plane * names.size());
    Imf::FrameBuffer buffer;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Imf::PixelType type = file.header().channels()[names[i]].type;
        buffer.insert(names[i], Imf::Slice::Make(type, values.data() + i * plane, {0, first}, width,
                                                 last - first + 1, 4, stride));
    }
    file.setFrameBuffer(buffer);
    file.readPixels(first, last);
}

void readExr(const std::string& path) {
    constexpr int kRows = 64;
    Imf::InputFile file(path.c_str());
    const int last = file.header().dataWindow().max.y;
    Bytes values;
    for (int y = 0; y <= last; y += kRows)
        readBand(file, y, std::min(y + kRows - 1, last), nullptr, values);
}

void writeOurExr(const ExrSource& source, const ExrLayout& layout, const std::string& path, bool queued) {
    const Frame& frame = source.frame;
    const Bucket& first = source.regions.front();
    ChannelList channels(frame.channels);
    ExrFile file(layout.kind);
    OutputQueue queue(file);
    RIFileBase& output = queued ? static_cast<RIFileBase&>(queue) : file;
    const bool tiled = layout.kind == ExrFile::kTiled;
    bool good = output.Create(path.c_str(), nullptr).empty() && output.WriteHeader(layout.bits).empty() &&
                output.WTResolution(frame.width, frame.height, 1.0f).empty();
    if (tiled) good = good && output.WTRegionsInfo(first.width, first.height, 0).empty();
    file.setCompressionType(layout.compression);
    good = good && output.WTChannelInfo(channels.table()).empty();
    MRRegionData region;
    for (const Bucket& bucket : source.regions) {
        frame.describe(bucket, region);
        good = good && output.WTRegion(&region, 0, 0, 0).empty();
    }
    require(output.Close().empty() && good, "our EXR writer failed");
}

DirectExr::DirectExr(const ExrSource& source, const ExrLayout& layout, const std::string& ours)
    : source_(source), layout_(layout) {
    const std::vector<RIF_CHANNEL>& channels = source.frame.channels;
    for (std::size_t c = 0; c < channels.size(); ++c) {
        const ExrChannelRule& rule = *findExrChannelRule(channels[c].type, channels[c].alias, false);
        const ExrNames names = exrChannelNames(rule, channels[c].name, EmptyBase::kLabelAlone);
        for (int i = 0; i < rule.channels; ++i) {
            places_[names[static_cast<std::size_t>(i)].c_str()] = {c, i, rule.components, rule.isInteger()};
        }
    }
    Imf::MultiPartInputFile file(ours.c_str());
    for (int part = 0; part < file.parts(); ++part)
        headers_.push_back(file.header(part));
}

const DirectExr::Place& DirectExr::placeOf(const Imf::Header& header, const std::string& channel) const {
    const std::string part = header.hasName() ? header.name() : "";
    const bool prefixed = !part.empty() && part != "other";
    return places_.at(prefixed ? part + '.' + channel : channel);
}

void DirectExr::addSlices(const Imf::Header& header, const Bucket& region,
                          std::vector<std::vector<unsigned short>>& planes, Imf::FrameBuffer& buffer) const {
    const auto width = static_cast<std::size_t>(region.width);
    for (auto c = header.channels().begin(); c != header.channels().end(); ++c) {
        const Place& place = placeOf(header, c.name());
        const MBVTable& values = *region.values[place.channel];
        if (layout_.bits > 16 || place.integer) {
            const auto stride = static_cast<std::size_t>(values.itemSize);
            buffer.insert(c.name(), Imf::Slice(place.integer ? Imf::UINT : Imf::FLOAT,
                                               originOf(values.item(0) + 4 * place.component, region.x,
                                                        region.y, stride, stride * width),
                                               stride, stride * width));
            continue;
        }
        std::vector<unsigned short>& plane =
            planes.emplace_back(width * static_cast<std::size_t>(region.height));
        const auto* floats = reinterpret_cast<const float*>(values.item(0)) + place.component;
        for (std::size_t i = 0; i < plane.size(); ++i)
            plane[i] = half(floats[i * static_cast<std::size_t>(place.components)]).bits();
        buffer.insert(
            c.name(),
            Imf::Slice(Imf::HALF, originOf(plane.data(), region.x, region.y, 2, 2 * width), 2, 2 * width));
    }
}

void DirectExr::writeScanlines(const std::string& path) const {
    const Bucket& region = source_.regions.front();
    std::vector<std::vector<unsigned short>> planes;
    if (headers_.size() == 1) {
        Imf::FrameBuffer buffer;
        addSlices(headers_.front(), region, planes, buffer);
        Imf::OutputFile file(path.c_str(), headers_.front());
        file.setFrameBuffer(buffer);
        file.writePixels(region.height);
        return;
    }
    Imf::MultiPartOutputFile file(path.c_str(), headers_.data(), static_cast<int>(headers_.size()));
    for (int part = 0; part < file.parts(); ++part) {
        planes.clear();
        Imf::FrameBuffer buffer;
        addSlices(file.header(part), region, planes, buffer);
        Imf::OutputPart output(file, part);
        output.setFrameBuffer(buffer);
        output.writePixels(region.height);
    }
}

void DirectExr::writeTiles(const std::string& path) const {
    Imf::TiledOutputFile file(path.c_str(), headers_.front());
    std::vector<std::vector<unsigned short>> planes;
    for (const Bucket& tile : source_.regions) {
        Imf::FrameBuffer buffer;
        addSlices(headers_.front(), tile, planes, buffer);
        file.setFrameBuffer(buffer);
        file.writeTile(tile.x / source_.regions.front().width, tile.y / source_.regions.front().height);
    }
}

void DirectExr::write(const std::string& path) const {
    layout_.kind == ExrFile::kTiled ? writeTiles(path) : writeScanlines(path);
}

bool DirectExr::holds(const std::string& path) const {
    Imf::MultiPartInputFile file(path.c_str());
    bool same = file.parts() == static_cast<int>(headers_.size());
    for (int part = 0; same && part < file.parts(); ++part)
        same = partHolds(file, part);
    return same;
}

bool DirectExr::partHolds(Imf::MultiPartInputFile& file, int part) const {
    const Imf::Header& header = file.header(part);
    const Imath::Box2i window = header.dataWindow();
    const Frame& frame = source_.frame;
    std::map<std::string, std::vector<std::uint32_t>> planes;
    Imf::FrameBuffer buffer;
    for (auto c = header.channels().begin(); c != header.channels().end(); ++c) {
        auto& plane = planes[c.name()];
        plane.resize(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height));
        const auto stride = static_cast<std::size_t>(frame.width) * 4;
        buffer.insert(c.name(), Imf::Slice(placeOf(header, c.name()).integer ? Imf::UINT : Imf::FLOAT,
                                           reinterpret_cast<char*>(plane.data()), 4, stride));
    }
    Imf::InputPart input(file, part);
    input.setFrameBuffer(buffer);
    input.readPixels(window.min.y, window.max.y);
    for (const auto& [name, plane] : planes) {
        const Place& place = placeOf(header, name);
        for (const Bucket& region : source_.regions) {
            for (int i = 0; i < region.width * region.height; ++i) {
                const int x = region.x + i % region.width, y = region.y + i / region.width;
                const std::uint32_t& bits = plane[static_cast<std::size_t>(y * frame.width + x)];
                float stored, given = floatAt(*region.values[place.channel], i, place.component);
                std::memcpy(&stored, &bits, sizeof stored);
                if (std::memcmp(&stored, &given, sizeof given) == 0) continue;
                if (place.integer) return false;
                if (layout_.bits <= 16) given = half(given);
                const bool mean = name == "A" && std::fabs(stored - given) <= 1e-3f * std::fabs(given);
                if (!mean && stored != given && !std::isnan(given)) return false;
            }
        }
    }
    return true;
}

}  // namespace bench
