#pragma once

#include <cstddef>
#include <memory>

#include "support/compression.h"

namespace MUtils {
inline namespace v1 {

// Both classes answer zlib's own result codes (0 is success) and keep their working memory from call to call,
// so that a file of thousands of payloads allocates once. One object serves one thread at a time.

// What to compress with.
struct CompressionSetting {
    Compression compression;
    int level;  // of kSmall, 1 (fast) to 9 (small)
};

// The most bytes that a stream of `size` bytes takes, whatever makes it.
constexpr std::size_t deflateBound(std::size_t size) {
    return size + size / 100 + 12;
}

class Compressor;
class Decompressor;

// Compresses whole buffers. The bytes depend on the values and the setting only, not on the room nor on what
// the object did before; those of kSmall are those of zlib's compress2.
class Deflater {
  public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    // Compresses `size` bytes of `data` to one zlib stream in `out`. `outSize` holds the room in `out` and
    // receives the stream's length, 0 after a failure; deflateBound(size) is always enough. More than INT_MAX
    // bytes are refused. `data` may be null when `size` is 0.
    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data, std::size_t size,
                 const CompressionSetting& setting);

  private:
    std::unique_ptr<Compressor> chosen_;
    CompressionSetting made_{};          // the setting that chosen_ is for
    std::unique_ptr<Compressor> plain_;  // for what chosen_ has no room for
};

// Where the bytes of a zlib stream come from and where the inflated ones go, piece by piece.
class InflateFlow {
  public:
    struct Input {
        const unsigned char* data = nullptr;
        std::size_t size = 0;  // 0 at the end; less than 4 GiB
    };
    struct Room {
        unsigned char* data = nullptr;
        std::size_t size = 0;  // 0 when there is no more; less than 4 GiB
    };
    // The one before has been used up. Both may be asked again at the end.
    virtual Input nextInput() = 0;
    virtual Room nextRoom() = 0;

  protected:
    ~InflateFlow() = default;
};

// Decompresses with the bytes and the result codes of zlib's uncompress. Whole buffers go to the faster
// library first where one is built in; all else, and what that refuses, is zlib's to decide.
class Inflater {
  public:
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // Decompresses one zlib stream at the start of `data` (bytes after it are not looked at) to `out`.
    // `outSize` holds the room in `out` and receives the number of bytes that came out. Fails when the stream
    // is damaged, cut short or longer than the room.
    int uncompress(unsigned char* out, std::size_t& outSize, const unsigned char* data, std::size_t size);

    // The same for a stream and a room in pieces. `outSize` receives the number of bytes that came out.
    int uncompress(InflateFlow& flow, std::size_t& outSize);

    // Decompresses the stream without keeping what comes out. `outSize` holds how many bytes are expected and
    // receives how many came; the stream is given up, with zlib's Z_BUF_ERROR, once they are more. `size`
    // receives how many bytes of `data` the stream took.
    int measure(std::size_t& outSize, const unsigned char* data, std::size_t& size);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// The most bytes that a zlib stream of `size` bytes can decompress to, and a little more: whoever expects
// more than this expects too much and need not allocate it.
constexpr std::size_t inflateLimit(std::size_t size) {
    return size * 1032 + 64;
}

}  // namespace v1
}  // namespace MUtils
