#include <isa-l.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <new>

#include "support/bytes.h"
#include "support/codec.h"

// ISA-L 2.30 enters position 2 of each stream in its hash table under the wrong place: that of bits 16 to 47
// of the stream object's address instead of four bytes of the values. The stream is sound all the same. But
// where the wrong place is by chance that of position 0, 1 or 2 other matches are found, and the bytes depend
// on where the object lies. So the compressor owns four objects whose wrong places differ, and takes the
// first whose place is none of the three: the bytes are then the same on every thread and in every run. Small
// payloads are left to zlib, as their tables are so small that places meet often.
//
// Nothing else differs: the objects are zero at first, and each call sets them up and clears the table.

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kSmallest = 512;
constexpr std::size_t kStreams = 4;
constexpr std::size_t kStreamSpacing = 1 << 17;
static_assert(sizeof(isal_zstream) <= kStreamSpacing);

// The library's hash of four bytes: their CRC-32C, without its final complement.
std::uint32_t hashOf(std::uint32_t bytes) {
    constexpr std::uint32_t kPolynomial = 0x82F63B78;
    for (int bit = 0; bit < 32; ++bit)
        bytes = bytes >> 1 ^ (kPolynomial & (0u - (bytes & 1)));
    return bytes;
}

// The bits of a hash that are the place in the library's table for so many values.
std::uint32_t placeMask(std::size_t size) {
    std::uint32_t places = 1;
    while (places <= size && places < IGZIP_LVL1_HASH_SIZE)
        places *= 2;
    return places - 1;
}

class IsalCompressor final : public Compressor {
  public:
    explicit IsalCompressor(int level)
        : level_(static_cast<std::uint32_t>(level)),
          streams_(static_cast<unsigned char*>(
              std::calloc(1, (kStreams - 1) * kStreamSpacing + sizeof(isal_zstream)))) {}
    ~IsalCompressor() override { std::free(streams_); }
    IsalCompressor(const IsalCompressor&) = delete;
    IsalCompressor& operator=(const IsalCompressor&) = delete;

    int compress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                 std::size_t size) override {
        if (size < kSmallest) return kDeflateNoRoom;
        if (streams_ == nullptr) return kDeflateNoMemory;
        isal_zstream& stream = streamFor(data, size);
        isal_deflate_stateless_init(&stream);
        stream.level = level_;
        stream.level_buf = tokens_;
        stream.level_buf_size = sizeof tokens_;
        stream.gzip_flag = IGZIP_ZLIB;
        stream.end_of_stream = 1;
        stream.flush = NO_FLUSH;
        // Input is taken as non-const, but never written to.
        stream.next_in = const_cast<unsigned char*>(data);
        stream.avail_in = static_cast<std::uint32_t>(size);
        stream.next_out = out;
        stream.avail_out = static_cast<std::uint32_t>(outSize);
        const int code = isal_deflate_stateless(&stream);
        outSize = stream.total_out;
        if (code == COMP_OK) return kDeflated;
        return code == STATELESS_OVERFLOW ? kDeflateNoRoom : kDeflateBadArgument;
    }

  private:
    isal_zstream& streamFor(const unsigned char* data, std::size_t size) {
        const std::uint32_t mask = placeMask(size);
        const std::uint32_t hashes[] = {hashOf(loadU32(data)), hashOf(loadU32(data + 1)),
                                        hashOf(loadU32(data + 2))};
        // Each of the three excludes one object at most, so that the fourth needs no check.
        std::size_t i = 0;
        for (; i + 1 < kStreams; ++i) {
            const auto address = reinterpret_cast<std::uintptr_t>(streams_ + i * kStreamSpacing);
            const std::uint32_t hash = hashOf(static_cast<std::uint32_t>(std::uint64_t{address} >> 16));
            const auto meets = [&](std::uint32_t other) { return ((hash ^ other) & mask) == 0; };
            if (std::none_of(std::begin(hashes), std::end(hashes), meets)) break;
        }
        return *reinterpret_cast<isal_zstream*>(streams_ + i * kStreamSpacing);
    }

    const std::uint32_t level_;
    unsigned char* streams_;  // kStreams isal_zstream, all zero at first
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
