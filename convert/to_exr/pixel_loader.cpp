#include "convert/to_exr/pixel_loader.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "cli/interrupt.h"
#include "cli/report.h"
#include "rawimage/area/coverage.h"
#include "rawimage/area/tag_box.h"

namespace rimg {

using MUtils::boxOf;
using MUtils::PixelBox;

namespace {

// What several threads may decode at a time.
constexpr double kDecodingBytes = 1 << 29;

// Values beyond this go to their places piece by piece; others are held, which is faster.
constexpr std::int64_t kLargestHeld = 1 << 20;

// A decoder's memory: the payload and the values.
double decodingBytes(const std::vector<const INFOTAG*>& tags) {
    std::int64_t most = 1;
    for (const INFOTAG* tag : tags)
        most = std::max(most, std::min(MUtils::pixelBytes(*tag), kLargestHeld));
    return 2.0 * static_cast<double>(most);
}

// Shows an inflater where the values of a tag go: the rows of `box` into a region, the rest nowhere.
class RowRooms final : public PixelRooms {
  public:
    RowRooms(const PixelBox& from, const PixelBox& box, int valueSize, std::size_t channel,
             ChannelRegion& region)
        : from_(from), box_(box), valueSize_(valueSize), channel_(channel), region_(region) {}

    Room next() override {
        if (y_ == from_.height()) return {};
        const std::int64_t y = from_.y0 + y_;
        const std::int64_t x = from_.x0 + x_;
        const bool inRow = y >= box_.y0 && y < box_.y1;
        const bool inside = inRow && x >= box_.x0 && x < box_.x1;
        std::int64_t end = inside ? box_.x1 : inRow && x < box_.x0 ? box_.x0 : from_.x1;
        if (!inside) end = std::min(end, x + static_cast<std::int64_t>(sizeof dropped_) / valueSize_);
        x_ = end - from_.x0;
        if (x_ == from_.width()) {
            x_ = 0;
            ++y_;
        }
        unsigned char* const room = inside ? region_.at(channel_, x, y) : dropped_;
        return {room, static_cast<std::size_t>((end - x) * valueSize_)};
    }

  private:
    const PixelBox from_;
    const PixelBox box_;
    const int valueSize_;
    const std::size_t channel_;
    ChannelRegion& region_;
    std::int64_t x_ = 0;  // of the next room, within the tag's box
    std::int64_t y_ = 0;
    unsigned char dropped_[16384];
};

}  // namespace

PixelLoader::PixelLoader(const RawInput& input, const std::vector<ExrChannel>& channels, int threads) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        if (channels[i].isWritten()) byIndex_.emplace(channels[i].index, i);
    }
    for (int i = 0; i < threads; ++i) {
        try {
            decoders_.push_back(std::make_unique<PixelDecoder>(input));
        } catch (const Failure&) {
            // No more open files: those that there are do the work.
            if (decoders_.empty()) throw;
            break;
        }
    }
}

double PixelLoader::bytesNeeded(const std::vector<const INFOTAG*>& tags) const {
    const double each = decodingBytes(tags);
    return std::max(each, std::min(each * static_cast<double>(decoders_.size()), kDecodingBytes));
}

bool PixelLoader::wants(const INFOTAG& tag) const {
    return !boxOf(tag).empty() && byIndex_.count(tag.p8) != 0;
}

bool PixelLoader::load(const std::vector<const INFOTAG*>& tags, ChannelRegion& region, Progress& progress) {
    region.clear();
    Job job{tags, region};
    std::vector<std::thread> helpers;
    const std::size_t useful = usefulThreads(job);
    helpers.reserve(useful);
    try {
        for (std::size_t i = 1; i < useful; ++i)
            helpers.emplace_back([this, &job, i] { work(job, *decoders_[i], nullptr); });
    } catch (const std::system_error&) {
        // The system gives no more threads: those that run do the work.
    }
    work(job, *decoders_[0], &progress);
    for (std::thread& helper : helpers)
        helper.join();
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    return job.next >= tags.size();
}

