#pragma once

#include <cstdint>
#include <limits>

#include "rawimage/format.h"

namespace MUtils {

// The payload sizes that a tag's other fields allow. A tag with less cannot be decoded. More than the most is
// passed over by every reader, but tells a broken size field from a payload that was cut off by the end of
// the file.
struct PayloadRange {
    static constexpr std::int64_t kAny = std::numeric_limits<std::int64_t>::max();

    std::int64_t least = 0;
    std::int64_t most = kAny;

    // False when the parameters make no sense, whatever the size: negative, or more values than a reader
    // takes.
    bool possible() const { return least >= 0; }
};

// `compressed`: what the file header says of pixel payloads.
PayloadRange payloadRange(const RIF_TAG& tag, bool compressed);

// Bytes of the values that a pixel tag stands for; -1 when its parameters make no sense, 0 for any other tag.
std::int64_t pixelBytes(const RIF_TAG& tag);

}  // namespace MUtils
