#include "rawimage/tools/summary.h"

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "tests/testing/fault_stream.h"
#include "tests/testing/sample_file.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

FileSummary summarise(const std::vector<unsigned char>& bytes) {
    FaultStream stream(bytes);
    stream.Open();
    return summariseStream(stream, true);
}

TEST(Summary, TellsWhatTheFileHolds) {
    const Sample sample = makeSample();
    const FileSummary summary = summarise(sample.bytes);
    EXPECT_EQ(summary.state, FileState::kGood) << summary.cause;
    EXPECT_TRUE(summary.finished);
    EXPECT_EQ(summary.header.infoTagsOffset, static_cast<std::uint64_t>(sample.offsets.back()));
    EXPECT_EQ(summary.fileBytes, static_cast<std::int64_t>(sample.bytes.size()));

    ASSERT_EQ(summary.tagCount, sample.tagCount());
    EXPECT_EQ(summary.resolution.value().width, 10);
    EXPECT_EQ(bitsFromFloat(summary.resolution->aspect), 0x80000000u);
    EXPECT_EQ(summary.buckets.value().height, 3);
    const auto has = [&sample](const Event& event) {
        return std::count(sample.events.begin(), sample.events.end(), event) == 1;
    };
    EXPECT_TRUE(has({"setCameraInfo", {}, bytesOf(summary.camera.value())}));
    const RIRegionInfo region = summary.region.value();
    EXPECT_TRUE(
        has({"setRenderRegion", {region.kind, region.left, region.top, region.width, region.height}, {}}));
    EXPECT_TRUE(has({"setSceneInfo", {summary.scene.value().value}, summary.scene->name.text}));
    EXPECT_TRUE(has({"setNote", {}, summary.note.value().text}));
    EXPECT_EQ(summary.note->bytes, kNoteBytes);
    EXPECT_EQ(summary.stampText.value().text, "stamp text");
    EXPECT_EQ(summary.stampBytes, sample.tag(sample.find(TAG_STAMP)).payloadBytes());
    EXPECT_EQ(summary.overlayBytes, sample.tag(sample.find(TAG_OVERLAY_TEXTS)).payloadBytes());
    EXPECT_EQ(summary.settingsBytes, sample.tag(sample.find(TAG_SETTINGS)).payloadBytes());
    EXPECT_EQ(summary.preview.value().width, sample.tag(sample.find(TAG_PREVIEW)).p1);
}

TEST(Summary, TellsWhatEveryChannelHas) {
    const Sample sample = makeSample();
    const FileSummary summary = summarise(sample.bytes);
    ASSERT_EQ(summary.channels.size(), 7u);
    for (int i = 0; i < 7; ++i) {
        const ChannelSummary& channel = summary.channels[static_cast<std::size_t>(i)];
        std::int64_t stored = 0;
        for (const INFOTAG& tag : summary.tags)
            stored += isPixelTag(tag.id) && tag.p8 == i ? tag.payloadBytes() : 0;
        const RIF_PIXEL_KIND* kind = findChannelKind(channel.record.type);
        EXPECT_EQ(channel.record.index, i);
        EXPECT_TRUE(channel.listed);
        EXPECT_EQ(channel.tags, i < 6 ? 2 : 0);
        EXPECT_EQ(channel.storedBytes, stored);
        EXPECT_EQ(channel.rawBytes, kind != nullptr ? 30 * kind->valueSize : 0);
        EXPECT_EQ(channel.coveredPixels, i < 6 ? 30 : 0);
    }
    EXPECT_EQ(std::string(summary.channels[6].record.name), std::string(63, 'g'));
}

// A file by hand: a frame of 4 x 2 and then what is added.
Bytes smallFile(std::uint64_t tableOffset) {
    Bytes bytes;
    bytes.fileHeader(tableOffset).tag(TAG_RESOLUTION, 0, {4, 2});
    bytes[20] = 0;  // not compressed
    return bytes;
}

void addPixels(Bytes& bytes, int channel, int x, int width) {
    const auto size = static_cast<std::uint32_t>(8 * width);
    bytes.tag(TAG_CHAN_FLOAT, size, {1, x, 0, width, 2, 0, 0, channel}).zeros(size);
}

TEST(Summary, TakesTheLastListAndShowsChannelsOutsideOfIt) {
    Bytes bytes = smallFile(0);
    addPixels(bytes, 0, 0, 3);
    for (const int flags : {1, 2})
        bytes.tag(TAG_CHANNEL_INFO, 80, {1, 80}).i32s({0, 1, 126, flags}).text("name").zeros(60);
    addPixels(bytes, 0, 2, 9);
    // A single tag of a channel that is not listed counts as damaged.
    addPixels(bytes, -3, 1, 1);
    addPixels(bytes, -3, 1, 1);
    const FileSummary summary = summarise(bytes);
    EXPECT_EQ(summary.state, FileState::kUnfinished);
    ASSERT_EQ(summary.channels.size(), 2u);
    EXPECT_EQ(summary.channels[0].record.flags, 2);
    EXPECT_EQ(summary.channels[0].tags, 2);
    EXPECT_EQ(summary.channels[0].coveredPixels, 8);
    EXPECT_FALSE(summary.channels[1].listed);
    EXPECT_EQ(summary.channels[1].record.index, -3);
    EXPECT_EQ(summary.channels[1].coveredPixels, 2);

    for (int i = 0; i < 2 * (kMaxUnlistedChannels + 4); ++i)
        addPixels(bytes, 10 + i / 2, 0, 0);
    EXPECT_EQ(summarise(bytes).furtherChannels, 5);
}

TEST(Summary, TellsAReadThatFailsFromTheEnd) {
    const Sample sample = makeSample();
    for (int nth = 1;; ++nth) {
        FaultStream stream(sample.bytes);
        stream.Open();
        stream.failAt(Call::kRead, nth, Fault::kErrorNothing, true);
        const FileSummary summary = summariseStream(stream, false);
        if (summary.state == FileState::kGood) break;
        ASSERT_EQ(summary.state, nth == 1 ? FileState::kCannotOpen : FileState::kDamaged) << nth;
        ASSERT_LT(nth, 1000);
    }
}

}  // namespace
