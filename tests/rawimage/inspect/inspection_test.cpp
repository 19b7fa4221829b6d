#include "rawimage/inspect/inspection.h"

#include <gtest/gtest.h>

#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

// Two tags, at 32 and 72. Closed, a table of two entries at 112 that ends at 248.
Bytes smallFile(std::uint64_t tableOffset = 0) {
    return Bytes().fileHeader(tableOffset).tag(TAG_RESOLUTION, 0, {4, 2}).tag(TAG_REGIONS_INFO, 0, {2, 2});
}

TEST(Inspection, FollowsTheTableOffset) {
    const Bytes finished = closed(smallFile());
    const auto leadingTo = [&finished](std::uint64_t offset) {
        Bytes bytes = finished;
        storeU64(&bytes[kTableOffsetPosition], offset);
        return bytes;
    };
    const struct {
        const char* what;
        Bytes bytes;
        FileState state;
        std::int64_t offset;
    } cases[] = {
        {"as written", finished, FileState::kIncomplete, -1},
        {"table written, offset not", leadingTo(0), FileState::kUnfinished, 248},
        {"leads to another tag", leadingTo(72), FileState::kDamaged, kTableOffsetPosition},
        {"leads between tags", leadingTo(73), FileState::kDamaged, kTableOffsetPosition},
        {"leads past the end", leadingTo(~0ull), FileState::kDamaged, kTableOffsetPosition},
        {"a tag behind the table", Bytes(finished).tag(TAG_REGIONS_INFO, 0), FileState::kDamaged, 248},
        {"bytes behind the table", Bytes(finished).zeros(9), FileState::kDamaged, 248},
        {"appending, nothing yet", smallFile(112), FileState::kUnfinished, 112},
        {"cut in an appended tag", smallFile(112).tag(TAG_NOTE, 1024).zeros(7), FileState::kUnfinished, 112},
        {"cut in an unknown tag", smallFile().tag(999, 100).zeros(7), FileState::kDamaged, 112},
        {"zeros behind the last tag", smallFile().zeros(200), FileState::kUnfinished, 112},
    };
    for (const auto& c : cases) {
        for (const InspectDepth depth :
             {InspectDepth::kHeaders, InspectDepth::kRecords, InspectDepth::kPayloads}) {
            const Inspection found = inspected(c.bytes, depth);
            EXPECT_EQ(found.state, c.state) << c.what << ": " << found.cause;
            EXPECT_EQ(found.causeOffset, c.offset) << c.what << ": " << found.cause;
            EXPECT_EQ(found.tableOffset != 0, c.state == FileState::kIncomplete) << c.what;
        }
    }
}

TEST(Inspection, LeavesMissingPixelsToTheCallerWhenAsked) {
    const TempFolder folder;
    const std::string path = folder / "half.rimg";
    testing_tools::RawFrame frame;
    frame.boxes = {{0, 0, 16, 24}};
    frame.write(path);
    InspectOptions options;
    EXPECT_EQ(inspectFile(path.c_str(), options).state, FileState::kIncomplete);
    options.findMissing = false;
    const Inspection found = inspectFile(path.c_str(), options);
    EXPECT_EQ(found.state, FileState::kGood);
    EXPECT_TRUE(found.missing.empty() && found.missingInAny.boxes.empty());
}

// What a shallow look proves sound is sound for a deeper one, and what is cut is unfinished for all.
TEST(Inspection, FindsMoreTheDeeperItLooks) {
    const Sample sample = makeSample();
    const int pixels = sample.find(TAG_CHAN_FLOAT4);
    const struct {
        int tag, from;
        Bytes bytes;
        FileState headers, records, payloads;
    } cases[] = {
        {0, 0, {}, FileState::kGood, FileState::kGood, FileState::kGood},
        {sample.find(TAG_STAMP_TEXT), 43, Bytes().zeros(1), FileState::kGood, FileState::kDamaged,
         FileState::kDamaged},
        {pixels, 60, Bytes().zeros(9), FileState::kGood, FileState::kGood, FileState::kDamaged},
        {pixels, 4, Bytes().zeros(4), FileState::kDamaged, FileState::kDamaged, FileState::kDamaged},
    };
    for (const auto& c : cases) {
        const Contents bytes = with(sample.bytes, sample, c.tag, c.from, c.bytes);
        EXPECT_EQ(inspected(bytes, InspectDepth::kHeaders).state, c.headers) << c.tag;
        EXPECT_EQ(inspected(bytes, InspectDepth::kRecords).state, c.records) << c.tag;
        EXPECT_EQ(inspected(bytes).state, c.payloads) << c.tag;
    }
    for (std::size_t size = 0; size < sample.bytes.size(); size += 7) {
        const Inspection cut = inspected({sample.bytes.begin(), sample.bytes.begin() + std::ptrdiff_t(size)},
                                         InspectDepth::kHeaders);
        EXPECT_EQ(cut.state, size < 32 ? FileState::kNotThisFormat : FileState::kUnfinished) << size;
        EXPECT_LE(cut.causeOffset, static_cast<std::int64_t>(size));
    }
}

}  // namespace
