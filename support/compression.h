#pragma once

#include <string>

#include "../rawimage/export.h"

// What a writer compresses with. Every choice gives zlib streams, which any reader of the format takes. The
// bytes of kSmall at a level depend on zlib alone; those of the others depend on the library's version, and
// kFast's on the processor as well.

namespace MUtils {
inline namespace v1 {

enum class Compression {
    kSmall,     // zlib: the smallest files
    kBalanced,  // libdeflate: hardly larger, in a fraction of the time
    kFast       // ISA-L: the least time
};

// The library and its level that compress in this build, such as "libdeflate 1.14, level 6": where the
// choice's own library is not built in, the next in speed takes its place. The level of kSmall is zlib's
// default of a writer.
RAWIMAGE_EXPORT std::string compressorName(Compression compression);

// The library that decompresses pixels in this build. What it refuses is decided by zlib.
RAWIMAGE_EXPORT std::string decompressorName();

}  // namespace v1
}  // namespace MUtils
