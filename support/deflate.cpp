#include "support/deflate.h"

#include <algorithm>
#include <climits>

#include "support/codec.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kZlibSmall = 9;
constexpr int kZlibFast = 1;
constexpr int kLibdeflateLevel = 6;
constexpr int kIsalLevel = 1;

struct Codec {
    std::string (*name)();
    std::unique_ptr<Compressor> (*make)(int level);
    int level;
};

// Where a library is not built in, the next in speed takes its place.
Codec codecOf(const CompressionSetting& setting) {
    const bool small = setting.compression == Compression::kSmall;
    if constexpr (kHasIsal) {
        if (setting.compression == Compression::kFast) return {isalName, makeIsalCompressor, kIsalLevel};
    }
    if constexpr (kHasLibdeflate) {
        if (!small) return {libdeflateName, makeLibdeflateCompressor, kLibdeflateLevel};
    }
    return {zlibName, makeZlibCompressor, small ? setting.level : kZlibFast};
}

}  // namespace

std::string compressorName(Compression compression) {
    const Codec codec = codecOf({compression, kZlibSmall});
    return codec.name() + ", level " + std::to_string(codec.level);
}

Deflater::Deflater() = default;
Deflater::~Deflater() = default;

int Deflater::compress(unsigned char* out, std::size_t& outSize, const unsigned char* data, std::size_t size,
                       const CompressionSetting& setting) {
    // The same room for the same values, whatever the caller has: a library may store values that do not fit
    // it compressed, and the bytes must not depend on the buffer.
    const std::size_t room = std::min(outSize, deflateBound(size));
    outSize = 0;
    if (size > INT_MAX) return kDeflateBadArgument;
    if (chosen_ == nullptr || made_.compression != setting.compression || made_.level != setting.level) {
        const Codec codec = codecOf(setting);
        chosen_ = codec.make(codec.level);
        made_ = setting;
    }
    if (chosen_ == nullptr) return kDeflateNoMemory;
    std::size_t made = room;
    int code = chosen_->compress(out, made, data, size);
    if (code == kDeflateNoRoom && setting.compression != Compression::kSmall) {
        // Short runs of values: the other libraries want more room than the bound for noise. Zlib's smallest
        // stream of them takes no time that counts.
        if (plain_ == nullptr) plain_ = makeZlibCompressor(kZlibSmall);
        made = room;
        code = plain_ != nullptr ? plain_->compress(out, made, data, size) : kDeflateNoMemory;
    }
    if (code == kDeflated) outSize = made;
    return code;
}

}  // namespace v1
}  // namespace MUtils
