#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "rawimage/frame/raw_frame.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

// Files that are well formed and unlike what a renderer writes, and what a frame shows of them.

namespace {

using namespace MUtils;
using testing_tools::Bytes;
using testing_tools::Contents;
using testing_tools::MemoryFile;

using Frame = MUtils::RawFrame;

TEST(OddFrames, OfAnotherFormatShowNothing) {
    MemoryFile file;
    testing_tools::RawFrame().write(file.path());
    Contents bytes = file.bytes();
    bytes[0] ^= 1;
    file.fill(bytes);
    for (const auto inspect : {std::optional<InspectDepth>(), std::optional(InspectDepth::kRecords)}) {
        RawFrameOptions options;
        options.inspect = inspect;
        const Frame frame(file.path(), options);
        EXPECT_EQ(frame.state(), FileState::kNotThisFormat);
        EXPECT_FALSE(frame.cause().empty());
        const auto info = frame.info();
        EXPECT_TRUE(info->frame.empty() && info->area.empty() && info->channels.empty());
        EXPECT_FALSE(info->finished || info->buckets || info->region);
        EXPECT_TRUE(frame.missing().empty());
        EXPECT_TRUE(frame.buckets(boxAt(0, 0, 40, 24), 0).empty());
        EXPECT_FALSE(frame.records().note.has_value());
    }
}

TEST(OddFrames, OfAnySizeHaveFewBands) {
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    MemoryFile file;
    Bytes bytes;
    bytes.fileHeader(0).tag(TAG_RESOLUTION, 0, {kMost, kMost});
    const std::string payload = testing_tools::zipped(std::string(4 * 8 * 3, 'v'), 1);
    const auto size = static_cast<std::uint32_t>(payload.size());
    for (const std::int32_t y : {7, 1000000, kMost - 3})
        bytes.tag(TAG_CHAN_FLOAT, size, {RCT_FLOAT, 5, y, 8, 3, 0, 0, 0}).text(payload);
    file.fill(bytes);
    const Frame frame(file.path());
    const PixelBox box = frame.info()->frame;
    ASSERT_EQ(box, boxAt(0, 0, kMost, kMost));
    const std::vector<PixelBox> bands = frame.bands(box, {0}, 1);
    EXPECT_LE(bands.size(), kMaxFrameBands);
    std::int64_t y = 0;
    for (const PixelBox& band : bands) {
        ASSERT_EQ(band, (PixelBox{0, y, kMost, band.y1}));
        for (const std::int64_t top : {7, 1000000, kMost - 3})
            ASSERT_FALSE(band.y1 > top && band.y1 < top + 3) << boxText(band);
        y = band.y1;
    }
    EXPECT_EQ(y, kMost);
    EXPECT_LE(frame.uncutBands(box, {0}, 1).size(), kMaxFrameBands);
}

// Tags of one channel that differ in type: a visitor gets values of the channel's size and nothing else.
TEST(OddFrames, HandVisitorsNoValuesOfAnotherType) {
    const RegionChannelType orders[][3] = {{RCT_FLOAT, RCT_FLOAT4, RCT_INT},
                                           {RCT_FLOAT4, RCT_INT, RCT_COLOR}};
    for (const auto& types : orders) {
        Bytes bytes;
        bytes.fileHeader(0).tag(TAG_RESOLUTION, 0, {3, 1});
        std::int32_t x = 0;
        for (const RegionChannelType type : types) {
            const RIF_PIXEL_KIND* kind = findChannelKind(type);
            const std::string payload =
                testing_tools::zipped(std::string(static_cast<std::size_t>(kind->valueSize), 'v'), 1);
            bytes.tag(kind->tagId, static_cast<std::uint32_t>(payload.size()), {type, x++, 0, 1, 1, 0, 0, 0});
            bytes.text(payload);
        }
        MemoryFile file;
        file.fill(bytes);
        const Frame frame(file.path());
        ASSERT_EQ(frame.info()->findIndex(0)->type, types[0]);
        struct Collector final : BucketVisitor {
            bool visit(const FrameBucket& bucket) override {
                places.push_back(bucket.box.x0);
                return true;
            }
            std::vector<std::int64_t> places;
        } found;
        const FrameRead read = frame.visit(frame.info()->frame, {0}, found);
        EXPECT_EQ(found.places, std::vector<std::int64_t>{0});
        ASSERT_EQ(read.damaged.size(), 2u);
        EXPECT_EQ(read.damaged[0].cause, "values of another type than the channel's");
        EXPECT_EQ(read.damaged[0].box, boxAt(1, 0, 1, 1));
    }
}

// A record that cannot be read differs from one that the file does not have, and long texts are read whole.
TEST(OddFrames, HaveRecordsOfAnySizeOrReportThem) {
    const std::string name(kMaxSummaryText + 3, 'n');
    Bytes bytes;
    bytes.fileHeader(0).tag(TAG_RESOLUTION, 0, {3, 1});
    bytes.tag(TAG_SCENE_INFO, static_cast<std::uint32_t>(4 + name.size() + 1)).i32s({7}).text(name).zeros(1);
    bytes.tag(TAG_STAMP_TEXT, 6).text("stamp").zeros(1);
    bytes.tag(TAG_SETTINGS, 2, {2, 1}).text("xy");
    const std::int64_t settings = static_cast<std::int64_t>(bytes.size()) - 42;
    testing_tools::FaultStream stream{Contents(bytes)};
    stream.Open();
    const Frame frame(stream);
    ASSERT_EQ(frame.state(), FileState::kUnfinished) << frame.cause();
    EXPECT_EQ(frame.records().scene->name.text, "");
    EXPECT_EQ(frame.text(FrameText::kSceneName), name);
    EXPECT_EQ(frame.text(FrameText::kStampText), "stamp");
    EXPECT_EQ(frame.blob(FrameBlob::kSettings)->size(), 2u);
    for (const bool fails : {false, true}) {
        if (fails) stream.failAt(testing_tools::Call::kRead, 1, testing_tools::Fault::kErrorNothing, true);
        EXPECT_FALSE(frame.thumbnail() || frame.thumbnail().damage);
        EXPECT_FALSE(frame.blob(FrameBlob::kStamp) || frame.blob(FrameBlob::kStamp).damage);
        EXPECT_FALSE(frame.text(FrameText::kNote) || frame.text(FrameText::kNote).damage);
        EXPECT_EQ(frame.text(FrameText::kSceneName).has_value(), !fails);
        EXPECT_EQ(frame.text(FrameText::kSceneName).damage.has_value(), fails);
        EXPECT_EQ(frame.blob(FrameBlob::kSettings).damage.has_value(), fails);
    }
    EXPECT_EQ(frame.blob(FrameBlob::kSettings).damage->offset, settings);
}

}  // namespace
