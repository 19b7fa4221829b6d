#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "rawimage/tools/recover.h"
#include "rawimage/tools/verify.h"
#include "rawimage/writer.h"
#include "tests/testing/collect.h"
#include "tests/testing/fault_stream.h"
#include "tests/testing/memory_file.h"

// A small frame to render into files that break, and the questions that are asked of what is left.

namespace testing_tools {

// Bucket `index` of a row of buckets. Its values are noise, and those of no other bucket or channel.
class FrameRegion : public MRRegionData {
  public:
    static constexpr int kSide = 4;
    static constexpr RegionChannelType kTypes[] = {RCT_COLOR, RCT_FLOAT, RCT_INT};

    explicit FrameRegion(int index) {
        x0 = index * kSide;
        x1 = x0 + kSide;
        y1 = width = height = kSide;
        std::uint32_t noise = static_cast<std::uint32_t>(index) * 2654435761u + 1;
        for (const RegionChannelType type : kTypes) {
            const int valueSize = MUtils::findChannelKind(type)->valueSize;
            std::string values(static_cast<std::size_t>(kSide * kSide * valueSize), '\0');
            for (char& byte : values)
                byte = static_cast<char>((noise = noise * 1664525u + 1013904223u) >> 24);
            tables_.push_back(std::make_unique<MBVTable>(valueSize, 1 << 16));
            tables_.back()->setCount(kSide * kSide);
            tables_.back()->loadFromBuffer(values.data(), kSide * kSide);
            RegionChannel channel;
            channel.type = type;
            channel.name[0] = static_cast<char>('a' + channels.Count());
            channel.data = tables_.back().get();
            events.push_back({"setImageData",
                              {kSide * kSide, channels.Count(), x0, 0, kSide, kSide, index, 7},
                              std::move(values)});
            channels.Add(channel);
        }
    }
    ErrorCode write(RIFile& file) { return file.WTRegion(this, 0, x0 / kSide, 7); }

    std::vector<Event> events;  // what a reader delivers of it

  private:
    std::vector<std::unique_ptr<MBVTable>> tables_;
};

using Step = std::function<ErrorCode(RIFile&)>;

// The calls between Create and the first bucket.
inline std::vector<Step> frameStart(int buckets) {
    return {[](RIFile& f) { return f.WriteHeader(0); },
            [=](RIFile& f) { return f.WTResolution(buckets * FrameRegion::kSide, FrameRegion::kSide, 1); },
            [](RIFile& f) { return f.WTRegionsInfo(FrameRegion::kSide, FrameRegion::kSide, 0); },
            [](RIFile& f) {
                FrameRegion region(0);
                return f.WTChannelInfo(&region);
            },
            [](RIFile& f) {
                return f.WTRenderRegion({-1, 0, 0, 0, 0});
            },
            [](RIFile& f) { return f.WTNote("a frame"); }};
}

inline Step bucketStep(int index) {
    return [index](RIFile& f) { return FrameRegion(index).write(f); };
}

// A render that starts a file, or continues one that has its first bucket; Close is its last step.
struct Script {
    static constexpr int kBuckets = 3;

    const char* name;
    std::vector<unsigned char> before;
    std::vector<Step> steps;
    int firstBucket;  // of those that are rendered

    bool create() const { return before.empty(); }
};

inline Script makeScript(const char* name, std::vector<unsigned char> before, std::vector<Step> steps,
                         int firstBucket) {
    for (int i = firstBucket; i < Script::kBuckets; ++i)
        steps.push_back(bucketStep(i));
    steps.push_back([](RIFile& f) { return f.Close(); });
    return {name, std::move(before), std::move(steps), firstBucket};
}

inline Script createScript() {
    return makeScript("create", {}, frameStart(Script::kBuckets), 0);
}

inline Script appendScript(const char* name, bool closed, bool compressed = true) {
    struct Writer : RIFile {
        using RIFile::header;
    };
    FaultStream stream;
    stream.Open();
    Writer file;
    (void)file.Create(nullptr, &stream);
    for (const Step& step : frameStart(Script::kBuckets))
        (void)step(file);
    if (!compressed) file.header.flags = 0;
    (void)bucketStep(0)(file);
    if (closed) (void)file.Close();
    std::vector<unsigned char> before = stream.bytes();
    before[20] = compressed ? 1 : 0;
    return makeScript(name, std::move(before), {[](RIFile& f) {
                          const int code = f.ReadInfoTags(nullptr);
                          return code != 0 ? ErrorCode("ReadInfoTags", code, "code") : ErrorCode();
                      }},
                      1);
}

// The pixels of the buckets first .. last - 1, sorted.
inline std::vector<Event> bucketEvents(int first, int last) {
    std::vector<Event> events;
    for (int i = first; i < last; ++i) {
        const FrameRegion region(i);
        events.insert(events.end(), region.events.begin(), region.events.end());
    }
    std::sort(events.begin(), events.end());
    return events;
}

// Elements of sorted `a` that sorted `b` lacks.
template <class T>
std::vector<T> without(const std::vector<T>& a, const std::vector<T>& b) {
    std::vector<T> rest;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(rest));
    return rest;
}

// What a reader delivers, of the pixels sorted.
struct Delivered {
    int code = 0;
    std::size_t tags = 0;  // that the callback was asked about
    std::vector<Event> events;
    std::vector<Event> pixels;
};

inline Delivered parse(RIFile& file) {
    CollectCallback seen;
    Delivered delivered;
    delivered.code = file.ParseFile(seen);
    delivered.tags = seen.tags.size();
    for (Event& event : seen.events) {
        if (event.call == "setImageData") delivered.pixels.push_back(event);
        delivered.events.push_back(std::move(event));
    }
    std::sort(delivered.pixels.begin(), delivered.pixels.end());
    return delivered;
}

inline Delivered parse(const char* fileName) {
    RIFile file;
    (void)file.Open(fileName, nullptr);
    return parse(file);
}

inline MUtils::FileState verdictOf(const char* fileName, bool quick = false) {
    MUtils::VerifyOptions options;
    options.quick = quick;
    options.threads = 1;
    return MUtils::verifyFile(fileName, options).state;
}

inline bool isSound(MUtils::FileState verdict) {
    return verdict == MUtils::FileState::kGood || verdict == MUtils::FileState::kIncomplete;
}

// The pixels that recovery saves, sorted.
inline std::vector<Event> recoveredPixels(const char* fileName) {
    const MemoryFile output;
    MUtils::RecoverOptions options;
    options.threads = 1;
    (void)MUtils::recoverFile(fileName, output.path(), options);
    return parse(output.path()).pixels;
}

}  // namespace testing_tools
