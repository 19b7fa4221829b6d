#include "rawimage/tools/verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "rawimage/tools/summary.h"
#include "tests/testing/check.h"

// tests/proof holds every single damaged byte against verify; here is what it says of which fault.

using namespace testing_tools;
using namespace MUtils;
using testing::HasSubstr;

TEST(Verify, GivesAVerdict) {
    const Sample sample = makeSample();
    const Bytes open = opened(sample.bytes);
    const int pixels = sample.find(TAG_CHAN_FLOAT4);
    const auto cut = [&sample](std::int64_t size) {
        return Contents(sample.bytes.begin(), sample.bytes.begin() + size);
    };
    const auto edited = [&sample](int tag, int from, const Bytes& bytes) {
        return with(sample.bytes, sample, tag, from, bytes);
    };
    Bytes longer = Bytes().fileHeader(0).tag(TAG_CHAN_INT, 8, {RCT_INT, 0, 0, 1, 1}).zeros(8);
    longer[20] = 0;  // not compressed
    const struct {
        const char* what;
        Contents bytes;
        const char* verdict;
        const char* quick = nullptr;  // where it differs
    } cases[] = {
        {"finished", sample.bytes, "good"},
        {"not compressed", makeSample({true, false}).bytes, "good"},
        {"without frame and channels", closed(Bytes().fileHeader(0)), "incomplete"},
        {"never closed", open, "unfinished"},
        {"nothing but a header", cut(32), "unfinished"},
        {"cut in the table", cut(sample.offsets.back() + 50), "unfinished"},
        {"cut in pixels", cut(sample.offset(pixels) + 45), "unfinished"},
        {"zeros that a power cut left", Bytes(open).zeros(700), "unfinished"},
        {"table, but no offset", edited(0, 12 - 32, Bytes().u64(0)), "unfinished"},
        {"zeros behind a note of another size", Bytes().fileHeader(0).tag(TAG_NOTE, 1024 ^ 64).zeros(1024),
         "damaged"},
        {"a tag behind the table", Bytes(sample.bytes).raw(&open[32], 40), "damaged"},
        {"bytes behind the table", Bytes(sample.bytes).zeros(7), "damaged"},
        {"pixels that do not inflate", edited(pixels, 60, Bytes().zeros(9)), "damaged", "good"},
        {"more values than their bucket has", closed(longer), "damaged"},
        {"list out of order", edited(2, 40, Bytes().u32(1)), "damaged"},
        {"half a file header", cut(31), "not this format"},
        {"other magic", edited(0, -32, Bytes().text("r")), "not this format"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(verdict(c.bytes), c.verdict) << c.what << ": " << verify(c.bytes).cause;
        EXPECT_EQ(verdict(c.bytes, true), c.quick != nullptr ? c.quick : c.verdict) << c.what;
        EXPECT_EQ(verify(c.bytes).cause.empty(), c.verdict == std::string("good")) << c.what;
    }
    EXPECT_EQ(verifyFile("/no/such/file", {}).state, FileState::kCannotOpen);
    EXPECT_EQ(verifyFile("/", {}).state, FileState::kCannotOpen);
}

TEST(Verify, TellsWhereAndWhyAFileIsDamaged) {
    const Sample sample = makeSample();
    const int pixels = sample.find(TAG_CHAN_FLOAT4) + 6;  // the second bucket's channel 5
    const int table = sample.tagCount() - 1;
    const int note = sample.find(TAG_NOTE), scene = sample.find(TAG_SCENE_INFO);
    const int stamp = sample.find(TAG_STAMP_TEXT), list = sample.find(TAG_CHANNEL_INFO);
    constexpr std::uint32_t kNoTag = 0;  // but the file header
    const struct {
        const char* cause;
        int tag, from;  // what is overwritten
        Bytes bytes;
        std::uint32_t tagId;
        std::int64_t offset;
        std::size_t faults = 1;
        bool repaired = false;
    } cases[] = {
        {"pixels do not inflate", pixels, 60, Bytes().zeros(9), TAG_CHAN_FLOAT4, sample.offset(pixels)},
        {"type of another tag", pixels, 8, Bytes().u32(1), TAG_CHAN_FLOAT4, sample.offset(pixels), 1, true},
        {"size that its parameters contradict", note, 4, Bytes().u32(99), TAG_NOTE, sample.offset(note), 1,
         true},
        {"size less than the tag header's", note, 4, Bytes().u32(39), TAG_NOTE, sample.offset(note), 1, true},
        {"unknown tag id", note, 0, Bytes().u32(999), TAG_NOTE, sample.offset(note), 1, true},
        {"record out of order", list, 40, Bytes().u32(4), TAG_CHANNEL_INFO, sample.offset(list)},
        {"record of an unknown type", list, 44, Bytes().u32(7), TAG_CHANNEL_INFO, sample.offset(list)},
        {"bytes behind its end", note, 300, Bytes().u32(7), TAG_NOTE, sample.offset(note)},
        {"scene name without", scene, 49, Bytes().text("x"), TAG_SCENE_INFO, sample.offset(scene)},
        {"stamp text without", stamp, 43, Bytes().zeros(1), TAG_STAMP_TEXT, sample.offset(stamp)},
        {"entry leads to no tag", table, 128, Bytes().u32(73), TAG_REGIONS_INFO, sample.offset(table) + 88,
         2},
        {"the table is damaged, it lacks this", table, 128, Bytes().u32(73), TAG_REGIONS_INFO,
         sample.offset(1), 2},
        {"entry differs", table, 96, Bytes().u32(6), TAG_REGIONS_INFO, sample.offset(table) + 88},
        {"table offset leads to", 0, 12 - 32, Bytes().u32(99), kNoTag, 12},
        {"flags deny", 0, 20 - 32, Bytes().u32(0), kNoTag, 20},
    };
    for (const auto& c : cases) {
        VerifyReport report = verify(with(sample.bytes, sample, c.tag, c.from, c.bytes));
        report.faults.insert(report.faults.end(), report.repaired.begin(), report.repaired.end());
        EXPECT_EQ(report.state, FileState::kDamaged) << c.cause;
        EXPECT_EQ(report.faults.size(), c.faults) << c.cause;
        EXPECT_EQ(report.cause, report.faults.at(0).cause);
        for (const FileFault& fault : report.faults) {
            if (fault.offset != c.offset) continue;
            EXPECT_THAT(fault.cause, HasSubstr(c.cause));
            EXPECT_EQ(fault.tagId, c.tagId) << c.cause;
            const bool lost = c.offset == sample.offset(c.tag) && !c.repaired;
            EXPECT_EQ(fault.end, lost ? sample.offset(c.tag + 1) : c.offset) << c.cause;
            EXPECT_EQ(fault.box, c.tag == pixels ? (PixelBox{5, 0, 10, 3}) : PixelBox()) << c.cause;
            EXPECT_EQ(fault.channel, c.tag == pixels ? 5 : -1) << c.cause;
            EXPECT_EQ(fault.channelName, c.tag == pixels ? "ffff" : "") << c.cause;
        }
        EXPECT_TRUE(std::any_of(report.faults.begin(), report.faults.end(),
                                [&](const FileFault& fault) { return fault.offset == c.offset; }))
            << c.cause << ", but " << report.cause << " at " << report.faults[0].offset;
        // What is damaged is to be rendered again.
        ASSERT_EQ(report.missing.size(), c.tag == pixels && !c.repaired ? 1u : 0u) << c.cause;
        if (!report.missing.empty()) {
            EXPECT_EQ(report.missing[0].boxes.boxes, (std::vector<PixelBox>{{5, 0, 10, 3}}));
        }
    }
}

TEST(Verify, HoldsPixelsAgainstTheirChecksumOnly) {
    const std::string values = noise(64 * 16 * 4);
    std::string wrongSum = zipped(values, 9);
    wrongSum.back() ^= 1;
    const struct {
        std::string payload;
        const char* cause;
    } cases[] = {
        {zipped(values, 9), ""},
        {zipped(values, 0), ""},
        {zipped(std::string(values.size(), 'x'), 1), ""},
        {wrongSum, "do not inflate"},
        {zipped(values.substr(1), 9), "less than their region"},
        {zipped(values + "x", 9), "more than their region"},
        {zipped(values, 9) + "x", ""},  // readers take them
    };
    EXPECT_GT(cases[0].payload.size(), values.size()) << "incompressible";
    for (const auto& c : cases) {
        Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {64, 32});
        addPixels(file, 0, {0, 0, 64, 16}, zipped(values, 9));
        addPixels(file, 0, {0, 16, 64, 32}, c.payload);
        const VerifyReport report = verify(closed(file));
        EXPECT_THAT(report.cause, HasSubstr(c.cause));
        EXPECT_EQ(report.faults.size(), *c.cause != '\0' ? 1u : 0u) << report.cause;
    }
}

