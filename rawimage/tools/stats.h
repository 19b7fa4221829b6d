#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../export.h"
#include "frame_report.h"

// What the values of a frame's channels are like.

namespace MUtils {
inline namespace v1 {

// Values of a kind, and the first pixel that has one: from the top down and from the left.
struct ValueCount {
    std::int64_t count = 0;
    std::int64_t x = 0;  // without meaning when there is none
    std::int64_t y = 0;
};

// One component of a channel.
struct ValueStats {
    std::string name;  // as FrameChannel::componentName()
    // Of the values that are neither NaN nor infinite; 0 when there are none. The deviation is that of all of
    // them: divided by their number.
    double min = 0.0;
    double max = 0.0;
    double mean = 0.0;
    double deviation = 0.0;
    std::int64_t finite = 0;
    ValueCount nan;
    ValueCount plusInf;
    ValueCount minusInf;
    ValueCount negative;  // below zero, -Inf included, -0 not
    std::int64_t zero = 0;
};

struct DistinctIds {
    std::int64_t count = 0;  // at most kMaxDistinctIds
    bool more = false;       // there are more than that
};
constexpr std::size_t kMaxDistinctIds = std::size_t{1} << 24;

struct ChannelStatistics {
    FrameChannel channel;
    std::int64_t pixels = 0;  // of the area, that have values
    std::vector<ValueStats> components;
    std::optional<DistinctIds> ids;  // of a channel of integers
};

struct StatsReport : FrameReport {
    // Those that were chosen, by index; none unless done(). Of a damaged file they are of what can be read.
    std::vector<ChannelStatistics> channels;
};

// Goes over the pixels of a file. The numbers do not depend on buckets and threads. Needs up to 8 MiB of
// memory for values, or 512 MiB where buckets are large, and 192 MiB to count ids, beside what RawFrame
// needs. Never fails: how it went is in the report. Throws std::bad_alloc.
RAWIMAGE_EXPORT StatsReport statsOfFile(const char* fileName, const FrameToolOptions& options);

// The same for an open stream that knows its length; it is left open at no particular position.
RAWIMAGE_EXPORT StatsReport statsOfStream(PStream& stream, const FrameToolOptions& options);

}  // namespace v1
}  // namespace MUtils
