#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace MUtils {

// A block of bytes that is reused from call to call and only ever grows. Growing drops the old contents and
// allocates exactly what was asked for.
class ScratchBuffer {
  public:
    unsigned char* data() { return bytes_.get(); }
    const unsigned char* data() const { return bytes_.get(); }
    std::size_t capacity() const { return capacity_; }

    // Makes room for `size` bytes; the contents are undefined afterwards when it grew. Throws std::bad_alloc,
    // and is then empty.
    unsigned char* reserve(std::size_t size) {
        if (size > capacity_) {
            release();
            bytes_.reset(new unsigned char[size]);
            capacity_ = size;
        }
        return bytes_.get();
    }

    // As reserve(), but false when there is no memory.
    bool tryReserve(std::size_t size) noexcept {
        try {
            reserve(size);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    // As reserve(), but keeps the first `used` bytes.
    unsigned char* grow(std::size_t size, std::size_t used) {
        if (size > capacity_) {
            std::unique_ptr<unsigned char[]> larger(new unsigned char[size]);
            if (used > 0) std::memcpy(larger.get(), bytes_.get(), used);
            bytes_ = std::move(larger);
            capacity_ = size;
        }
        return bytes_.get();
    }

    void release() {
        bytes_.reset();
        capacity_ = 0;
    }

  private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t capacity_ = 0;
};

}  // namespace MUtils