// Of two channels "a" and "b", and one without values.
TEST(Verify, ListsWhatChannelsLack) {
    using Boxes = std::vector<PixelBox>;
    const PixelBox frame{0, 0, 8, 4}, left{0, 0, 4, 4}, right{4, 0, 8, 4}, part{2, 1, 6, 3}, top{0, 0, 4, 2};
    const Boxes corner{{4, 1, 6, 2}, {2, 2, 6, 3}};
    const struct {
        const char* what;
        std::vector<std::int32_t> region;  // its record, if the file has one
        PixelBox area;
        Boxes buckets[2];
        Boxes lacking[3];  // in a, in b, in any
    } cases[] = {
        {"nothing", {}, frame, {{left, right}, {frame}}, {}},
        {"half of one", {}, frame, {{left, right}, {left}}, {{}, {right}, {right}}},
        {"another half each", {}, frame, {{right}, {left}}, {{left}, {right}, {frame}}},
        {"everything", {}, frame, {}, {{frame}, {frame}, {frame}}},
        {"nothing of the region", {0, 2, 1, 4, 2}, part, {{part}, {{1, 0, 7, 4}}}, {}},
        {"a corner of the region", {4, 2, 1, 4, 2}, part, {{part}, {top}}, {{}, corner, corner}},
        {"half, region of the whole frame",
         {-1, 2, 1, 4, 2},
         frame,
         {{frame}, {left}},
         {{}, {right}, {right}}},
        {"half, region without pixels", {0, 2, 1, 0, 2}, frame, {{frame}, {left}}, {{}, {right}, {right}}},
    };
    for (const auto& c : cases) {
        Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {8, 4}).tag(TAG_CHANNEL_INFO, 240, {3, 80});
        file.i32s({0, RCT_INT, 0, 0}).text("a").zeros(63).i32s({1, RCT_INT, 0, 0}).text("b").zeros(63);
        file.i32s({2, RCT_NONE, 0, 0}).zeros(64);
        if (!c.region.empty()) file.tag(TAG_RENDER_REGION, 20).raw(c.region.data(), 20);
        for (const int channel : {0, 1}) {
            for (const PixelBox& box : c.buckets[channel]) {
                addPixels(file, channel, box, zipped(noise(static_cast<std::size_t>(4 * box.area())), 9));
            }
        }
        EXPECT_EQ(verdict(closed(file)), c.lacking[2].empty() ? "good" : "incomplete") << c.what;
        EXPECT_EQ(verdict(file), "unfinished") << c.what;
        for (const VerifyReport& report : {verify(closed(file)), verify(file)}) {
            EXPECT_EQ(report.area, c.area) << c.what;
            std::map<std::string, Boxes> lacking{{"a", {}}, {"b", {}}};
            for (const MissingPixels& missing : report.missing)
                lacking[missing.name] = missing.boxes.boxes;
            EXPECT_EQ(lacking, (std::map<std::string, Boxes>{{"a", c.lacking[0]}, {"b", c.lacking[1]}}));
            EXPECT_EQ(report.missingInAny.boxes, c.lacking[2]) << c.what;
        }
    }
}

