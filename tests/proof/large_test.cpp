#include <gtest/gtest.h>

#include <climits>

#include "rawimage/read/mt_reader.h"
#include "rawimage/tools/summary.h"
#include "tests/proof/frame.h"

// Files beyond 4 GiB, almost all of it holes, and tags as large as a tag can be.

using namespace MUtils;
using namespace testing_tools;

namespace {

constexpr int kLargest = INT_MAX - kTagHeaderBytes;  // payload of a writer's largest tag
constexpr std::int64_t kScene = 0xFFFFFFF0;          // size of a tag that fills the field

struct LargeFile : RIFile {
    // A tag whose payload is a hole.
    ErrorCode hole(std::uint32_t id, int bytes) {
        ErrorCode error = WriteTagHeader(static_cast<int>(id), bytes, bytes);
        stream->Skip(bytes);
        return error;
    }
    // A tag larger than any writer's, of a kind that the table need not list.
    void hugeScene() {
        RIF_TAG tag;
        tag.id = TAG_SCENE_INFO;
        tag.size = static_cast<std::uint32_t>(kScene);
        unsigned char bytes[kTagHeaderBytes];
        encodeTag(tag, bytes);
        int written = 0;
        stream->Write(bytes, kTagHeaderBytes, written);
        stream->Skip(kScene - kTagHeaderBytes);
    }
};

// Passes over everything but pixels.
struct PixelsOnly : CollectCallback {
    int parseTag(RIF_TAG& tag) override {
        ++tagCount;
        return isPixelTag(tag.id) ? 1 : 2;
    }
    std::atomic<int> tagCount{0};
};

std::vector<Event> pixelsOf(RIFile& reader, const char* path) {
    PixelsOnly seen;
    EXPECT_TRUE(reader.Open(path, nullptr).empty());
    EXPECT_EQ(reader.ParseFile(seen), 0);
    EXPECT_GT(seen.tagCount, 9);
    std::sort(seen.events.begin(), seen.events.end());
    return seen.events;
}

void expectWhole(const char* path, int buckets, bool closed) {
    RIFile sequential;
    EXPECT_EQ(pixelsOf(sequential, path), bucketEvents(0, buckets));
    MUtils::VerifyOptions quick;
    quick.quick = true;
    const MUtils::VerifyReport report = MUtils::verifyFile(path, quick);
    EXPECT_EQ(report.state, closed ? FileState::kGood : FileState::kUnfinished) << report.cause;
    const MUtils::FileSummary summary = MUtils::summariseFile(path, true);
    EXPECT_EQ(summary.finished, closed);
    EXPECT_GT(summary.tags.back().offset, std::uint64_t{1} << 33);

    RIFile file;
    ASSERT_TRUE(file.Open(path, nullptr).empty());
    ASSERT_EQ(file.ReadInfoTags(nullptr), 0);
    const int settings = file.FindNextTag(TAG_SETTINGS, 0);
    EXPECT_EQ(file.GetTagDataSize(settings), kLargest);
    for (int i = -1, found = 0; (i = file.FindNextChanTag(i)) != -1; ++found) {
        std::vector<unsigned char> payload(static_cast<std::size_t>(file.GetTagDataSize(i)));
        EXPECT_EQ(file.ReadTag(i, payload.data()), 0);
        EXPECT_EQ(payload[0], 0x78) << "not the beginning of a zlib stream";
    }
}

}  // namespace

TEST(Large, TagsBeyondFourGigabytes) {
    const MemoryFile target;
    LargeFile file;
    ASSERT_TRUE(file.Create(target.path(), nullptr).empty());
    file.setSyncOnClose(false);
    for (const Step& step : frameStart(3))
        ASSERT_TRUE(step(file).empty());
    ASSERT_TRUE(bucketStep(0)(file).empty());
    ASSERT_TRUE(file.hole(TAG_SETTINGS, kLargest).empty() && file.hole(TAG_STAMP, kLargest).empty());
    file.hugeScene();
    ASSERT_TRUE(bucketStep(1)(file).empty());
    expectWhole(target.path(), 2, false);
    ASSERT_TRUE(bucketStep(2)(file).empty() && file.Close().empty());
    expectWhole(target.path(), 3, true);
    RIFileMT threaded(nullptr, 2);
    // This reader passes over payloads that are larger than their values, as noise is.
    EXPECT_TRUE(without(pixelsOf(threaded, target.path()), bucketEvents(0, 3)).empty());

    // Continued behind the table, which lies there, too.
    ASSERT_TRUE(file.Append(target.path(), nullptr).empty());
    ASSERT_EQ(file.ReadInfoTags(nullptr), 0);
    ASSERT_TRUE(file.WTNote("at the end").empty() && file.Close().empty());
    expectWhole(target.path(), 3, true);
}

TEST(Large, PayloadsThatNoTagHoldsAreRefusedByName) {
    FaultStream stream;
    stream.Open();
    RIFile file;
    ASSERT_TRUE(file.Create(nullptr, &stream).empty());
    MBVTable values(16, 64);
    values.setCount(1);
    MUtils::RGB24 pixel[1];
    float number[3];
    char blob[1];
    const std::pair<const char*, ErrorCode> refused[] = {
        {"WTStamp", file.WTStamp(blob, INT_MAX)},
        {"WTOverlayTexts", file.WTOverlayTexts(blob, kLargest + 1)},
        {"WTMirtSettings", file.WTMirtSettings(blob, INT_MAX)},
        {"WTPreview", file.WTPreview(pixel, 26755, 26755)},
        {"WTChan", file.WTChan(values, 0, 0, nullptr, RCA_NONE, RCT_FLOAT4, 0, 0, 16384, 16384, 0, 0)},
        {"WTInt", file.WTInt(values, 0, 0, 0, 65536, 65536, 0, 0, 0)},
        {"_WT3Float", file._WT3Float(number, 0, 0, 0, 13378, 13378, 0, 0, 0)},
        {"WriteTagHeader", file.WriteTagHeader(TAG_STAMP, -1)},
    };
    for (const auto& [name, error] : refused) {
        EXPECT_EQ(error.getError(), -1) << name;
        EXPECT_EQ(error.describe().find(name), 0u) << error.describe();
    }
    EXPECT_EQ(stream.size(), 0);
}
