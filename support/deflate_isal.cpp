#include <isa-l.h>

#include <new>

#include "support/codec.h"

namespace MUtils {
inline namespace v1 {

namespace {

class IsalCompressor final : public Compressor {
  public:
    explicit IsalCompressor(int level) : level_(static_cast<std::uint32_t>(level)) {}

    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                 std::size_t size) override {
        isal_deflate_stateless_init(&stream_);
        stream_.level = level_;
        stream_.level_buf = tokens_;
        stream_.level_buf_size = sizeof tokens_;
        stream_.gzip_flag = IGZIP_ZLIB;
        stream_.end_of_stream = 1;
        stream_.flush = NO_FLUSH;
        // Input is taken as non-const, but never written to.
        stream_.next_in = const_cast<unsigned char*>(data);
        stream_.avail_in = static_cast<std::uint32_t>(size);
        stream_.next_out = out;
        stream_.avail_out = static_cast<std::uint32_t>(outSize);
        const int code = isal_deflate_stateless(&stream_);
        outSize = stream_.total_out;
        if (code == COMP_OK) return kDeflated;
        return code == STATELESS_OVERFLOW ? kDeflateNoRoom : kDeflateBadArgument;
    }

  private:
    const std::uint32_t level_;
    isal_zstream stream_;
    // The size is that of a block of the stream: with larger ones noisy values take up to 1 % more bytes.
    alignas(64) unsigned char tokens_[ISAL_DEF_LVL1_SMALL];
};

}  // namespace

std::string isalName() {
    return "ISA-L " + std::to_string(ISAL_MAJOR_VERSION) + '.' + std::to_string(ISAL_MINOR_VERSION);
}

std::unique_ptr<Compressor> makeIsalCompressor(int level) {
    return std::unique_ptr<Compressor>(new (std::nothrow) IsalCompressor(level));
}

}  // namespace v1
}  // namespace MUtils
