#include "tests/testing/sample_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace testing_tools {

namespace {

constexpr int kTypes = 6;
constexpr int kAliases[] = {117, 126, 3, 4, 5, 125, 0};

void expectOk(const ErrorCode& error) {
    EXPECT_TRUE(error.empty()) << error.describe();
}

std::string sampleValues(int bucket, int channel, int size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    for (int i = 0; i < size; ++i) {
        bytes[static_cast<std::size_t>(i)] = static_cast<char>((i * 31 + bucket * 13 + channel * 7) % 251);
    }
    return bytes;
}

// A bucket whose channels are of the types 1 to 6, and one without values whose name has no room for its NUL.
struct SampleRegion : MRRegionData {
    SampleRegion(int bucket, const SampleOptions& options) {
        x0 = bucket * options.bucketWidth;
        width = options.bucketWidth;
        height = options.bucketHeight;
        for (int i = 0; i <= kTypes; ++i) {
            RegionChannel channel;
            channel.type = static_cast<RegionChannelType>(i < kTypes ? i + 1 : 0);
            channel.alias = static_cast<RegionChannelAlias>(kAliases[i]);
            std::memset(channel.name, 'a' + i, i < kTypes ? 4 : sizeof channel.name);
            if (i < kTypes) channel.data = addValues(bucket, i, options.blockBytes);
            channels.Add(channel);
        }
    }
    MBVTable* addValues(int bucket, int channel, int blockBytes) {
        const int valueSize = MUtils::findChannelKind(channel + 1)->valueSize;
        values.push_back(sampleValues(bucket, channel, width * height * valueSize));
        tables.push_back(std::make_unique<MBVTable>(valueSize, blockBytes));
        tables.back()->setCount(width * height);
        tables.back()->loadFromBuffer(values.back().data(), width * height);
        return tables.back().get();
    }

    std::vector<std::string> values;
    std::vector<std::unique_ptr<MBVTable>> tables;
};

void writeFrame(RIFile& file, const SampleOptions& options, std::vector<Event>& events) {
    const int width = options.buckets * options.bucketWidth;
    expectOk(file.WTResolution(width, options.bucketHeight, -0.0f));
    events.push_back({"setResolution", {width, options.bucketHeight, 0x80000000LL}, {}});
    expectOk(file.WTRegionsInfo(options.bucketWidth, options.bucketHeight, 0));
    SampleRegion region(0, options);
    expectOk(file.WTChannelInfo(&region));
    events.push_back({"setNumChannels", {kTypes + 1}, {}});
    for (int i = 0; i <= kTypes; ++i) {
        const std::string name(i < kTypes ? 4 : 63, static_cast<char>('a' + i));
        events.push_back({"setChannel", {i, region.channels[i].type, kAliases[i]}, name});
    }
}

void writeMetadata(RIFile& file, std::vector<Event>& events) {
    RICameraInfo camera;
    for (std::size_t i = 0; i < sizeof camera; ++i) {
        reinterpret_cast<unsigned char*>(&camera)[i] = static_cast<unsigned char>(i);
    }
    expectOk(file.WTCameraInfo(camera));
    events.push_back({"setCameraInfo", {}, bytesOf(camera)});
    expectOk(file.WTRenderRegion({-1, 2, 3, 4, 5}));
    events.push_back({"setRenderRegion", {-1, 2, 3, 4, 5}, {}});
    RISceneInfo scene(-7, "scene");
    expectOk(file.WTSceneInfo(scene));
    events.push_back({"setSceneInfo", {-7}, "scene"});
    expectOk(file.WTNote("A note."));
    events.push_back({"askNote", {}, {}});
    events.push_back({"setNote", {}, "A note."});
    char blob[] = "bl\0b";
    expectOk(file.WTStamp(blob, 4));
    expectOk(file.WTStampText("stamp text"));
    expectOk(file.WTOverlayTexts(blob, 0));
    expectOk(file.WTMirtSettings(blob, 5));
    events.push_back({"setStampData", {0, 4}, std::string(blob, 4)});
    events.push_back({"setOverlayTextData", {0, 0}, {}});
    events.push_back({"setMirtSettings", {0, 5}, std::string(blob, 5)});
    MUtils::RGB24 pixels[] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}, {13, 14, 15}, {16, 17, 18}};
    expectOk(file.WTPreview(pixels, 3, 2));
    events.push_back({"setPreview", {6, 3, 2}, bytesOf(pixels)});
}

// How many events the tag gives.
std::ptrdiff_t eventsOf(const RIF_TAG& tag) {
    switch (tag.id) {
        case TAG_CHANNEL_INFO: return 1 + tag.p1;
        case TAG_NOTE: return 2;
        case TAG_REGIONS_INFO:
        case TAG_STAMP_TEXT:
        case TAG_INFO_TAGS: return 0;
        default: return 1;
    }
}

struct SampleWriter : RIFile {
    using RIFile::header;
};

}  // namespace

int Sample::find(std::uint32_t id) const {
    int index = 0;
    while (index < tagCount() && tag(index).id != id)
        ++index;
    return index < tagCount() ? index : -1;
}

std::ptrdiff_t Sample::eventsBefore(int index) const {
    std::ptrdiff_t count = 0;
    while (--index >= 0)
        count += eventsOf(tag(index));
    return count;
}

std::vector<Event> Sample::eventsWithout(std::uint32_t id) const {
    std::vector<Event> rest = events;
    const int index = find(id);
    rest.erase(rest.begin() + eventsBefore(index), rest.begin() + eventsBefore(index + 1));
    return rest;
}

void writeBucket(RIFile& file, int bucket, const SampleOptions& options, std::vector<Event>& events) {
    SampleRegion region(bucket, options);
    expectOk(file.WTRegion(&region, 99, 28, 32));
    const int count = region.width * region.height;
    for (int i = kTypes - 1; i >= 0; --i) {
        events.push_back({"setImageData",
                          {count, i, region.x0, region.y0, region.width, region.height, 28, 32},
                          region.values[static_cast<std::size_t>(i)]});
    }
}

Sample makeSample(const SampleOptions& options) {
    Sample sample;
    FaultStream stream;
    SampleWriter file;
    stream.Open();
    expectOk(file.Create(nullptr, &stream));
    expectOk(file.WriteHeader(0));
    if (!options.compressed) file.header.flags = 0;
    writeFrame(file, options, sample.events);
    if (options.metadata) writeMetadata(file, sample.events);
    for (int bucket = 0; bucket < options.buckets; ++bucket)
        writeBucket(file, bucket, options, sample.events);
    if (options.closed) expectOk(file.Close());
    static_cast<std::vector<unsigned char>&>(sample.bytes) = stream.bytes();
    sample.bytes[20] = options.compressed ? 1 : 0;  // the flags word
    for (std::int64_t at = 32; at < stream.size(); at += sample.tag(sample.tagCount() - 1).size) {
        sample.offsets.push_back(at);
    }
    return sample;
}

}  // namespace testing_tools
