#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace MUtils {
inline namespace v1 {

// What each compression library gives, in a source of its own: deflate_zlib.cpp, deflate_libdeflate.cpp,
// deflate_isal.cpp. The last two are in the build where their library is: call their functions only where
// kHas... is true, in an `if constexpr`. Objects keep their working memory from call to call and serve one
// thread at a time.

#if defined(RAWIMAGE_HAS_LIBDEFLATE)
constexpr bool kHasLibdeflate = true;
#else
constexpr bool kHasLibdeflate = false;
#endif
#if defined(RAWIMAGE_HAS_ISAL)
constexpr bool kHasIsal = true;
#else
constexpr bool kHasIsal = false;
#endif

// The result codes, which are zlib's.
constexpr int kDeflated = 0;
constexpr int kDeflateBadArgument = -2;
constexpr int kDeflateNoMemory = -4;
constexpr int kDeflateNoRoom = -5;

class Compressor {
  public:
    virtual ~Compressor() = default;
    // As Deflater::compress; `size` is at most INT_MAX, `outSize` at most deflateBound of it. `outSize` is
    // undefined after a failure. kDeflateNoRoom leaves the values to zlib.
    virtual int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                         std::size_t size) = 0;
};

class Decompressor {
  public:
    virtual ~Decompressor() = default;
    // Decompresses the stream at the start of `data` to `out`. True when all of it has come out and its
    // checksum is right, with the number of bytes in `outSize`, which held the room; else `outSize` is as it
    // was, and `out` undefined.
    virtual bool uncompress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                            std::size_t size) = 0;
};

// Makers return null when there is no memory. A name has the version: "zlib 1.2.13".
std::string zlibName();
std::unique_ptr<Compressor> makeZlibCompressor(int level);

std::string libdeflateName();
std::unique_ptr<Compressor> makeLibdeflateCompressor(int level);
std::unique_ptr<Decompressor> makeLibdeflateDecompressor();

std::string isalName();
std::unique_ptr<Compressor> makeIsalCompressor(int level);

}  // namespace v1
}  // namespace MUtils
