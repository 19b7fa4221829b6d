#include <climits>
#include <utility>

#include "rawimage/writer.h"

namespace {

// The bytes of width x height values, or -1 when a tag cannot hold as many.
std::int64_t valueBytes(int width, int height, int valueSize) {
    const std::int64_t count = std::int64_t{width} * height;
    const bool sound = width >= 0 && height >= 0 && count <= (INT_MAX - kTagHeaderBytes) / valueSize;
    return sound ? count * valueSize : -1;
}

// True when `data` can give `count` values of the size that the tag promises, so that the payload will have
// the length that its header says.
bool holds(const MBVTable& data, int count, int valueSize) {
    return data.itemSize == valueSize && count <= data.capacity;
}

}  // namespace

ErrorCode RIFile::WTRegion(MRRegionData* region, int /*a*/, int b, int c) {
    if (region == nullptr) return ErrorCode("WTRegion", -1, "No region data.");
    // Last channel first, deliberately: the order of the tags in the file.
    for (int i = region->numChannels() - 1; i >= 0; --i) {
        if (i >= region->channels.Count() || region->channels[i].data == nullptr) continue;
        RegionChannel& channel = region->channels[i];
        ErrorCode error = WTChan(*channel.data, 0, i, channel.name, channel.alias, channel.type, region->x0,
                                 region->y0, region->width, region->height, b, c);
        if (!error.empty()) {
            // The table still goes to the file, so that what was written stays easy to find.
            (void)Close();
            return chained(std::move(error), "WTRegion", "Error writing channel buffer.");
        }
    }
    return {};
}

ErrorCode RIFile::WTChan(MBVTable& data, int /*unused*/, int channelIndex, char* /*name*/,
                         RegionChannelAlias /*alias*/, RegionChannelType type, int x, int y, int width,
                         int height, int p6, int p7) {
    ErrorCode result = writeChannel(data, channelIndex, type, x, y, width, height, p6, p7);
    lastError = result.getError();
    return result;
}

ErrorCode RIFile::writeChannel(const MBVTable& data, int channelIndex, RegionChannelType type, int x, int y,
                               int width, int height, int p6, int p7) {
    constexpr const char* kName = "WTChan";
    if (data.capacity == 0) return ErrorCode(kName, -1, "No buffer channel.");
    const RIF_PIXEL_KIND* kind = findChannelKind(type);
    // %n stands for itself in a message; the text is known by it.
    if (kind == nullptr) return ErrorCode(kName, -1, "Unknown channel type: Id: %n", type);
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    const std::int64_t bytes = valueBytes(width, height, kind->valueSize);
    if (bytes < 0) return ErrorCode(kName, -1, "Error writing data buffer.");
    const int size = static_cast<int>(bytes);
    const int count = size / kind->valueSize;

    const bool compressed = (header.flags & RIF_COMPRESSED) != 0;
    std::size_t stored = static_cast<std::size_t>(size);
    if (compressed) {
        if (ErrorCode error = compressChannel(data, count, size, stored); !error.empty()) return error;
    } else if (!holds(data, count, kind->valueSize)) {
        return ErrorCode(kName, -1, "Error writing data buffer.");
    }
    ErrorCode headerError = WriteTagHeader(static_cast<int>(kind->tagId), static_cast<int>(stored), type, x,
                                           y, width, height, p6, p7, channelIndex);
    if (!headerError.empty()) return chained(std::move(headerError), kName, "Error writing tag header.");

    int written = 0;
    const int expected = compressed ? static_cast<int>(stored) : count;
    const int code =
        compressed ? stream->Write(zipBuf.data(), expected, written) : data.write(stream, 0, count, written);
    // An error of the stream passes, deliberately; the next tag header or Close tells it.
    if (code == 0 && written != expected) return ErrorCode(kName, -1, "Error writing data buffer.");
    return {};
}

// Compresses the first `size` bytes of `count` values to zipBuf; `zippedSize` receives the bytes there.
ErrorCode RIFile::compressChannel(const MBVTable& data, int count, int size, std::size_t& zippedSize) {
    constexpr const char* kName = "WTChan";
    memStream.Seek(0);
    int moved = 0;
    if (data.write(&memStream, 0, count, moved) == 0 && moved != count) {
        return ErrorCode(kName, -1, "Error writing data into memory stream");
    }
    // The stream is rewound and never cut, so behind what was written now lie older values: those are not
    // this channel's.
    const bool whole = memStream.Tell() == size && rawBuf.tryReserve(static_cast<std::size_t>(size));
    unsigned char* raw = rawBuf.data();
    memStream.Seek(0);
    int got = 0;
    if (!whole || (memStream.Read(raw, size, got) == 0 && got < size)) {
        return ErrorCode(kName, -1, "Error reading data buffer for compression.");
    }
    // The bound is this formula's, not zlib's own.
    const auto bound = static_cast<std::uint32_t>(size * 1.01 + 12.0);
    const bool room = zipBuf.tryReserve(bound);
    zippedSize = zipBuf.capacity();
    if (!room || deflater_.compress(zipBuf.data(), zippedSize, raw, static_cast<std::size_t>(size),
                                    kCompressionLevel) != 0) {
        return ErrorCode(kName, -1, "Error compressing data buffer.");
    }
    if (zippedSize > INT_MAX - kTagHeaderBytes) return ErrorCode(kName, -1, "Error writing data buffer.");
    return {};
}

ErrorCode RIFile::writeValues(const char* operation, std::uint32_t id, int valueSize, const MBVTable& data,
                              const std::int32_t (&p)[8]) {
    if (stream == nullptr) return ErrorCode(operation, -1, "No file stream");
    if (data.capacity == 0) return ErrorCode(operation, -1, "No data buffer.");
    const std::int64_t bytes = valueBytes(p[3], p[4], valueSize);
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
    const std::int64_t bytes = valueBytes(p4, p5, kValueSize);
    if (bytes < 0) return ErrorCode(kName, -1, "Error writing data buffer (%i).", 0);
    const int size = static_cast<int>(bytes);
    ErrorCode headerError = WriteTagHeader(TAG_CHAN_FLOAT3, size, p1, p2, p3, p4, p5, p6, p7, p8);
    if (!headerError.empty()) return chained(std::move(headerError), kName, "Error writing tag header.");
    int written = 0;
    const int code = stream->Write(values, size, written);
    if (code == 0 && written != size) return ErrorCode(kName, -1, "Error writing data buffer (%i).", code);
    return {};
}
