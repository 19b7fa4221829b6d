#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfOutputPart.h>
#include <ImfThreading.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "exr/header_facts.h"
#include "exr/scanline_file.h"
#include "exr/slices.h"
#include "support/scratch_buffer.h"

using namespace MUtils;

namespace {

// What a chunk of scan lines may take at 12 bytes a pixel, and what its channels take together: the library
// reads staged rows while they are in the cache.
constexpr std::int64_t kChunkBytes = 33554432;
constexpr std::int64_t kCacheBytes = 2 << 20;
// So that a chunk keeps every thread busy.
constexpr std::int64_t kBlocksPerThread = 4;
// The most threads that OpenEXR is asked for, as a multiple of those in its pool.
constexpr std::int64_t kMostThreads = 8;

// Each three floats become their mean. The order of the sum and the factor are part of the result's last bit.
void averageValues(float* values, int count) {
    for (float* c = values; c != values + std::int64_t{count} * 3; c += 3) {
        const float mean = (c[1] + c[0] + c[2]) * 0.33333334f;
        c[0] = c[1] = c[2] = mean;
    }
}

}  // namespace

ErrorCode ExrFileData::writeRegion(MUtils::MRRegionData* region) {
    given = window.empty() ? MUtils::PixelBox{0, 0, width, height} : window;
    if (region->width != given.width() || region->height != given.height()) return {};
    if (ErrorCode error = checkChannelsOf(*region); !error.empty()) return error;
    dataWindow = given;
    if (autoDataWindow != 0) trimDataWindow(*region);
    if (ErrorCode error = createHeaders(); !error.empty()) return error;
    if (fileCreated == 0) {
        if (ErrorCode error = createFile(); !error.empty()) return error;
    }
    if (file == nullptr) return ErrorCode("writeRegion", -1, "The OpenExr file could not be created");
    requireOpenedLayout();
    for (int i = 0; i < headerCount; ++i)
        writePart(partAt(i), *region);
    return {};
}

// A channel that would be black although the region has it is an error, and nothing is written.
ErrorCode ExrFileData::checkChannelsOf(const MUtils::MRRegionData& region) const {
    for (const ExrChanInfo& info : channels) {
        const bool announced = findExrChannelRule(info.type, RCA_NONE, false) != nullptr;
        if (!announced || info.index >= region.channels.Count()) continue;
        const MUtils::RegionChannel& channel = region.channels[info.index];
        if (!isGiven(channel)) continue;
        if (ErrorCode error = checkValues(channel, info.index, info.type, region.width, region.height);
            !error.empty())
            return error;
    }
    return {};
}

// The first channel with the alpha alias decides, in the region's order.
void ExrFileData::trimDataWindow(const MUtils::MRRegionData& region) {
    const auto* alpha =
        std::find_if(region.channels.begin(), region.channels.end(),
                     [](const MUtils::RegionChannel& channel) { return channel.alias == RCA_ALPHA; });
    if (alpha == region.channels.end() || !holdsValues(alpha->data, region.width, region.height, 12)) return;
    const MUtils::PixelBox box = findVisibleBox(*alpha->data, region.width, region.height);
    if (box.empty()) return;
    dataWindow = MUtils::boxAt(given.x0 + box.x0, given.y0 + box.y0, box.width(), box.height());
}

// The file stays open from frame to frame while headers are built for each. Memory is laid out for the
// present ones.
void ExrFileData::requireOpenedLayout() const {
    bool same = file->parts() == headerCount;
    for (int part = 0; same && part < headerCount; ++part) {
        const Imf::Header& opened = file->header(part);
        const Imf::Header& present = header[static_cast<std::size_t>(part)];
        same = opened.dataWindow() == present.dataWindow() && opened.channels() == present.channels();
    }
    if (!same) throw std::runtime_error("The open file was made for another frame");
}

// Whole compression blocks, so that none is split between two writes: as many as the cache holds and the
// threads need, within the budget.
int ExrFileData::chunkLines(int part, const MUtils::MRRegionData& region) const {
    const std::int64_t rowLength = dataWindow.width();
    std::int64_t rowBytes = 1;
    for (const ExrChanInfo& info : channels) {
        const MBVTable* data = info.part == part ? dataOf(info, region) : nullptr;
        if (data != nullptr) rowBytes += rowLength * data->itemSize;
    }
    const std::int64_t block = MUtils::linesPerBlock(header[0].compression());
    const std::int64_t useful =
        std::max(kCacheBytes / rowBytes, block * kBlocksPerThread * Imf::globalThreadCount());
    const std::int64_t fitting = std::max<std::int64_t>(std::min(useful, kChunkBytes / (rowLength * 12)), 1);
    const std::int64_t lines = (fitting + block - 1) / block * block;
    return static_cast<int>(std::min(lines, dataWindow.height()));
}

