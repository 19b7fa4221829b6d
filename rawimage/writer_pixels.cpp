#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include "rawimage/packing.h"

using namespace MUtils;

namespace {

// True when `data` can give `count` values of the size that the tag promises, so that the payload will have
// the length that its header gives.
bool holds(const MBVTable& data, int count, int valueSize) {
    return data.itemSize == valueSize && count <= data.capacity;
}

// A single region.
class OneRegion final : public RegionFeed {
  public:
    explicit OneRegion(const Call& call) : call_(call) {}

    bool next(bool /*wait*/, Call& call) override {
        call = call_;
        return !std::exchange(over_, true);
    }
    void written() override {}
    void end() override {}

  private:
    const Call call_;
    bool over_ = false;
};

}  // namespace

ErrorCode RIFile::WTRegion(MRRegionData* region, int a, int b, int c) {
    if (region == nullptr) return ErrorCode("WTRegion", -1, "No region data.");
    OneRegion feed({region, a, b, c});
    return writeRegions(feed, region->channels.Count());
}

ErrorCode RIFile::WTRegions(RegionFeed& feed) {
    return writeRegions(feed, INT_MAX);
}

// `channels` is how many there are to pack at most.
ErrorCode RIFile::writeRegions(RegionFeed& feed, int channels) {
    RegionPacker* packer = startPacking(feed, channels);
    // However this ends, no thread reads a region any more.
    struct Finisher {
        RegionPacker* packer;
        ~Finisher() {
            if (packer != nullptr) packer->finish();
        }
    } finisher{packer};
    while (const std::vector<ChannelTag>* tags =
               packer != nullptr ? packer->nextRegion() : nextRegion(feed)) {
        for (std::size_t i = 0; i < tags->size(); ++i) {
            ErrorCode error = writeChannel((*tags)[i], packer, i);
            lastError = error.getError();
            if (error.empty()) continue;
            // The table still goes to the file, so that what was written stays easy to find.
            (void)Close();
            return chained(std::move(error), "WTRegion", "Error writing channel buffer.");
        }
        // A region without values writes nothing, but it comes too early all the same.
        if (mustListFirst_) return ErrorCode("WTRegion", -1, "Error writing channel buffer.");
        feed.written();
    }
    return {};
}

// The next region for this thread alone; null at the end of the feed.
const std::vector<ChannelTag>* RIFile::nextRegion(RegionFeed& feed) {
    RegionFeed::Call call;
    if (!feed.next(true, call)) return nullptr;
    listChannelTags(call, packing_->channels);
    return &packing_->channels;
}

// Lets other threads pack the regions of the feed. Returns null when this thread packs them.
RegionPacker* RIFile::startPacking(RegionFeed& feed, int channels) {
    Packing& packing = *packing_;
    const bool compressed = (header.flags & RIF_COMPRESSED) != 0;
    if (packing.threads < 2 || !compressed || channels < 2 || stream == nullptr) return nullptr;
    if (packing.packer == nullptr)
        packing.packer = std::make_unique<RegionPacker>(packing.manager, packing.threads);
    if (!packing.packer->hasThreads()) return nullptr;
    packing.packer->start(feed, packing.setting, std::min(packing.threads, channels));
    return packing.packer.get();
}

void RIFile::setCompressionThreads(ThreadManager* manager, int threads) {
    packing_->packer.reset();
    packing_->manager = manager;
    packing_->threads = threads < 1 ? MUtils::getNumProcessors() : threads;
}

void RIFile::setCompression(Compression compression) {
    packing_->setting.compression = compression;
}

void RIFile::setCompressionLevel(int level) {
    packing_->setting.level = std::clamp(level, 1, kCompressionLevel);
}

ErrorCode RIFile::WTChan(MBVTable& data, int /*unused*/, int channelIndex, char* /*name*/,
                         RegionChannelAlias /*alias*/, RegionChannelType type, int x, int y, int width,
                         int height, int p6, int p7) {
    ErrorCode result = writeChannel({&data, channelIndex, type, x, y, width, height, p6, p7}, nullptr, 0);
    lastError = result.getError();
    return result;
}

