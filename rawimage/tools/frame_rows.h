#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "rawimage/area/row_span.h"
#include "rawimage/frame/raw_frame.h"
#include "support/byte_buffer.h"

namespace MUtils {
inline namespace v1 {

// The pixels of a row that have values, from column x0 to before x1.
struct RowRun {
    std::int64_t x0, x1;
};

// A row of a channel that has at least one pixel with a value.
struct FrameRow {
    std::int64_t y;
    std::int64_t x0;              // of the area
    std::int64_t valueBytes;      // of a pixel
    const unsigned char* values;  // of the pixel in column x0 and those right of it. Only runs have values
    const std::vector<RowRun>& runs;  // from the left; they do not touch

    const unsigned char* at(std::int64_t x) const { return values + (x - x0) * valueBytes; }
};

// Receives the rows of channels, those of each channel from the top down. Channels are given by their place
// in the list that is read.
class RowSink {
  public:
    // Up to `rows` rows of the channel follow.
    virtual void begin(std::size_t channel, std::size_t rows) = 0;
    // Called by several threads at a time, once for each row. `row` counts from 0.
    virtual void take(std::size_t channel, std::size_t row, const FrameRow& values) = 0;
    // All of these rows have come.
    virtual void end(std::size_t channel) = 0;
    // No more rows of the channel will come.
    virtual void finish(std::size_t channel) = 0;

  protected:
    ~RowSink() = default;
};

struct FrameRowsOptions {
    int threads = 0;
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
    bool integersAlone = false;        // no two channels of integers are read together
    std::int64_t bandBytes = 8 << 20;  // stays in the cache of most processors
};

// Reads channels in rows, whatever the buckets are like, on several threads. Several channels are read
// together where a row of their buckets fits in `bandBytes`: nearly in the order of the file. Each bucket is
// decoded once as long as the rows that buckets tie together have at most 64 times as much; beyond that,
// once for each such band.
class FrameRows {
  public:
    // Everything but the options outlives the object, which works once.
    FrameRows(const RawFrame& frame, const PixelBox& area, const std::vector<FrameChannel>& channels,
              const FrameRowsOptions& options);

    // False when it was stopped or refused. Throws std::bad_alloc.
    bool read(RowSink& sink);

    // By offset. Their pixels are left out of the rows.
    std::vector<FileFault> damaged;
    bool stopped = false;
    // Why rows cannot be read with bounded memory and time; "" when they can.
    std::string refused;

  private:
    // Channels that are read together.
    struct Group {
        std::vector<std::size_t> channels;  // places in the list
        std::vector<RowSpan> rows;          // that no bucket ties together
        std::int64_t tallest = 0;           // of them
        std::int64_t rowBytes = 0;          // of all channels
    };
    class Band;

    std::vector<RowSpan> rowsOf(const FrameChannel& channel) const;
    std::int64_t rowBytesOf(const FrameChannel& channel) const;
    bool fits(const Group& group, std::size_t channel, const Group& own) const;
    std::vector<Group> makeGroups();
    bool makeBands(const Group& group, std::vector<RowSpan>& bands);
    bool readGroup(const Group& group, RowSink& sink);
    bool readBand(const Group& group, const RowSpan& rows, RowSink& sink);

    const RawFrame& frame_;
    const PixelBox area_;
    const std::vector<FrameChannel>& channels_;
    const FrameRowsOptions options_;
    std::vector<ByteBuffer> buffers_;  // by place in the group
    std::int64_t done_ = 0;            // rows of channels
    std::int64_t total_ = 0;
};

}  // namespace v1
}  // namespace MUtils
