#include "support/bounded_read.h"

#include <algorithm>

#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kUnasked = 1 << 17;     // the most that is read without asking for the stream's length
constexpr std::int64_t kFirstPiece = 1 << 20;  // of a payload whose length the stream cannot confirm
constexpr std::int64_t kLargestRead = 1 << 30;

}  // namespace

bool mayHold(PStream& stream, std::int64_t size) {
    if (size < 0) return false;
    const std::int64_t length = stream.Length();
    return length < 0 || size <= length - stream.Tell();
}

bool readPayload(PStream& stream, std::int64_t size, ByteBuffer& buffer, int& status) {
    status = 0;
    if (size < 0) return false;
    const std::int64_t length = size > kUnasked ? stream.Length() : -1;
    if (length >= 0 && size > length - stream.Tell()) {
        // As if all that is left had been read.
        status = stream.Seek(static_cast<long>(length));
        return false;
    }
    if (length >= 0) reserve(buffer, static_cast<std::size_t>(size));
    std::int64_t have = 0;
    for (std::int64_t piece = length >= 0 ? kLargestRead : kFirstPiece; have < size; piece = have) {
        const std::int64_t next = std::min({size - have, piece, kLargestRead});
        grow(buffer, static_cast<std::size_t>(have + next), static_cast<std::size_t>(have));
        int got = 0;
        status = stream.Read(buffer.data() + have, static_cast<int>(next), got);
        if (status != 0 || got < next) return false;
        have += next;
    }
    return true;
}

bool readPayload(PStream& stream, std::int64_t size, ByteBuffer& buffer) {
    int status = 0;
    return readPayload(stream, size, buffer, status);
}

bool readPayloadAt(PStream& stream, std::int64_t offset, std::int64_t size, ByteBuffer& buffer) {
    return stream.Seek(static_cast<long>(offset)) == 0 && readPayload(stream, size, buffer);
}

bool readExactly(PStream& stream, void* bytes, int size) {
    int got = 0;
    return stream.Read(bytes, size, got) == 0 && got == size;
}

}  // namespace v1
}  // namespace MUtils
