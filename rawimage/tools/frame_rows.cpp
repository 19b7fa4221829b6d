#include "rawimage/tools/frame_rows.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>

#include "rawimage/frame/parallel_jobs.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Rows that buckets tie together may have this many times the memory.
constexpr std::int64_t kTallBand = 64;
// Of such rows: every part of them decodes all of their buckets.
constexpr std::int64_t kMostCuts = 32;
// What a sink keeps of a row counts, too.
constexpr std::int64_t kBytesOfSink = 512;
constexpr std::int64_t kRowsOfJob = 16;

}  // namespace

// The values of some rows and which pixels have one, by channel: first filled from buckets, then handed out.
class FrameRows::Band final : public BucketVisitor {
  public:
    Band(FrameRows& rows, const Group& group, const PixelBox& box) : rows_(rows), group_(group), box_(box) {
        const auto pixels = static_cast<std::size_t>(box.area());
        for (std::size_t i = 0; i < group.channels.size(); ++i) {
            const FrameChannel& channel = rows.channels_[group.channels[i]];
            const auto valueBytes = static_cast<std::size_t>(channel.valueBytes());
            unsigned char* values = reserve(rows.buffers_[i], pixels * (valueBytes + 1));
            std::memset(values + pixels * valueBytes, 0, pixels);
            planes_.push_back({values, values + pixels * valueBytes, valueBytes});
            placeOf_[channel.index] = i;
        }
    }

    bool visit(const FrameBucket& bucket) override {
        const Plane& plane = planes_[placeOf_.at(bucket.tag.p8)];
        const auto valueBytes = static_cast<std::size_t>(4 * bucket.components);
        if (valueBytes != plane.valueBytes) {
            reportType(bucket);
            return true;
        }
        const PixelBox part = intersect(bucket.box, box_);
        const auto width = static_cast<std::size_t>(part.width());
        for (std::int64_t y = part.y0; y < part.y1; ++y) {
            const std::int64_t from = (y - bucket.box.y0) * bucket.box.width() + part.x0 - bucket.box.x0;
            const std::size_t to = indexOf(part.x0, y);
            std::memcpy(plane.values + to * valueBytes,
                        bucket.values + static_cast<std::size_t>(from) * valueBytes, width * valueBytes);
            std::memset(plane.marks + to, 1, width);
        }
        return true;
    }

    // Hands out row `row` of the group's channel `place`.
    void giveRow(std::size_t place, std::int64_t row, std::vector<RowRun>& runs, RowSink& sink) const {
        const Plane& plane = planes_[place];
        const std::size_t first = indexOf(box_.x0, box_.y0 + row);
        findRuns(plane.marks + first, runs);
        if (runs.empty()) return;
        sink.take(group_.channels[place], static_cast<std::size_t>(row),
                  {box_.y0 + row, box_.x0, static_cast<std::int64_t>(plane.valueBytes),
                   plane.values + first * plane.valueBytes, runs});
    }

  private:
    struct Plane {
        unsigned char* values;
        unsigned char* marks;  // of pixels: 1 where there is a value
        std::size_t valueBytes;
    };

    std::size_t indexOf(std::int64_t x, std::int64_t y) const {
        return static_cast<std::size_t>((y - box_.y0) * box_.width() + (x - box_.x0));
    }

    void findRuns(const unsigned char* marks, std::vector<RowRun>& runs) const {
        runs.clear();
        const unsigned char* const end = marks + box_.width();
        const auto next = [end](const unsigned char* from, int mark) {
            const void* found = std::memchr(from, mark, static_cast<std::size_t>(end - from));
            return found != nullptr ? static_cast<const unsigned char*>(found) : end;
        };
        for (const unsigned char* at = next(marks, 1); at != end;) {
            const unsigned char* stop = next(at, 0);
            runs.push_back({box_.x0 + (at - marks), box_.x0 + (stop - marks)});
            at = next(stop, 1);
        }
    }

    void reportType(const FrameBucket& bucket) {
        FileFault fault;
        fault.offset = static_cast<std::int64_t>(bucket.tag.offset);
        fault.end = fault.offset + bucket.tag.size;
        fault.tagId = bucket.tag.id;
        fault.box = bucket.box;
        fault.channel = bucket.tag.p8;
        fault.cause = "values of another type than the channel's";
        const std::lock_guard<std::mutex> lock(mutex_);
        rows_.damaged.push_back(std::move(fault));
    }

    FrameRows& rows_;
    const Group& group_;
    const PixelBox box_;
    std::vector<Plane> planes_;
    std::map<int, std::size_t> placeOf_;  // by index
    std::mutex mutex_;
};

FrameRows::FrameRows(const RawFrame& frame, const PixelBox& area, const std::vector<FrameChannel>& channels,
                     const FrameRowsOptions& options)
    : frame_(frame), area_(area), channels_(channels), options_(options) {}

std::vector<RowSpan> FrameRows::rowsOf(const FrameChannel& channel) const {
    std::vector<RowSpan> rows;
    for (const PixelBox& box : frame_.buckets(area_, channel.index)) {
        const PixelBox part = intersect(box, area_);
        if (rows.empty() || rows.back().y0 != part.y0 || rows.back().y1 != part.y1)
            rows.push_back({part.y0, part.y1});
    }
    return joinOverlapping(std::move(rows));
}

std::int64_t FrameRows::rowBytesOf(const FrameChannel& channel) const {
    return area_.width() * (channel.valueBytes() + 1) + kBytesOfSink;
}

