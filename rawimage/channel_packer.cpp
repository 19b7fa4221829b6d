#include "rawimage/channel_packer.h"

#include <climits>
#include <cstdint>

#include "rawimage/format.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kNotGathered = "Error writing data into memory stream";
constexpr const char* kNotRead = "Error reading data buffer for compression.";

// The values as one run of bytes: those of the table's only block as they lie, those of several blocks
// through the stream, which is rewound and never cut, so that only as many bytes as went in now are this
// channel's.
const char* gather(const MBVTable& data, int count, int size, PMemStream& memStream,
                   const unsigned char*& bytes) {
    if (count > data.capacity) return kNotGathered;
    if (std::int64_t{count} * data.itemSize != size) return kNotRead;
    if (data.numBlocks == 1) {
        bytes = data.blocks[0];
        return nullptr;
    }
    memStream.Seek(0);
    int moved = 0;
    const int code = data.write(&memStream, 0, count, moved);
    if (code != 0 || moved != count) return code != 0 ? kNotRead : kNotGathered;
    bytes = memStream.GetBuf();
    return nullptr;
}

}  // namespace

const char* packChannel(const MBVTable& data, int count, int size, const CompressionSetting& setting,
                        Deflater& deflater, PMemStream& memStream, ByteBuffer& zipBuf,
                        std::size_t& zippedSize) {
    const unsigned char* bytes = nullptr;
    if (const char* failure = gather(data, count, size, memStream, bytes)) return failure;
    const auto rawSize = static_cast<std::size_t>(size);
    if (!tryReserve(zipBuf, deflateBound(rawSize))) return kNotPacked;
    zippedSize = zipBuf.capacity;
    const int code = deflater.compress(zipBuf.data(), zippedSize, bytes, rawSize, setting);
    return code != 0 || zippedSize > INT_MAX - kTagHeaderBytes ? kNotPacked : nullptr;
}

}  // namespace v1
}  // namespace MUtils
