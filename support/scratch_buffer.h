#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "support/byte_buffer.h"

// Byte buffers as working memory: they only ever grow, to exactly the size that is asked for.

namespace MUtils {
inline namespace v1 {

inline void release(ByteBuffer& buffer) {
    buffer.bytes.reset();
    buffer.capacity = 0;
}

// Makes room for `size` bytes and returns them. When the buffer grows, its contents are undefined afterwards.
// Throws std::bad_alloc, and the buffer is then empty.
inline unsigned char* reserve(ByteBuffer& buffer, std::size_t size) {
    if (size > buffer.capacity) {
        release(buffer);
        buffer.bytes.reset(new unsigned char[size]);
        buffer.capacity = size;
    }
    return buffer.data();
}

// As reserve(), but returns false when there is no memory.
inline bool tryReserve(ByteBuffer& buffer, std::size_t size) noexcept {
    try {
        reserve(buffer, size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// As reserve(), but keeps the first `used` bytes.
inline unsigned char* grow(ByteBuffer& buffer, std::size_t size, std::size_t used) {
    if (size > buffer.capacity) {
        std::unique_ptr<unsigned char[]> larger(new unsigned char[size]);
        if (used > 0) std::memcpy(larger.get(), buffer.data(), used);
        buffer.bytes = std::move(larger);
        buffer.capacity = size;
    }
    return buffer.data();
}

}  // namespace v1
}  // namespace MUtils