// Whether a channel can join a group: `own` is the group of it alone.
bool FrameRows::fits(const Group& group, std::size_t channel, const Group& own) const {
    const FrameChannel& joining = channels_[channel];
    for (const std::size_t other : group.channels) {
        const FrameChannel& member = channels_[other];
        if (member.index == joining.index) return false;
        if (options_.integersAlone && member.isInteger() && joining.isInteger()) return false;
    }
    return (group.rowBytes + own.rowBytes) * std::max(group.tallest, own.tallest) <= options_.bandBytes;
}

std::vector<FrameRows::Group> FrameRows::makeGroups() {
    std::vector<Group> groups;
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        Group own;
        own.channels = {i};
        if (channels_[i].components() > 0) own.rows = rowsOf(channels_[i]);
        for (const RowSpan& rows : own.rows)
            own.tallest = std::max(own.tallest, rows.height());
        own.rowBytes = rowBytesOf(channels_[i]);
        if (groups.empty() || !fits(groups.back(), i, own)) {
            groups.push_back(std::move(own));
            continue;
        }
        Group& group = groups.back();
        group.channels.push_back(i);
        group.rows.insert(group.rows.end(), own.rows.begin(), own.rows.end());
        group.rows = joinOverlapping(std::move(group.rows));
        group.tallest = std::max(group.tallest, own.tallest);
        group.rowBytes += own.rowBytes;
    }
    for (const Group& group : groups) {
        for (const RowSpan& rows : group.rows)
            total_ += rows.height() * static_cast<std::int64_t>(group.channels.size());
    }
    return groups;
}

// Rows without a bucket are in no band. False when there are too many cuts.
bool FrameRows::makeBands(const Group& group, std::vector<RowSpan>& bands) {
    const std::int64_t joined = options_.bandBytes / group.rowBytes;
    const std::int64_t most = kTallBand * options_.bandBytes / group.rowBytes;
    for (const RowSpan& rows : group.rows) {
        const bool joins =
            !bands.empty() && bands.back().y1 == rows.y0 && rows.y1 - bands.back().y0 <= joined;
        if (joins) {
            bands.back().y1 = rows.y1;
            continue;
        }
        if (most == 0 || rows.height() / most > kMostCuts) {
            refused = "the buckets of channel " + std::to_string(channels_[group.channels.front()].index) +
                      " are too large: rows " + std::to_string(rows.y0) + " to " +
                      std::to_string(rows.y1 - 1) + " have to be read together";
            return false;
        }
        for (std::int64_t y = rows.y0; y < rows.y1; y += most)
            bands.push_back({y, std::min(y + most, rows.y1)});
    }
    return true;
}

bool FrameRows::read(RowSink& sink) {
    for (const Group& group : makeGroups()) {
        if (!readGroup(group, sink)) return false;
    }
    std::sort(damaged.begin(), damaged.end(),
              [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    // Each band that has pixels of a tag reports it.
    const auto sameTag = [](const FileFault& a, const FileFault& b) { return a.offset == b.offset; };
    damaged.erase(std::unique(damaged.begin(), damaged.end(), sameTag), damaged.end());
    return true;
}

bool FrameRows::readGroup(const Group& group, RowSink& sink) {
    std::vector<RowSpan> bands;
    if (!makeBands(group, bands)) return false;
    buffers_.resize(std::max(buffers_.size(), group.channels.size()));
    for (const RowSpan& rows : bands) {
        if (!readBand(group, rows, sink)) return false;
    }
    for (const std::size_t channel : group.channels)
        sink.finish(channel);
    return true;
}

bool FrameRows::readBand(const Group& group, const RowSpan& rows, RowSink& sink) {
    const PixelBox box{area_.x0, rows.y0, area_.x1, rows.y1};
    const auto work = rows.height() * static_cast<std::int64_t>(group.channels.size());
    std::vector<int> indices;
    for (const std::size_t channel : group.channels) {
        indices.push_back(channels_[channel].index);
        sink.begin(channel, static_cast<std::size_t>(rows.height()));
    }
    FrameReadOptions reading;
    reading.threads = options_.threads;
    if (options_.progress) {
        reading.progress = [&](std::int64_t done, std::int64_t total) {
            const double part = static_cast<double>(done) / static_cast<double>(total);
            return options_.progress(done_ + static_cast<std::int64_t>(part * static_cast<double>(work)),
                                     total_);
        };
    }
    Band band(*this, group, box);
    FrameRead found = frame_.visit(box, indices, band, reading);
    stopped = found.stopped;
    if (stopped) return false;
    std::move(found.damaged.begin(), found.damaged.end(), std::back_inserter(damaged));

    const std::int64_t jobs = (work + kRowsOfJob - 1) / kRowsOfJob;
    std::atomic<std::int64_t> next{0};
    runJobs(jobsFor(reading, static_cast<std::size_t>(jobs)), reading, [&](int) {
        std::vector<RowRun> runs;
        for (std::int64_t job = next++; job < jobs; job = next++) {
            for (std::int64_t i = job * kRowsOfJob; i < std::min((job + 1) * kRowsOfJob, work); ++i)
                band.giveRow(static_cast<std::size_t>(i / rows.height()), i % rows.height(), runs, sink);
        }
    });
    for (const std::size_t channel : group.channels)
        sink.end(channel);
    done_ += work;
    stopped = options_.progress && !options_.progress(done_, total_);
    return !stopped;
}

}  // namespace v1
}  // namespace MUtils