// The library has two blocks under way for each thread that it is asked for; how many threads there are is
// settled elsewhere. Packing a block of one scan line is so short a job that two are not enough: the threads
// would spend their time on waking each other.
int ExrFileData::threadsToAskFor() const {
    const int threads = Imf::globalThreadCount();
    if (MUtils::linesPerBlock(header[0].compression()) > 1) return threads;
    std::int64_t rowBytes = 1;
    for (int part = 0; part < headerCount; ++part) {
        std::int64_t pixelBytes = 0;
        const Imf::ChannelList& list = header[static_cast<std::size_t>(part)].channels();
        for (auto c = list.begin(); c != list.end(); ++c)
            pixelBytes += c.channel().type == Imf::HALF ? 2 : 4;
        rowBytes = std::max(rowBytes, pixelBytes * dataWindow.width());
    }
    const std::int64_t useful = kCacheBytes / (2 * rowBytes);
    return static_cast<int>(std::clamp(useful, std::int64_t{threads}, threads * kMostThreads));
}

// The main part is written first, wherever it is in the list.
int ExrFileData::partAt(int position) const {
    if (mainPart < 1 || mainPart >= headerCount) return position;
    if (position == 0) return mainPart;
    return position == mainPart ? 0 : position;
}

void ExrFileData::writePart(int part, MUtils::MRRegionData& region) {
    Imf::OutputPart output(*file, part);
    const int lines = chunkLines(part, region);
    Imf::FrameBuffer frameBuffer;
    setupFrameBuffer(part, frameBuffer, region, lines);
    const auto endY = static_cast<int>(dataWindow.y1);
    for (int y = static_cast<int>(dataWindow.y0), rows = 0; y < endY; y += rows) {
        // OpenEXR continues with the next row, and would read behind the staged rows before it notices.
        if (output.currentScanLine() != y + originY)
            throw std::runtime_error("Scan lines of this frame are already written");
        rows = std::min(lines, endY - y);
        moveSlices(frameBuffer, std::int64_t{chunkStartY} - y);
        output.setFrameBuffer(frameBuffer);
        chunkStartY = y;
        for (int i = 0; i < channels.Count(); ++i) {
            const MBVTable* data = channels[i].part == part ? dataOf(channels[i], region) : nullptr;
            if (data != nullptr) stageRows(i, *data, y, rows);
        }
        writePixels([&] { output.writePixels(rows); });
    }
}

void ExrFileData::setupFrameBuffer(int part, Imf::FrameBuffer& frameBuffer, MUtils::MRRegionData& region,
                                   int lines) {
    chunkStartY = static_cast<int>(dataWindow.y0);
    for (int i = 0; i < channels.Count(); ++i) {
        const ExrChanInfo& info = channels[i];
        if (info.part != part || dataOf(info, region) == nullptr) continue;
        const ExrChannelRule& rule = *findExrChannelRule(info.type, info.alias, severalDepthChannels != 0);
        const std::int64_t bytes = lines * dataWindow.width() * rule.valueBytes();
        const ValueGrid grid = {reserve(stagingBuffers[i], static_cast<std::size_t>(bytes)),
                                static_cast<int>(dataWindow.x0) + originX,
                                static_cast<int>(dataWindow.y0) + originY,
                                static_cast<int>(dataWindow.width())};
        insertSlices(frameBuffer, rule, info.exrNames, pixelType, grid);
    }
}

// Null for a channel that the region has no values of.
const MBVTable* ExrFileData::dataOf(const ExrChanInfo& info, const MUtils::MRRegionData& region) const {
    if (info.index >= region.channels.Count()) return nullptr;
    const MUtils::RegionChannel& channel = region.channels[info.index];
    return isGiven(channel) ? channel.data : nullptr;
}

// Brings the data window's part of `rows` rows from image row `y` on into the channel's staging buffer. Row
// by row, while a row is in the cache. Colour or vector: three floats with the alpha alias become their mean.
void ExrFileData::stageRows(int channel, const MBVTable& data, int y, int rows) {
    const ExrChanInfo& info = channels[channel];
    const ExrChannelRule& rule = *findExrChannelRule(info.type, info.alias, severalDepthChannels != 0);
    const auto rowLength = static_cast<int>(dataWindow.width());
    unsigned char* staged = stagingBuffers[channel].data();
    for (int row = y; row < y + rows; ++row, staged += std::int64_t{rowLength} * rule.valueBytes()) {
        const std::int64_t first = (row - given.y0) * given.width() + dataWindow.x0 - given.x0;
        data.storeToBuffer(staged, static_cast<int>(first), rowLength);
        if (rule.isInteger()) continue;
        auto* floats = reinterpret_cast<float*>(staged);
        if (rule.components == 3 && info.alias == RCA_ALPHA) averageValues(floats, rowLength);
        // In pieces: the numbers of a long row together are more than an int counts.
        for (int component = 0; component < rule.components; ++component)
            convertToHalf(floats + std::int64_t{component} * rowLength, rowLength);
    }
}
