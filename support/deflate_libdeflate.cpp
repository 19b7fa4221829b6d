#include <libdeflate.h>

#include <new>

#include "support/codec.h"

namespace MUtils {
inline namespace v1 {

namespace {

class LibdeflateCompressor final : public Compressor {
  public:
    explicit LibdeflateCompressor(int level) : compressor_(libdeflate_alloc_compressor(level)) {}
    ~LibdeflateCompressor() override { libdeflate_free_compressor(compressor_); }
    LibdeflateCompressor(const LibdeflateCompressor&) = delete;
    LibdeflateCompressor& operator=(const LibdeflateCompressor&) = delete;

    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                 std::size_t size) override {
        if (compressor_ == nullptr) return kDeflateNoMemory;
        // Null is not taken for no bytes.
        const unsigned char none = 0;
        outSize = libdeflate_zlib_compress(compressor_, data != nullptr ? data : &none, size, out, outSize);
        return outSize > 0 ? kDeflated : kDeflateNoRoom;
    }

  private:
    libdeflate_compressor* compressor_;
};

class LibdeflateDecompressor final : public Decompressor {
  public:
    LibdeflateDecompressor() : decompressor_(libdeflate_alloc_decompressor()) {}
    ~LibdeflateDecompressor() override { libdeflate_free_decompressor(decompressor_); }
    LibdeflateDecompressor(const LibdeflateDecompressor&) = delete;
    LibdeflateDecompressor& operator=(const LibdeflateDecompressor&) = delete;

    bool uncompress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                    std::size_t size) override {
        std::size_t used = 0;
        std::size_t made = 0;
        if (decompressor_ == nullptr || libdeflate_zlib_decompress_ex(decompressor_, data, size, out, outSize,
                                                                      &used, &made) != LIBDEFLATE_SUCCESS)
            return false;
        outSize = made;
        return true;
    }

  private:
    libdeflate_decompressor* decompressor_;
};

}  // namespace

std::string libdeflateName() {
    return "libdeflate " LIBDEFLATE_VERSION_STRING;
}

std::unique_ptr<Compressor> makeLibdeflateCompressor(int level) {
    return std::unique_ptr<Compressor>(new (std::nothrow) LibdeflateCompressor(level));
}

std::unique_ptr<Decompressor> makeLibdeflateDecompressor() {
    return std::unique_ptr<Decompressor>(new (std::nothrow) LibdeflateDecompressor());
}

}  // namespace v1
}  // namespace MUtils
