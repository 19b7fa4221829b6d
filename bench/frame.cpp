#include "bench/frame.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "bench/harness.h"
#include "bench/plain.h"
#include "rawimage/read/callback.h"
#include "rawimage/read/mt_reader.h"

using namespace MUtils;

namespace bench {

std::unique_ptr<MBVTable> makeTable(int values, int valueSize) {
    auto table = std::make_unique<MBVTable>(valueSize, 0);
    table->initNotResizable(values, valueSize, kMaxBlockBytes);
    return table;
}

namespace {

class Loader final : public RIFileCallback {
  public:
    Loader(Frame& frame, std::size_t every) : frame_(frame), every_(every) {}

    bool setResolution(int width, int height, float) override {
        frame_.width = width;
        frame_.height = height;
        return true;
    }
    bool setNumChannels(int) override { return true; }
    bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias, const char* name) override {
        frame_.channels.push_back(makeChannel(index, type, alias, 0, name));
        return true;
    }
    int parseTag(RIF_TAG& tag) override {
        if (!isPixelTag(tag.id)) return 1;
        const auto place = places_.emplace(std::make_tuple(tag.p2, tag.p3), places_.size()).first->second;
        return place % every_ == 0 ? 1 : 2;
    }
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height, int,
                      int) override {
        const std::size_t place = places_.at({x, y}) / every_;
        if (place >= frame_.buckets.size()) frame_.buckets.resize(place + 1);
        Bucket& bucket = frame_.buckets[place];
        bucket.x = x, bucket.y = y, bucket.width = width, bucket.height = height;
        bucket.values.resize(frame_.channels.size());
        auto table = makeTable(count, data.itemSize);
        Bytes bytes(static_cast<std::size_t>(count) * static_cast<std::size_t>(data.itemSize));
        data.storeToBuffer(bytes.data(), 0, count);
        table->loadFromBuffer(bytes.data(), count);
        bucket.values.at(static_cast<std::size_t>(channel)) = std::move(table);
        return true;
    }

  private:
    Frame& frame_;
    std::size_t every_;
    std::map<std::tuple<int, int>, std::size_t> places_;
};

class Summing final : public RIFileCallback {
  public:
    bool setResolution(int, int, float) override { return true; }
    bool setNumChannels(int) override { return true; }
    bool setChannel(int, RegionChannelType, RegionChannelAlias, const char*) override { return true; }
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int, int, int,
                      int) override {
        Bytes bytes(static_cast<std::size_t>(count) * static_cast<std::size_t>(data.itemSize));
        data.storeToBuffer(bytes.data(), 0, count);
        const unsigned long sum = adler32(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())),
                                          bytes.data(), static_cast<uInt>(bytes.size()));
        const std::lock_guard<std::mutex> lock(mutex_);
        sums[{channel, x, y}] = sum;
        return true;
    }
    Checksums sums;

  private:
    std::mutex mutex_;
};

}  // namespace

Frame Frame::load(const std::string& path, std::size_t every) {
    Frame frame;
    frame.path = path;
    Loader loader(frame, every);
    RIFile file;
    require(file.Open(path.c_str(), nullptr).empty() && file.ParseFile(loader) == 0, "cannot read a frame");
    for (const Bucket& bucket : frame.buckets) {
        const bool whole = std::all_of(bucket.values.begin(), bucket.values.end(),
                                       [](const auto& values) { return values != nullptr; });
        require(whole && !bucket.values.empty(), "a bucket lacks a channel");
    }
    return frame;
}

Bucket Frame::crop(int x, int y, int boxWidth, int boxHeight) const {
    Bucket box;
    box.x = x, box.y = y, box.width = boxWidth, box.height = boxHeight;
    for (const RIF_CHANNEL& channel : channels) {
        box.values.push_back(makeTable(boxWidth * boxHeight, findChannelKind(channel.type)->valueSize));
        std::memset(box.values.back()->item(0), 0, static_cast<std::size_t>(box.values.back()->blockBytes));
    }
    for (const Bucket& bucket : buckets) {
        const int left = std::max(x, bucket.x), right = std::min(x + boxWidth, bucket.x + bucket.width);
        const int top = std::max(y, bucket.y), bottom = std::min(y + boxHeight, bucket.y + bucket.height);
        for (int row = top; row < bottom && left < right; ++row) {
            for (std::size_t c = 0; c < channels.size(); ++c) {
                bucket.values[c]->storeToBuffer(box.values[c]->item((row - y) * boxWidth + left - x),
                                                (row - bucket.y) * bucket.width + left - bucket.x,
                                                right - left);
            }
        }
    }
    return box;
}

void Frame::describe(const Bucket& bucket, MRRegionData& region) const {
    region.x0 = bucket.x;
    region.y0 = bucket.y;
    region.x1 = bucket.x + bucket.width;
    region.y1 = bucket.y + bucket.height;
    region.width = bucket.width;
    region.height = bucket.height;
    region.channels.setCount(static_cast<int>(channels.size()));
    for (std::size_t c = 0; c < channels.size(); ++c) {
        MUtils::RegionChannel& channel = region.channels[static_cast<int>(c)];
        channel.type = static_cast<RegionChannelType>(channels[c].type);
        channel.alias = static_cast<RegionChannelAlias>(channels[c].alias);
        std::memcpy(channel.name, channels[c].name, sizeof channel.name);
        channel.data = bucket.values[c].get();
    }
}

std::int64_t Frame::pixelBytes() const {
    std::int64_t bytes = 0;
    for (const RIF_CHANNEL& channel : channels)
        bytes += findChannelKind(channel.type)->valueSize;
    return bytes;
}

std::int64_t Frame::rawBytes() const {
    std::int64_t pixels = 0;
    for (const Bucket& bucket : buckets)
        pixels += std::int64_t{bucket.width} * bucket.height;
    return pixels * pixelBytes();
}

ChannelList::ChannelList(const std::vector<RIF_CHANNEL>& channels) {
    for (const RIF_CHANNEL& channel : channels) {
        entries_.push_back(std::make_unique<Entry>(channel));
        table_.Add(entries_.back().get());
    }
}

std::vector<INFOTAG> pixelTags(const std::string& path) {
    RIFile file;
    require(file.Open(path.c_str(), nullptr).empty() && file.ReadInfoTags(nullptr) == 0,
            "cannot read a tag table");
    std::vector<INFOTAG> tags;
    for (int i = 0; i < file.NumTags(); ++i) {
        if (isPixelTag(file.GetTag(i)->id)) tags.push_back(*file.GetTag(i));
    }
    return tags;
}

Checksums checksumsRead(const std::string& path, int threads) {
    Summing summing;
    RIFileMT file(nullptr, threads);
    require(file.Open(path.c_str(), nullptr).empty() && file.ParseFile(summing) == 0, "cannot read a file");
    return summing.sums;
}

Checksums checksumsPlain(const std::string& path, const std::vector<INFOTAG>& tags) {
    const PlainFile file(path);
    Checksums sums;
    Bytes zipped, values;
    for (const INFOTAG& tag : tags) {
        file.inflate(tag, zipped, values);
        const unsigned long sum = adler32(crc32(0, values.data(), static_cast<uInt>(values.size())),
                                          values.data(), static_cast<uInt>(values.size()));
        sums[{tag.p8, tag.p2, tag.p3}] = sum;
    }
    return sums;
}

}  // namespace bench
