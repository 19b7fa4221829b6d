#pragma once

#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../export.h"
#include "frame_report.h"

// One hash of what a frame shows, whatever its file is like: docs/raw_format.md defines it.
//
//     const MUtils::HashReport report = MUtils::hashFile("frame.rimg", {});
//     if (report.state == MUtils::FileState::kGood) std::puts(report.hash.c_str());

namespace MUtils {
inline namespace v1 {

struct HashOptions : FrameToolOptions {
    bool metadata = false;  // the records count, too
};

struct ChannelHash {
    FrameChannel channel;  // as it is listed
    std::string hash;
};

struct HashReport : FrameReport {
    // 32 hexadecimal digits; "" when there is none, as of damaged files. Of a file that is not good it is the
    // hash of what is there.
    std::string hash;
    std::vector<ChannelHash> channels;  // that were chosen, by index; none without a hash
};

// Hashes a file: size, aspect, and the pixels of the channels that are chosen. Needs up to 8 MiB of memory
// for values, or 512 MiB where buckets are large, beside what RawFrame needs. Never fails: how it went is in
// the report. Throws std::bad_alloc.
RAWIMAGE_EXPORT HashReport hashFile(const char* fileName, const HashOptions& options);

// The same for an open stream that knows its length; it is left open at no particular position.
RAWIMAGE_EXPORT HashReport hashStream(PStream& stream, const HashOptions& options);

}  // namespace v1
}  // namespace MUtils
