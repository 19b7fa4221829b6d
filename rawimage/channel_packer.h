#pragma once

#include <cstddef>

#include "support/byte_buffer.h"
#include "support/deflate.h"
#include "support/mbvtable.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// packChannel's message when there is no memory or the stream is larger than a tag can be.
constexpr const char* kNotPacked = "Error compressing data buffer.";

// Packs the first `count` values of a channel, `size` bytes in all, into one zlib stream at the start of
// `zipBuf`, whose first `zippedSize` bytes it then is. Values in several blocks are gathered in `memStream`,
// which is open. Null on success, else the message of the step that failed; the buffers keep what memory they
// got.
const char* packChannel(const MBVTable& data, int count, int size, const CompressionSetting& setting,
                        Deflater& deflater, PMemStream& memStream, ByteBuffer& zipBuf,
                        std::size_t& zippedSize);

}  // namespace v1
}  // namespace MUtils
