#include <zlib.h>

#include <new>

#include "support/codec.h"

namespace MUtils {
inline namespace v1 {

namespace {

static_assert(kDeflated == Z_OK && kDeflateBadArgument == Z_STREAM_ERROR && kDeflateNoMemory == Z_MEM_ERROR &&
              kDeflateNoRoom == Z_BUF_ERROR);

// Gives the bytes and the codes of compress2.
class ZlibCompressor final : public Compressor {
  public:
    explicit ZlibCompressor(int level) : level_(level) {}
    ~ZlibCompressor() override {
        if (ready_) deflateEnd(&stream_);
    }

    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                 std::size_t size) override {
        if (const int code = begin(); code != Z_OK) return code;
        // zlib's interface takes input as non-const, but never writes to it.
        stream_.next_in = const_cast<Bytef*>(data);
        stream_.avail_in = static_cast<uInt>(size);
        stream_.next_out = out;
        stream_.avail_out = static_cast<uInt>(outSize);
        const int code = deflate(&stream_, Z_FINISH);
        outSize = stream_.total_out;
        if (code == Z_STREAM_END) return Z_OK;
        return code == Z_OK ? Z_BUF_ERROR : code;
    }

  private:
    int begin() {
        if (ready_) return deflateReset(&stream_);
        if (level_ < Z_BEST_SPEED || level_ > Z_BEST_COMPRESSION) return Z_STREAM_ERROR;
        const int code = deflateInit(&stream_, level_);
        ready_ = code == Z_OK;
        return code;
    }

    const int level_;
    z_stream stream_{};
    bool ready_ = false;
};

}  // namespace

std::string zlibName() {
    return std::string("zlib ") + zlibVersion();
}

std::unique_ptr<Compressor> makeZlibCompressor(int level) {
    return std::unique_ptr<Compressor>(new (std::nothrow) ZlibCompressor(level));
}

}  // namespace v1
}  // namespace MUtils
