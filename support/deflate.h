#pragma once

#include <cstddef>
#include <memory>

namespace MUtils {
inline namespace v1 {

// The zlib calls. Both classes answer zlib's own result codes (0 is success) and keep zlib's working memory
// from call to call, so that a file of thousands of payloads allocates once. One object serves one thread at
// a time.

// Compresses with the bytes and the result codes of zlib's compress2.
class Deflater {
  public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    // Compresses `size` bytes of `data` to one zlib stream in `out`. `outSize` holds the room in `out` and
    // receives the stream's length. `level` is 1 (fast) to 9 (small). `data` may be null when `size` is 0.
    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data, std::size_t size,
                 int level);

  private:
    struct State;
    std::unique_ptr<State> state_;
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

// Decompresses with the bytes and the result codes of zlib's uncompress.
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
