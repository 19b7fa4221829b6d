#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../../rawimage/export.h"
#include "../../rawimage/format.h"
#include "../../support/compression.h"
#include "../conversion.h"

namespace MUtils {
inline namespace v1 {

// The pixels of an OpenEXR file that become the frame of the raw image.
enum class FrameChoice { kDisplayWindow, kDataWindow, kUnion };

struct FromExrOptions {
    int bucketWidth = 64;  // pixels, 1 or more
    int bucketHeight = 64;
    Compression compression = Compression::kSmall;
    int level = kCompressionLevel;  // of kSmall, 1 (fast) to 9 (small)
    FrameChoice frame = FrameChoice::kDisplayWindow;
    bool cropOverscan = false;  // leave out pixels outside the frame
    // The pixels of the frame that are taken; all without it. They become the render region.
    std::optional<PixelBox> crop;
    std::vector<std::string> channels;  // patterns as for fnmatch(); none for all channels
    int threads = 0;                    // that compress; below 1: one for each processor
    ConvertProgress progress;
};

// Turns an OpenEXR file (scan-line, tiled or multi-part) into a raw image, bucket by bucket, as a renderer
// would write it. Values are kept bit for bit: half and float become float, UINT stays integer. Channels
// whose names differ in the last letter only become one channel: x.R, x.G and x.B the colour x. Buckets lie
// on a grid that begins at the frame's first pixel, and are clipped to the data window. A bucket of which
// some pixels cannot be read is left out. The output does not depend on the number of threads. Blocks of the
// file without pixels of the output are not read.
//
// In memory are a row of buckets and the blocks of the file that it meets, at most 2 GiB.
RAWIMAGE_EXPORT std::unique_ptr<Conversion> makeFromExr(const std::string& input,
                                                        const FromExrOptions& options);

// Both steps at once, whatever is lost.
RAWIMAGE_EXPORT ConvertReport convertFromExr(const std::string& input, const std::string& output,
                                             const FromExrOptions& options);

}  // namespace v1
}  // namespace MUtils
