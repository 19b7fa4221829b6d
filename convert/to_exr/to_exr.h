#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../../exr/exr_file.h"
#include "../../rawimage/export.h"
#include "../conversion.h"

namespace MUtils {
inline namespace v1 {

struct ToExrOptions {
    int kind = ExrFile::kScanline;  // ExrFile::Kind
    int bits = 32;                  // of a value that is no integer: 16 or 32
    int compression = 3;            // as for ExrFile::setCompressionType(): ZIPS
    bool autoDataWindow = false;    // around the pixels whose alpha is not 0; not for tiled files
    int originX = 0;                // where the display window begins
    int originY = 0;
    std::string attributes;             // more header attributes, "name=value; name=value"
    std::string attributesFrom;         // an OpenEXR file whose attributes are copied; "" for none
    std::vector<std::string> channels;  // patterns as for fnmatch(); none for all channels
    // The pixels of the frame that become the data window; all without it. The display window stays.
    std::optional<PixelBox> crop;
    int threads = 0;  // that decompress; below 1: one for each processor
    ConvertProgress progress;
};

// Turns a raw image into an OpenEXR file. Damaged and unfinished files are converted too, with what is sound
// in them: pixels that cannot be read are 0. Texts and the render region become header attributes. Of the
// pixels only those are read that go into the output.
//
// A tiled file has the announced buckets as its tiles, and in memory are the rows of tiles that some bucket
// reaches across; of other files the whole frame is.
//
// OpenEXR compresses on its global thread pool, whose size belongs to the program: call
// Imf::setGlobalThreadCount() before.
RAWIMAGE_EXPORT std::unique_ptr<Conversion> makeToExr(const std::string& input, const ToExrOptions& options);

// Both steps at once, whatever is lost.
RAWIMAGE_EXPORT ConvertReport convertToExr(const std::string& input, const std::string& output,
                                           const ToExrOptions& options);

}  // namespace v1
}  // namespace MUtils
