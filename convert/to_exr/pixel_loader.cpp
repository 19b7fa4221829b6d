#include "convert/to_exr/pixel_loader.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <system_error>
#include <thread>
#include <utility>

#include "convert/open_input.h"
#include "rawimage/area/coverage.h"
#include "rawimage/area/tag_box.h"
#include "rawimage/read/accepting_callback.h"
#include "rawimage/read/tag_reader.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The payloads and values that several threads may hold at a time.
constexpr double kDecodingBytes = 1 << 29;

// Larger values go to their places piece by piece. Others are held, which is faster.
constexpr std::int64_t kLargestHeld = 1 << 20;

// The memory of one decoder: the payload and the values.
double decodingBytes(const std::vector<const INFOTAG*>& tags) {
    std::int64_t most = 1;
    for (const INFOTAG* tag : tags)
        most = std::max(most, std::min(pixelBytes(*tag), kLargestHeld));
    return 2.0 * static_cast<double>(most);
}

// The places for the values of a tag: the rows of `box` in a region, and a buffer for the rest.
class RowRooms final : public ValueRooms {
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

// Reads single tags on one thread.
class PixelLoader::Decoder final : private AcceptingCallback {
  public:
    Decoder(const std::string& path, bool compressed) : reader_(stream_, compressed) {
        openInput(stream_, path);
    }

    // Hands the tag's values over, which live for the call. Null, or why they cannot be read; `consume` is
    // not called then.
    const char* read(const INFOTAG& tag, const std::function<void(const MBVTable&)>& consume) {
        consume_ = &consume;
        return pixelCodeText(reader_.read(tag, *this));
    }

    // Reads the values into `rooms`, which have place for all. After a fault their contents are undefined.
    const char* read(const INFOTAG& tag, ValueRooms& rooms) {
        return pixelCodeText(reader_.readPixels(tag, rooms));
    }

  private:
    bool setImageData(const MBVTable& data, int, int, int, int, int, int, int, int) override {
        (*consume_)(data);
        return true;
    }

    PFileStream stream_;
    TagReader reader_;
    const std::function<void(const MBVTable&)>* consume_ = nullptr;
};

PixelLoader::PixelLoader(const RawInput& input, const std::vector<ExrChannel>& channels, int threads) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        if (channels[i].isWritten()) byIndex_.emplace(channels[i].index, i);
    }
    for (int i = 0; i < threads; ++i) {
        try {
            decoders_.push_back(std::make_unique<Decoder>(input.path(), input.inspection().compressed));
        } catch (const ConvertError&) {
            // The process may open no more files. The decoders that exist do the work.
            if (decoders_.empty()) throw;
            break;
        }
    }
}

PixelLoader::~PixelLoader() = default;

double PixelLoader::bytesNeeded(const std::vector<const INFOTAG*>& tags) const {
    const double each = decodingBytes(tags);
    return std::max(each, std::min(each * static_cast<double>(decoders_.size()), kDecodingBytes));
}

bool PixelLoader::wants(const INFOTAG& tag) const {
    return !boxOf(tag).empty() && byIndex_.count(tag.p8) != 0;
}

void PixelLoader::load(const std::vector<const INFOTAG*>& tags, ChannelRegion& region, WorkCount& count) {
    region.clear();
    Job job{tags, region};
    std::vector<std::thread> helpers;
    const std::size_t useful = usefulThreads(job);
    helpers.reserve(useful);
    try {
        for (std::size_t i = 1; i < useful; ++i)
            helpers.emplace_back([this, &job, i] { work(job, *decoders_[i], nullptr); });
    } catch (const std::system_error&) {
        // The system starts no more threads. Those that run do the work.
    }
    work(job, *decoders_[0], &count);
    for (std::thread& helper : helpers)
        helper.join();
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    count.add(static_cast<std::int64_t>(tags.size()) - job.counted);
}

std::size_t PixelLoader::usefulThreads(const Job& job) const {
    const auto affordable = static_cast<std::size_t>(kDecodingBytes / decodingBytes(job.tags));
    const std::size_t useful = std::min({decoders_.size(), job.tags.size(), affordable});
    return useful > 1 && !overlap(job) ? useful : 1;
}

// True when a pixel of a channel has several tags: their order counts then.
bool PixelLoader::overlap(const Job& job) const {
    std::map<std::int32_t, std::vector<PixelBox>> boxes;
    std::map<std::int32_t, std::int64_t> areas;
    for (const INFOTAG* tag : job.tags) {
        const PixelBox box = intersect(boxOf(*tag), job.region.box());
        if (box.empty()) continue;
        boxes[tag->p8].push_back(box);
        areas[tag->p8] += box.area();
    }
    for (auto& [channel, list] : boxes) {
        if (coveredPixels(std::move(list), job.region.box()) != areas[channel]) return true;
    }
    return false;
}

// Takes tags until there are none left. `count` is for one of the threads, null for the others.
void PixelLoader::work(Job& job, Decoder& decoder, WorkCount* count) {
    try {
        for (std::size_t i = job.next++; i < job.tags.size(); i = job.next++) {
            const INFOTAG& tag = *job.tags[i];
            const PixelBox box = intersect(boxOf(tag), job.region.box());
            if (const char* cause = place(tag, box, job.region, decoder)) {
                restore(job, i, decoder);
                noteLoss(tag, cause);
            }
            const std::int64_t done = ++job.done;
            if (count != nullptr) count->add(done - std::exchange(job.counted, done));
        }
    } catch (...) {
        job.next = job.tags.size();  // for the other threads
        const std::lock_guard lock(mutex_);
        failure_ = std::current_exception();
    }
}

// A tag that reaches into several regions is listed once.
void PixelLoader::noteLoss(const INFOTAG& tag, const char* cause) {
    const std::lock_guard lock(mutex_);
    lost_.try_emplace(tag.offset, Loss{tag, cause});
}

// Undoes what a large tag has written before its fault was found: the values of earlier tags are read again.
// Where tags overlap, one thread does all the work.
void PixelLoader::restore(const Job& job, std::size_t lost, Decoder& decoder) {
    const INFOTAG& tag = *job.tags[lost];
    const std::size_t channel = byIndex_.at(tag.p8);
    const PixelBox box = intersect(boxOf(tag), job.region.box());
    const int valueSize = findPixelKind(tag.id)->valueSize;
    if (pixelBytes(tag) <= kLargestHeld || valueSize != job.region.table(channel)->itemSize) return;
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
                               Decoder& decoder) {
    const PixelBox from = boxOf(tag);
    const std::size_t channel = byIndex_.at(tag.p8);
    if (MUtils::findPixelKind(tag.id)->valueSize != region.table(channel)->itemSize)
        return "the values are of another type than the channel's";
    if (pixelBytes(tag) > kLargestHeld) {
        RowRooms rooms(from, box, region.table(channel)->itemSize, channel, region);
        return decoder.read(tag, rooms);
    }
    return decoder.read(tag, [&](const MBVTable& values) {
        for (std::int64_t y = box.y0; y < box.y1; ++y) {
            const std::int64_t first = (y - from.y0) * from.width() + (box.x0 - from.x0);
            values.storeToBuffer(region.at(channel, box.x0, y), static_cast<int>(first),
                                 static_cast<int>(box.width()));
        }
    });
}

}  // namespace v1
}  // namespace MUtils