// A tag of height 0 with the mark says where a channel ends.
TEST(Verify, ExpectsNothingOutsideAChannelsWindow) {
    using Boxes = std::vector<PixelBox>;
    struct Stated {
        int channel;
        PixelBox window;
        std::int32_t mark = kChannelWindowMark;
    };
    const PixelBox frame{0, 0, 8, 4}, left{0, 0, 4, 4}, right{4, 0, 8, 4};
    const struct {
        const char* what;
        std::vector<Stated> windows;
        Boxes buckets;        // of channel b; a has the frame
        Boxes lacking;        // in b
        bool region = false;  // the left half is the render region
    } cases[] = {
        {"its window", {{1, left}}, {left}, {}},
        {"half of its window", {{1, left}}, {{0, 0, 4, 2}}, {{0, 2, 4, 4}}},
        {"more than its window", {{1, {1, 1, 3, 3}}}, {left}, {}},
        {"no window at all", {{1, {0, 0, 0, 0}}}, {}, {}},
        {"several windows", {{1, {0, 0, 2, 4}}, {1, {6, 0, 8, 4}}}, {{0, 0, 2, 4}}, {{6, 0, 8, 4}}},
        {"a window of another channel", {{0, left}}, {left}, {right}},
        {"another mark", {{1, left, kChannelWindowMark + 1}}, {left}, {right}},
        {"past the frame", {{1, {0, 0, 9, 4}}}, {left}, {right}},
        {"before the frame", {{1, {-1, 0, 4, 4}}}, {left}, {right}},
        {"far past the frame", {{1, boxAt(INT_MAX, 0, INT_MAX, 4)}}, {left}, {right}},
        {"negative", {{1, {4, 4, 8, 0}}}, {left}, {right}},
        {"beside the render region", {{1, right}}, {}, {}, true},
        {"partly in the render region", {{1, {2, 0, 6, 4}}}, {}, {{2, 0, 4, 4}}, true},
    };
    for (const auto& c : cases) {
        for (const bool compressed : {true, false}) {
            SCOPED_TRACE(std::string(c.what) + (compressed ? "" : ", not compressed"));
            Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {8, 4});
            file[20] = compressed ? 1 : 0;
            file.tag(TAG_CHANNEL_INFO, 160, {2, 80});
            file.i32s({0, RCT_INT, 0, 0}).text("a").zeros(63).i32s({1, RCT_INT, 0, 0}).text("b").zeros(63);
            const std::int32_t region[] = {0, 0, 0, 4, 4};
            if (c.region) file.tag(TAG_RENDER_REGION, 20).raw(region, 20);
            const std::string nothing = compressed ? zipped("", 9) : "";
            for (const Stated& s : c.windows)
                addWindow(file, s.channel, s.window, nothing, s.mark);
            const auto bucket = [&](int channel, const PixelBox& box) {
                const std::string values = noise(static_cast<std::size_t>(4 * box.area()));
                addPixels(file, channel, box, compressed ? zipped(values, 9) : values);
            };
            bucket(0, frame);
            for (const PixelBox& box : c.buckets)
                bucket(1, box);
            const VerifyReport report = verify(closed(file));
            EXPECT_EQ(report.cause, c.lacking.empty() ? "" : "pixels are missing");
            EXPECT_EQ(report.missingInAny.boxes, c.lacking);
            // A reader is handed an empty table, and a window counts as no bucket.
            Reading reading(closed(file));
            EXPECT_EQ(reading.parse(), 0);
            MemoryFile onDisk;
            onDisk.fill(closed(file));
            const FileSummary summary = summariseFile(onDisk.path(), false);
            const auto isOther = [](const Stated& s) { return s.mark != kChannelWindowMark; };
            EXPECT_EQ(summary.channels.at(1).tags,
                      static_cast<std::int64_t>(c.buckets.size()) +
                          std::count_if(c.windows.begin(), c.windows.end(), isOther));
        }
    }
}