// With a packer, the channel is the one of that index in its region.
ErrorCode RIFile::writeChannel(const ChannelTag& channel, RegionPacker* packer, std::size_t index) {
    constexpr const char* kName = "WTChan";
    const MBVTable& data = *channel.data;
    if (data.capacity == 0) return ErrorCode(kName, -1, "No buffer channel.");
    const RIF_PIXEL_KIND* kind = findChannelKind(channel.type);
    // %n is no conversion in a message; the text contains it as it is.
    if (kind == nullptr) return ErrorCode(kName, -1, "Unknown channel type: Id: %n", channel.type);
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    const std::int64_t bytes = channel.bytes();
    if (bytes < 0) return ErrorCode(kName, -1, "Error writing data buffer.");
    const int count = static_cast<int>(bytes / kind->valueSize);

    const bool compressed = (header.flags & RIF_COMPRESSED) != 0;
    const unsigned char* zipped = nullptr;
    std::size_t stored = static_cast<std::size_t>(bytes);
    if (compressed) {
        if (const char* failure = pack(channel, packer, index, zipped, stored)) {
            return ErrorCode(kName, -1, "%s", failure);
        }
    } else if (!holds(data, count, kind->valueSize)) {
        return ErrorCode(kName, -1, "Error writing data buffer.");
    }
    ErrorCode headerError =
        WriteTagHeader(static_cast<int>(kind->tagId), static_cast<int>(stored), channel.type, channel.x,
                       channel.y, channel.width, channel.height, channel.p6, channel.p7, channel.index);
    if (!headerError.empty()) return chained(std::move(headerError), kName, "Error writing tag header.");

    int written = 0;
    const int expected = compressed ? static_cast<int>(stored) : count;
    const int code =
        compressed ? stream->Write(zipped, expected, written) : data.write(stream, 0, count, written);
    // An error of the stream is ignored, deliberately; the next tag header or Close reports it.
    if (code == 0 && written != expected) return ErrorCode(kName, -1, "Error writing data buffer.");
    return {};
}

// Returns null with the zlib stream of the channel, packed by other threads or by this one; else the message.
const char* RIFile::pack(const ChannelTag& channel, RegionPacker* packer, std::size_t index,
                         const unsigned char*& zipped, std::size_t& zippedSize) {
    if (packer != nullptr) return packer->take(index, zipped, zippedSize);
    const int size = static_cast<int>(zippedSize);
    const char* failure = packChannel(*channel.data, size / findChannelKind(channel.type)->valueSize, size,
                                      packing_->setting, packing_->deflater, memStream, zipBuf, zippedSize);
    zipped = zipBuf.data();
    return failure;
}

ErrorCode RIFile::writeValues(const char* operation, std::uint32_t id, int valueSize, const MBVTable& data,
                              const std::int32_t (&p)[8]) {
    if (stream == nullptr) return ErrorCode(operation, -1, "No file stream");
    if (data.capacity == 0) return ErrorCode(operation, -1, "No data buffer.");
    const std::int64_t bytes = pixelTagBytes(p[3], p[4], valueSize);
    const int count = static_cast<int>(bytes / valueSize);
    if (bytes < 0 || !holds(data, count, valueSize))
        return ErrorCode(operation, -1, "Error writing data buffer.");
    ErrorCode headerError = WriteTagHeader(static_cast<int>(id), static_cast<int>(bytes), p[0], p[1], p[2],
                                           p[3], p[4], p[5], p[6], p[7]);
    if (!headerError.empty()) return chained(std::move(headerError), operation, "Error writing tag header.");
    int written = 0;
    if (data.write(stream, 0, count, written) == 0 && written != count) {
        return ErrorCode(operation, -1, "Error writing data buffer.");
    }
    return {};
}

ErrorCode RIFile::WTInt(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8) {
    return writeValues("WTInt", TAG_CHAN_INT, 4, data, {p1, p2, p3, p4, p5, p6, p7, p8});
}

ErrorCode RIFile::WTFloat(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8) {
    return writeValues("WTFloat", TAG_CHAN_FLOAT, 4, data, {p1, p2, p3, p4, p5, p6, p7, p8});
}

ErrorCode RIFile::WT2Float(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8) {
    return writeValues("WT2Float", TAG_CHAN_FLOAT2, 8, data, {p1, p2, p3, p4, p5, p6, p7, p8});
}

ErrorCode RIFile::WT3Float(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8) {
    return writeValues("WT3Float", TAG_CHAN_FLOAT3, 12, data, {p1, p2, p3, p4, p5, p6, p7, p8});
}

ErrorCode RIFile::_WT3Float(float* values, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8) {
    constexpr const char* kName = "_WT3Float";
    constexpr int kValueSize = 12;
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    if (values == nullptr) return ErrorCode(kName, -1, "No data buffer.");
    const std::int64_t bytes = pixelTagBytes(p4, p5, kValueSize);
    if (bytes < 0) return ErrorCode(kName, -1, "Error writing data buffer (%i).", 0);
    const int size = static_cast<int>(bytes);
    ErrorCode headerError = WriteTagHeader(TAG_CHAN_FLOAT3, size, p1, p2, p3, p4, p5, p6, p7, p8);
    if (!headerError.empty()) return chained(std::move(headerError), kName, "Error writing tag header.");
    int written = 0;
    const int code = stream->Write(values, size, written);
    if (code == 0 && written != size) return ErrorCode(kName, -1, "Error writing data buffer (%i).", code);
    return {};
}
