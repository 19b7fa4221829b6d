#include "rawimage/tools/stats.h"

#include <array>
#include <utility>

#include "rawimage/tools/frame_tool.h"
#include "rawimage/tools/id_set.h"
#include "rawimage/tools/value_stats.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kMostComponents = 4;

// Rows are summed up on several threads and joined from the top down by one.
class StatsSink final : public RowSink {
  public:
    explicit StatsSink(const std::vector<FrameChannel>& channels) {
        for (const FrameChannel& channel : channels)
            channels_.emplace_back(channel);
    }

    void begin(std::size_t channel, std::size_t rows) override {
        channels_[channel].rows.clear();
        channels_[channel].rows.resize(rows);
    }

    void take(std::size_t channel, std::size_t row, const FrameRow& values) override {
        const Channel& one = channels_[channel];
        Row& sums = channels_[channel].rows[row];
        for (const RowRun& run : values.runs)
            sums.pixels += run.x1 - run.x0;
        thread_local std::vector<double> room;
        for (int i = 0; i < one.channel.components(); ++i)
            sums.components[static_cast<std::size_t>(i)] =
                momentsOf(values, i, one.channel.isInteger(), room);
        if (one.channel.isInteger()) listIds(values, sums.ids);
    }

    void end(std::size_t channel) override {
        Channel& one = channels_[channel];
        for (const Row& row : one.rows) {
            one.pixels += row.pixels;
            for (std::size_t i = 0; i < one.components.size(); ++i)
                one.components[i].add(row.components[i]);
            for (const std::int32_t id : row.ids)
                one.ids.insert(id);
        }
    }

    void finish(std::size_t channel) override {
        Channel& one = channels_[channel];
        one.rows = {};
        one.distinct = {static_cast<std::int64_t>(one.ids.size()), one.ids.overflowed()};
        one.ids = IdSet(kMaxDistinctIds);
    }

    std::vector<ChannelStatistics> result() const {
        std::vector<ChannelStatistics> result;
        for (const Channel& one : channels_) {
            ChannelStatistics& stats = result.emplace_back();
            stats.channel = one.channel;
            stats.pixels = one.pixels;
            for (std::size_t i = 0; i < one.components.size(); ++i) {
                const char* name = one.channel.componentName(static_cast<int>(i));
                stats.components.push_back(one.components[i].stats(name));
            }
            if (one.channel.isInteger()) stats.ids = one.distinct;
        }
        return result;
    }

  private:
    struct Row {
        std::int64_t pixels = 0;
        std::array<ValueMoments, kMostComponents> components;
        std::vector<std::int32_t> ids;
    };
    struct Channel {
        explicit Channel(const FrameChannel& of)
            : channel(of), components(static_cast<std::size_t>(of.components())) {}

        FrameChannel channel;
        std::int64_t pixels = 0;
        std::vector<ValueMoments> components;
        IdSet ids{kMaxDistinctIds};
        DistinctIds distinct;
        std::vector<Row> rows;
    };

    // Neighbours are often of one id.
    static void listIds(const FrameRow& row, std::vector<std::int32_t>& ids) {
        for (const RowRun& run : row.runs) {
            const unsigned char* at = row.at(run.x0);
            for (std::int64_t x = run.x0; x < run.x1; ++x, at += row.valueBytes) {
                const std::int32_t id = loadI32(at);
                if (ids.empty() || ids.back() != id) ids.push_back(id);
            }
        }
    }

    std::vector<Channel> channels_;
};

void collect(const RawFrame& frame, FrameTool& tool, StatsReport& report) {
    std::vector<FrameChannel> channels;
    if (!tool.begin(frame, channels)) return;
    StatsSink sink(channels);
    // Ids take as much memory as values.
    constexpr bool kIntegersAlone = true;
    if (tool.readRows(frame, channels, kIntegersAlone, sink)) report.channels = sink.result();
}

}  // namespace

StatsReport statsOfFile(const char* fileName, const FrameToolOptions& options) {
    StatsReport report;
    FrameTool tool(options, report);
    collect(RawFrame(fileName, tool.opening()), tool, report);
    return report;
}

StatsReport statsOfStream(PStream& stream, const FrameToolOptions& options) {
    StatsReport report;
    FrameTool tool(options, report);
    collect(RawFrame(stream, tool.opening()), tool, report);
    return report;
}

}  // namespace v1
}  // namespace MUtils