std::size_t PixelLoader::usefulThreads(const Job& job) const {
    const auto affordable = static_cast<std::size_t>(kDecodingBytes / decodingBytes(job.tags));
    const std::size_t useful = std::min({decoders_.size(), job.tags.size(), affordable});
    return useful > 1 && !overlap(job) ? useful : 1;
}

// True when a pixel of a channel has several tags, whose order counts.
bool PixelLoader::overlap(const Job& job) const {
    std::map<std::int32_t, std::vector<PixelBox>> boxes;
    std::map<std::int32_t, std::int64_t> areas;
    for (const INFOTAG* tag : job.tags) {
        const PixelBox box = intersect(boxOf(*tag), job.region.box());
        if (box.empty()) continue;
        boxes[tag->p8].push_back(box);
        areas[tag->p8] += box.area();
    }
    for (const auto& [channel, list] : boxes) {
        if (coveredPixels(list, job.region.box()) != areas[channel]) return true;
    }
    return false;
}

// Takes tags until there are none left; one thread of several.
void PixelLoader::work(Job& job, PixelDecoder& decoder, Progress* progress) {
    std::int64_t told = 0;
    try {
        while (!stopRequested()) {
            const std::size_t i = job.next++;
            if (i >= job.tags.size()) return;
            const INFOTAG& tag = *job.tags[i];
            if (const char* cause =
                    place(tag, intersect(boxOf(tag), job.region.box()), job.region, decoder)) {
                restore(job, i, decoder);
                noteLoss(tag, cause);
            }
            const std::int64_t done = ++job.done;
            if (progress != nullptr) progress->advance(done - std::exchange(told, done));
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        failure_ = std::current_exception();
    }
}

// A tag that reaches into several regions is lost once.
void PixelLoader::noteLoss(const INFOTAG& tag, const char* cause) {
    const std::lock_guard lock(mutex_);
    const auto same = [&tag](const Loss& loss) { return loss.tag.offset == tag.offset; };
    if (std::none_of(lost_.begin(), lost_.end(), same)) lost_.push_back({tag, cause});
}

// A large tag may have spoiled its box before its fault was found. What earlier tags put there comes back;
// where there are any, one thread does all.
void PixelLoader::restore(const Job& job, std::size_t lost, PixelDecoder& decoder) {
    const INFOTAG& tag = *job.tags[lost];
    const std::size_t channel = byIndex_.at(tag.p8);
    const PixelBox box = intersect(boxOf(tag), job.region.box());
    const int valueSize = findPixelKind(tag.id)->valueSize;
    if (MUtils::pixelBytes(tag) <= kLargestHeld || valueSize != job.region.table(channel)->itemSize) return;
    for (std::int64_t y = box.y0; y < box.y1; ++y)
        std::memset(job.region.at(channel, box.x0, y), 0, static_cast<std::size_t>(box.width() * valueSize));
    for (std::size_t i = 0; i < lost; ++i) {
        const INFOTAG& earlier = *job.tags[i];
        const PixelBox common = intersect(boxOf(earlier), box);
        if (earlier.p8 != tag.p8 || common.empty()) continue;
        if (place(earlier, common, job.region, decoder) != nullptr) restore(job, i, decoder);
    }
}

// Copies the values of a tag that lie in `box`, a part of the region. Null, or why there are none.
const char* PixelLoader::place(const INFOTAG& tag, const PixelBox& box, ChannelRegion& region,
                               PixelDecoder& decoder) {
    const PixelBox from = boxOf(tag);
    const std::size_t channel = byIndex_.at(tag.p8);
    if (findPixelKind(tag.id)->valueSize != region.table(channel)->itemSize)
        return "the values are of another type than the channel's";
    if (MUtils::pixelBytes(tag) > kLargestHeld) {
        RowRooms rooms(from, box, region.table(channel)->itemSize, channel, region);
        return decoder.decode(tag, rooms);
    }
    return decoder.decode(tag, [&](const MBVTable& values) {
        for (std::int64_t y = box.y0; y < box.y1; ++y) {
            const std::int64_t first = (y - from.y0) * from.width() + (box.x0 - from.x0);
            values.storeToBuffer(region.at(channel, box.x0, y), static_cast<int>(first),
                                 static_cast<int>(box.width()));
        }
    });
}

}  // namespace rimg
