#pragma once

#include <cstdint>

#include "support/byte_buffer.h"
#include "support/pstream.h"

// Reads of sizes that a file states. No size is trusted: it is checked against what the stream holds, or read
// in growing pieces where the stream does not know its length, before memory is allocated for it.

namespace MUtils {
inline namespace v1 {

// True when `stream` may hold `size` more bytes: false when it knows that it does not, or `size` is negative.
bool mayHold(PStream& stream, std::int64_t size);

// Reads exactly `size` bytes to `buffer`, which grows with what really comes when the stream does not know
// its length. False when the stream fails or ends first; `status` receives the stream's code, which is 0 when
// it ended.
bool readPayload(PStream& stream, std::int64_t size, ByteBuffer& buffer, int& status);
bool readPayload(PStream& stream, std::int64_t size, ByteBuffer& buffer);

// Reads exactly `size` bytes at `offset`; false when the stream fails or ends first.
bool readPayloadAt(PStream& stream, std::int64_t offset, std::int64_t size, ByteBuffer& buffer);

// Reads exactly `size` bytes; false when the stream fails or gives fewer.
bool readExactly(PStream& stream, void* bytes, int size);

}  // namespace v1
}  // namespace MUtils
