#include "cli/pixel_loader.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "cli/interrupt.h"
#include "cli/report.h"
#include "rawimage/tools/coverage.h"

namespace rimg {

namespace {

// What several threads may decode at a time.
constexpr double kDecodingBytes = 1 << 29;

// A decoder's memory: the payload and the values, large ones twice.
double decodingBytes(const std::vector<const INFOTAG*>& tags) {
    double most = 1;
    for (const INFOTAG* tag : tags) {
        const double values = static_cast<double>(boxOf(*tag).area()) * findPixelKind(tag->id)->valueSize;
        most = std::max(most, static_cast<double>(tag->size) + values * (values > kMaxBlockBytes ? 2 : 1));
    }
    return most;
}

MUtils::PixelBox pixelBox(const Rect& r) {
    return {static_cast<int>(r.x0), static_cast<int>(r.y0), static_cast<int>(r.width()),
            static_cast<int>(r.height())};
}

}  // namespace

Rect boxOf(const RIF_TAG& tag) {
    return {tag.p2, tag.p3, std::int64_t{tag.p2} + tag.p4, std::int64_t{tag.p3} + tag.p5};
}

ChannelRegion::ChannelRegion(const std::vector<ExrChannel>& list) : channels_(list) {
    for (const ExrChannel& channel : list) {
        RegionChannel entry;
        entry.type = channel.type;
        entry.alias = channel.alias;
        entry.flags = channel.flags;
        std::snprintf(entry.name, sizeof entry.name, "%s", channel.name.c_str());
        tables_.push_back(channel.isWritten() ? std::make_unique<MBVTable>(channel.valueSize(), 0) : nullptr);
        entry.data = tables_.back().get();
        channels.Add(entry);
    }
}

double ChannelRegion::bytesNeeded(const std::vector<ExrChannel>& channels, std::int64_t pixels) {
    double bytesOfPixel = 0;
    for (const ExrChannel& channel : channels)
        bytesOfPixel += channel.isWritten() ? channel.valueSize() : 0;
    return bytesOfPixel * static_cast<double>(pixels);
}

void ChannelRegion::setBox(const Rect& box) {
    x0 = static_cast<int>(box.x0);
    y0 = static_cast<int>(box.y0);
    x1 = static_cast<int>(box.x1);
    y1 = static_cast<int>(box.y1);
    width = static_cast<int>(box.width());
    height = static_cast<int>(box.height());
    for (std::size_t i = 0; i < tables_.size(); ++i) {
        if (tables_[i] == nullptr) continue;
        tables_[i]->initReusing(static_cast<int>(box.area()), channels_[i].valueSize(), INT_MAX);
    }
}

unsigned char* ChannelRegion::at(std::size_t channel, std::int64_t x, std::int64_t y) const {
    return tables_[channel]->item(static_cast<int>((y - y0) * width + (x - x0)));
}

void copyPixels(const ChannelRegion& from, const Rect& box, ChannelRegion& to) {
    to.setBox(box);
    for (std::size_t i = 0; i < from.size(); ++i) {
        if (from.table(i) == nullptr) continue;
        const auto rowBytes = static_cast<std::size_t>(box.width() * from.table(i)->itemSize);
        for (std::int64_t y = box.y0; y < box.y1; ++y)
            std::memcpy(to.at(i, box.x0, y), from.at(i, box.x0, y), rowBytes);
    }
}

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
    for (const auto& [index, channel] : byIndex_) {
        const MBVTable& table = *region.table(channel);
        std::memset(region.at(channel, region.x0, region.y0), 0,
                    static_cast<std::size_t>(table.count) * static_cast<std::size_t>(table.itemSize));
    }
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
    std::map<std::int32_t, std::vector<MUtils::PixelBox>> boxes;
    std::map<std::int32_t, std::int64_t> areas;
    for (const INFOTAG* tag : job.tags) {
        const Rect box = intersect(boxOf(*tag), job.region.box());
        if (box.empty()) continue;
        boxes[tag->p8].push_back(pixelBox(box));
        areas[tag->p8] += box.area();
    }
    for (auto& [channel, list] : boxes) {
        if (MUtils::coveredPixels(std::move(list), pixelBox(job.region.box())) != areas[channel]) return true;
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
            if (const char* cause = place(*job.tags[i], job.region, decoder)) {
                const std::lock_guard lock(mutex_);
                lost_.push_back({*job.tags[i], cause});
            }
            const std::int64_t done = ++job.done;
            if (progress != nullptr) progress->advance(done - std::exchange(told, done));
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        failure_ = std::current_exception();
    }
}

// Copies the part of a tag's values that lies in the region. Null, or why there are none.
const char* PixelLoader::place(const INFOTAG& tag, ChannelRegion& region, PixelDecoder& decoder) {
    const Rect from = boxOf(tag);
    const Rect box = intersect(from, region.box());
    const std::size_t channel = byIndex_.at(tag.p8);
    if (findPixelKind(tag.id)->valueSize != region.table(channel)->itemSize)
        return "the values are of another type than the channel's";
    return decoder.decode(tag, [&](const MBVTable& values) {
        for (std::int64_t y = box.y0; y < box.y1; ++y) {
            const std::int64_t first = (y - from.y0) * from.width() + (box.x0 - from.x0);
            values.storeToBuffer(region.at(channel, box.x0, y), static_cast<int>(first),
                                 static_cast<int>(box.width()));
        }
    });
}

}  // namespace rimg
