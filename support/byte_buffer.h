#pragma once

#include <cstddef>
#include <memory>

namespace MUtils {
inline namespace v1 {

// A block of bytes that an object owns and reuses from call to call.
struct ByteBuffer {
    std::unique_ptr<unsigned char[]> bytes;
    std::size_t capacity = 0;

    unsigned char* data() { return bytes.get(); }
    const unsigned char* data() const { return bytes.get(); }
};

}  // namespace v1
}  // namespace MUtils