TEST(Verify, AnswersAlikeOnAnyNumberOfThreads) {
    Contents bytes = makeSample({true, true, true, 300}).bytes;
    for (std::size_t at = 3001; at < bytes.size(); at += 4999)
        bytes[at] ^= 0x55;
    const VerifyReport one = verify(bytes);
    EXPECT_GT(one.faults.size(), 20u);
    for (const int threads : {0, 2, 4, 16}) {
        const VerifyReport many = verify(bytes, false, threads);
        EXPECT_TRUE(std::equal(one.faults.begin(), one.faults.end(), many.faults.begin(), many.faults.end(),
                               [](const FileFault& a, const FileFault& b) {
                                   return a.offset == b.offset && a.cause == b.cause;
                               }));
        EXPECT_EQ(many.tags, one.tags);
        EXPECT_EQ(many.missingInAny.boxes, one.missingInAny.boxes);
    }
}

TEST(Verify, ListsManyFaultsUpToABound) {
    Bytes rubble = Bytes().fileHeader(0);
    for (int i = 0; i < 12000; ++i)
        addPixels(rubble, 0, {i, 0, i + 1, 1}, zipped("abcd", 1)), rubble.u32(1);
    const VerifyReport report = verify(rubble);
    EXPECT_EQ(report.tags, 12000);
    EXPECT_EQ(report.faults.size(), kMaxVerifyFaults);
    EXPECT_EQ(report.furtherFaults, 12000 - 1 - static_cast<int>(kMaxVerifyFaults)) << "the last one is torn";
}

TEST(Verify, StopsWhenItsCallerSaysSo) {
    FaultStream stream(makeSample().bytes);
    stream.Open();
    VerifyOptions options;
    bool stopped = true;
    for (int calls = 0; stopped && calls < 1000; ++calls) {
        int left = calls;
        options.progress = [&left](std::int64_t done, std::int64_t all) { return done <= all && left-- > 0; };
        stopped = verifyStream(stream, options).stopped;
        EXPECT_EQ(stopped, left < 0) << calls;
    }
    EXPECT_FALSE(stopped);
}
