#include "rawimage/tools/merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

using namespace testing_tools;
using namespace MUtils;
using testing::HasSubstr;

namespace {

constexpr RawBox kQuarters[] = {{0, 0, 20, 12}, {20, 0, 20, 12}, {0, 12, 20, 12}, {20, 12, 20, 12}};

RawFrame piece(const RawBox& box) {
    RawFrame frame;
    frame.boxes = {box};
    frame.metadata = [box](RIFile& file) {
        expectOk(file.WTRenderRegion({4, box.x, box.y, box.width, box.height}));
    };
    return frame;
}

// Files in memory and what becomes of them.
struct Merging {
    explicit Merging(const std::vector<RawFrame>& frames) {
        for (const RawFrame& frame : frames)
            frame.write(add().path());
    }
    MemoryFile& add() {
        names.push_back(files.emplace_back(std::make_unique<MemoryFile>())->path());
        return *files.back();
    }
    MergeReport run(const MergeOptions& options = {}) { return mergeFiles(names, output.path(), options); }

    std::vector<std::unique_ptr<MemoryFile>> files;
    std::vector<std::string> names;
    MemoryFile output;
};

// The value that channel 0 has at each pixel once everything is drawn.
std::map<std::pair<int, int>, float> drawn(const Contents& bytes) {
    std::map<std::pair<int, int>, float> pixels;
    Reading reading(bytes);
    EXPECT_EQ(reading.parse(), 0);
    for (const Event& event : reading.seen.events) {
        if (event.call != "setImageData" || event.numbers[1] != 0) continue;
        const auto width = static_cast<int>(event.numbers[4]);
        for (int p = 0; p < event.numbers[0]; ++p) {
            const auto x = static_cast<int>(event.numbers[2]) + p % width;
            const auto y = static_cast<int>(event.numbers[3]) + p / width;
            std::memcpy(&pixels[{x, y}], event.bytes.data() + 12 * p, 4);
        }
    }
    return pixels;
}

}  // namespace

TEST(Merge, CopiesPiecesOfAFrame) {
    std::vector<RawFrame> frames;
    for (const RawBox& box : kQuarters)
        frames.push_back(piece(box));
    for (const std::size_t i : {1u, 2u}) {
        frames[i].metadata = [i, region = frames[i].metadata](RIFile& file) {
            region(file);
            expectOk(file.WTNote(i == 1 ? "second" : "third"));
            if (i == 2) expectOk(file.WTStampText("stamp"));
        };
    }
    Merging merging(frames);
    const MergeReport report = merging.run();
    ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
    EXPECT_EQ(report.tags, 12);
    const Contents bytes = merging.output.bytes();
    EXPECT_EQ(verdict(bytes), "good");
    EXPECT_EQ(difference(bytes, closed(opened(bytes))), "") << "the table";

    // One tag of each kind, of the first file that has it; the region is the box around all. Then all pixels.
    std::vector<std::string> expected = tagsOf(opened(merging.files[0]->bytes()));
    expected.resize(4);  // resolution, buckets, channels, region
    const Bytes region = Bytes().tag(TAG_RENDER_REGION, 20).i32s({4, 0, 0, 40, 24});
    expected[3].assign(region.begin(), region.end());
    expected.push_back(tagsOf(merging.files[1]->bytes())[4]);
    expected.push_back(tagsOf(merging.files[2]->bytes())[5]);
    for (const auto& file : merging.files) {
        for (const std::string& tag : tagsOf(file->bytes())) {
            if (isPixelTag(idOf(tag))) expected.push_back(tag);
        }
    }
    EXPECT_TRUE(tagsOf(opened(bytes)) == expected) << "each as it stands";
}

TEST(Merge, NamesWhatDoesNotFit) {
    const auto aspect = [](RIFile& file) { expectOk(file.WTResolution(40, 24, 2)); };
    const struct {
        const char* cause;
        std::function<void(RawFrame&)> change;
        MergeState state = MergeState::kMismatch;
    } cases[] = {
        {"41x24, not 40x24", [](RawFrame& f) { f.width = 41; }},
        {"40x25, not 40x24", [](RawFrame& f) { f.height = 25; }},
        {"aspect differs", [&](RawFrame& f) { f.metadata = aspect; }},
        {"2 channels, not 3", [](RawFrame& f) { f.channels.pop_back(); }},
        {"channel 1 is \"beauty\", not \"alpha\"", [](RawFrame& f) { f.channels[1].name = "beauty"; }},
        {"channel 2 is of type 1, not 4", [](RawFrame& f) { f.channels[2].type = 1; }},
        {"channel 0 is \"alpha\"", [](RawFrame& f) { std::swap(f.channels[0], f.channels[1]); }},
        {"overlaps the files before it in channel 0 by 12 pixels", [](RawFrame& f) { f.boxes[0].x = 19; },
         MergeState::kOverlap},
        {"channel 0 \"color\" has holes: 1, the first 1x12+20+0", [](RawFrame& f) { f.boxes[0].x = 21; },
         MergeState::kHoles},
    };
    for (const auto& c : cases) {
        RawFrame right = piece(kQuarters[1]);
        c.change(right);
        Merging merging({piece(kQuarters[0]), right});
        const MergeReport report = merging.run();
        EXPECT_EQ(report.state, c.state) << c.cause;
        EXPECT_THAT(report.cause, HasSubstr(c.cause));
        EXPECT_EQ(report.file, c.state == MergeState::kHoles ? "" : merging.names[1]) << c.cause;
        EXPECT_EQ(report.holes.boxes.empty(), c.state != MergeState::kHoles) << c.cause;
        EXPECT_TRUE(merging.output.bytes().empty()) << "nothing is written";
    }
}

TEST(Merge, StoresPixelsAsItsInputsDo) {
    Merging merging({});
    const Contents raw = makeSample({true, false}).bytes;
    merging.add().fill(makeSample().bytes);
    merging.add().fill(raw);
    MergeOptions options;
    options.overlap = MergeOverlap::kLast;
    const MergeReport report = merging.run(options);
    EXPECT_EQ(report.state, MergeState::kMismatch);
    EXPECT_THAT(report.cause, HasSubstr("compressed"));
    merging.files[0]->fill(raw);
    EXPECT_EQ(merging.run(options).state, MergeState::kGood);
    EXPECT_EQ(difference(merging.output.bytes(), raw), "") << "no bucket comes twice";
}

TEST(Merge, RefusesFilesItCannotUse) {
    Merging merging({piece(kQuarters[0]), piece(kQuarters[1])});
    const Contents sound = merging.files[1]->bytes();
    EXPECT_EQ(mergeFiles(merging.names, merging.names[1], {}).state, MergeState::kWriteFailed);
    EXPECT_EQ(difference(merging.files[1]->bytes(), sound), "") << "an input is never overwritten";
    EXPECT_EQ(mergeFiles(merging.names, "/no/such/file", {}).state, MergeState::kWriteFailed);
    EXPECT_EQ(mergeFiles({}, merging.output.path(), {}).state, MergeState::kCannotOpen);
    Contents damaged = sound;
    damaged[34] ^= 1;
    for (const Contents& bytes : {damaged, Contents(40, 'x'), Contents()}) {
        merging.files[1]->fill(bytes);
        const MergeReport report = merging.run();
        EXPECT_EQ(report.state, bytes == damaged ? MergeState::kDamaged : MergeState::kNotThisFormat);
        EXPECT_EQ(report.file, merging.names[1]);
        EXPECT_TRUE(merging.output.bytes().empty());
    }
    merging.names[1] = "/no/such/file";
    EXPECT_EQ(merging.run().state, MergeState::kCannotOpen);
}

// Pixel by pixel: what readers draw is of the first or the last file that has the pixel.
TEST(Merge, TakesOverlapsFromTheFileThatCounts) {
    RawFrame whole;
    whole.boxes.assign(std::begin(kQuarters), std::end(kQuarters));
    RawFrame patch, inner;
    patch.boxes = {{20, 12, 20, 12, 500}, {5, 5, 10, 4, 500}};
    inner.boxes = {{0, 0, 20, 12, 900}, {8, 4, 20, 4, 900}};
    const std::vector<std::vector<RawFrame>> cases = {
        {whole, patch}, {patch, whole}, {whole, patch, inner}, {inner, whole, patch}, {patch, inner, whole}};
    for (const std::vector<RawFrame>& frames : cases) {
        Merging merging(frames);
        EXPECT_EQ(merging.run().state, MergeState::kOverlap);
        for (const bool first : {true, false}) {
            MergeOptions options;
            options.overlap = first ? MergeOverlap::kFirst : MergeOverlap::kLast;
            ASSERT_EQ(merging.run(options).state, MergeState::kGood);
            const Contents bytes = merging.output.bytes();
            EXPECT_EQ(verdict(bytes), "good");
            std::map<std::pair<int, int>, float> expected;
            for (std::size_t i = 0; i < frames.size(); ++i) {
                for (const RawBox& box : frames[first ? frames.size() - 1 - i : i].boxes) {
                    for (int p = 0; p < box.width * box.height; ++p) {
                        const int x = box.x + p % box.width, y = box.y + p / box.width;
                        expected[{x, y}] = valueAt(box.first, 0, 0, x, y);
                    }
                }
            }
            EXPECT_TRUE(drawn(bytes) == expected) << (first ? "first" : "last");
        }
    }
}

TEST(Merge, AllowsHolesAndUnfinishedFiles) {
    Merging merging({piece(kQuarters[0]), piece({30, 0, 10, 12})});
    Contents torn = merging.files[1]->bytes();
    torn.resize(torn.size() - 60);  // into its table
    merging.files[1]->fill(torn);
    MergeOptions options;
    options.allowHoles = true;
    const MergeReport report = merging.run(options);
    ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
    EXPECT_EQ(report.unfinished, std::vector<std::string>{merging.names[1]});
    EXPECT_EQ(report.holes.boxes, (std::vector<PixelBox>{{20, 0, 30, 12}}));
    EXPECT_EQ(verdict(merging.output.bytes()), "incomplete");

    options.progress = [](std::int64_t done, std::int64_t total) {
        EXPECT_LE(done, total);
        return done == 0;
    };
    EXPECT_EQ(merging.run(options).state, MergeState::kStopped);
    EXPECT_EQ(verdict(merging.output.bytes()), "unfinished") << "never passes for whole";
}

// Small inputs are inspected ahead on several threads, and one is large.
TEST(Merge, TakesManyInputsInTheirOrder) {
    std::vector<RawFrame> frames;
    for (int i = 0; i < 60; ++i)
        frames.push_back(piece({i % 10 * 4, i / 10 * 4, 4, 4}));
    frames[20].metadata = [region = frames[20].metadata](RIFile& file) {
        std::string settings(1100 << 10, 's');
        region(file);
        expectOk(file.WTMirtSettings(settings.data(), static_cast<int>(settings.size())));
    };
    Merging merging(frames);
    MergeOptions options;
    Contents first;
    for (const int threads : {1, 2, 5}) {
        options.threads = threads;
        const MergeReport report = merging.run(options);
        ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
        const Contents bytes = merging.output.bytes();
        if (threads == 1) first = bytes;
        EXPECT_EQ(verdict(bytes), "good");
        EXPECT_EQ(difference(bytes, first), "") << threads;
    }
    for (const std::size_t i : {50u, 17u}) {
        merging.files[i]->fill(Contents(40, 'x'));
        EXPECT_EQ(merging.run(options).file, merging.names[i]) << "the first that fails";
    }
}

// A render that was killed before its channels: wherever it comes, it is the one to name.
TEST(Merge, TakesAnInputWithoutChannelsForAHole) {
    Merging merging({piece(kQuarters[0])});
    Contents begun = merging.files[0]->bytes();
    begun.resize(kFileHeaderBytes + kTagHeaderBytes);
    std::fill_n(begun.begin() + kTableOffsetPosition, 8, 0);
    merging.add().fill(begun);
    MergeOptions holes;
    holes.allowHoles = true;
    for (const std::size_t place : {1u, 0u}) {
        const MergeReport report = merging.run();
        EXPECT_EQ(report.state, MergeState::kHoles);
        EXPECT_EQ(report.file, merging.names[place]);
        const MergeReport allowed = merging.run(holes);
        EXPECT_EQ(allowed.state, MergeState::kGood) << allowed.cause;
        EXPECT_EQ(allowed.unfinished, std::vector<std::string>{merging.names[place]});
        std::swap(merging.names[0], merging.names[1]);
    }
    merging.names.resize(1);
    merging.files[0]->fill(begun);
    EXPECT_EQ(merging.run(holes).state, MergeState::kMismatch);
}

// Two attempts at a piece: each pixel tag is taken once, from the first input in which it is sound.
TEST(Merge, TakesRepeatedBucketsOnceFromASoundInput) {
    RawFrame first, again, rest;
    first.boxes = {kQuarters[0], kQuarters[1]};
    again.boxes = {{0, 0, 20, 12, 500}, {20, 0, 20, 12, 500}};
    rest.boxes = {kQuarters[2], kQuarters[3]};
    const auto damage = [](MemoryFile& file) {
        Contents bytes = file.bytes();
        Reading reading(bytes);
        ASSERT_EQ(reading.list(), 0);
        const int at = reading.file.FindNextChanTag(-1);  // of the first quarter
        bytes[static_cast<std::size_t>(reading.file.GetTag(at)->offset) + 50] ^= 0x55;
        file.fill(bytes);
    };
    const struct {
        bool firstDamaged, againDamaged, againTorn;
        std::vector<std::array<std::int64_t, 4>> repeats;  // from and to which input, tags, damaged ones
        const char* verdict = "good";
    } cases[] = {
        {false, false, false, {{1, 0, 6, 0}}},
        {false, true, true, {{1, 0, 5, 0}}},  // not looked at: the first one is sound
        {true, false, false, {{0, 1, 1, 1}, {1, 0, 5, 0}}},
        {true, false, true, {{0, 1, 1, 1}, {1, 0, 4, 0}}},
        {true, true, false, {{1, 0, 6, 1}}, "damaged"},
    };
    for (const auto& c : cases) {
        Merging merging({first, again, rest});
        if (c.firstDamaged) damage(*merging.files[0]);
        if (c.againDamaged) damage(*merging.files[1]);
        if (c.againTorn) {
            Contents torn = merging.files[1]->bytes();
            Reading reading(torn);
            ASSERT_EQ(reading.list(), 0);
            torn.resize(static_cast<std::size_t>(reading.file.GetTag(reading.file.NumTags() - 1)->offset) +
                        50);
            std::fill_n(torn.begin() + 12, 8, 0);
            merging.files[1]->fill(torn);
        }
        const MergeReport report = merging.run();
        ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
        std::vector<std::array<std::int64_t, 4>> repeats;
        const auto index = [&merging](const std::string& name) {
            return std::find(merging.names.begin(), merging.names.end(), name) - merging.names.begin();
        };
        for (const MergeRepeat& repeat : report.repeats)
            repeats.push_back({index(repeat.file), index(repeat.takenFrom), repeat.tags, repeat.damaged});
        EXPECT_EQ(repeats, c.repeats);
        EXPECT_EQ(report.tags, 12) << "each once";
        EXPECT_EQ(verdict(merging.output.bytes()), c.verdict);
    }
}

TEST(Merge, SetsADamagedInputAsideWhenOthersHaveItsArea) {
    RawFrame top;
    top.boxes = {kQuarters[0], kQuarters[1]};
    Merging merging({piece(kQuarters[0]), top, piece(kQuarters[2]), piece(kQuarters[3])});
    Contents damaged = merging.files[0]->bytes();
    damaged[34] ^= 1;
    merging.files[0]->fill(damaged);
    const MergeReport report = merging.run();
    ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
    ASSERT_EQ(report.setAside.size(), 1u);
    EXPECT_EQ(report.setAside[0].file, merging.names[0]);
    EXPECT_EQ(verdict(merging.output.bytes()), "good");
    MergeOptions holes;
    holes.allowHoles = true;
    merging.names.erase(merging.names.begin() + 1);
    EXPECT_EQ(merging.run(holes).state, MergeState::kDamaged) << "its area is needed";
}

// What a caller may delete afterwards.
TEST(Merge, VerifiesTheOutputAndNamesTheInputsItContains) {
    Merging merging({piece(kQuarters[0]), piece(kQuarters[1]), piece(kQuarters[2]), piece(kQuarters[3]),
                     piece(kQuarters[3])});
    MergeOptions options;
    options.verify = true;
    int calls = 0;
    options.progress = [&calls](std::int64_t, std::int64_t) { return ++calls > 0; };
    const MergeReport report = merging.run(options);
    ASSERT_EQ(report.state, MergeState::kGood) << report.cause;
    EXPECT_EQ(report.contained, (std::vector<std::string>{merging.names.begin(), merging.names.end() - 1}));

    const Contents sound = merging.files[1]->bytes();
    Contents damaged = sound;
    Reading reading(sound);
    ASSERT_EQ(reading.list(), 0);
    damaged[reading.file.GetTag(reading.file.FindNextChanTag(-1))->offset + 50] ^= 0x55;
    merging.files[1]->fill(damaged);
    EXPECT_EQ(merging.run().state, MergeState::kGood) << "pixels are not looked at";
    const MergeReport refused = merging.run(options);
    EXPECT_EQ(refused.state, MergeState::kNotVerified);
    EXPECT_TRUE(refused.contained.empty());

    // An input that another file takes the place of, at any moment after it was inspected, of which it was at
    // rest in half.
    for (int at = 2; at < 2 * calls; ++at) {
        merging.files[1]->fill(sound);
        if (at >= calls) std::filesystem::last_write_time(merging.names[1], {});
        options.progress = [&, left = at % calls](std::int64_t, std::int64_t) mutable {
            if (--left == 0) merging.files[1]->fill(makeSample().bytes);
            return true;
        };
        const MergeReport changed = merging.run(options);
        if (changed.state != MergeState::kGood) {
            EXPECT_EQ(changed.file, merging.names[1]) << changed.cause;
        } else {
            EXPECT_EQ(verdict(merging.output.bytes()), "good") << at << ": it was compared before";
        }
    }
}

// Where one piece ends a channel at a window, another that says nothing means its whole area.
TEST(Merge, KeepsWindowsAndAddsThoseThatPiecesMean) {
    const PixelBox left{0, 0, 4, 4}, right{4, 0, 8, 4}, small{1, 1, 3, 3}, none{0, 0, 0, 0};
    struct Piece {
        PixelBox region;
        std::vector<PixelBox> windows, buckets;  // of channel b; a has the region
    };
    const auto bytesOf = [](const Piece& piece, bool compressed) {
        Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {8, 4}).tag(TAG_CHANNEL_INFO, 160, {2, 80});
        file[20] = compressed ? 1 : 0;
        file.i32s({0, RCT_INT, 0, 0}).text("a").zeros(63).i32s({1, RCT_INT, 0, 0}).text("b").zeros(63);
        const PixelBox& r = piece.region;
        const auto [x, y, width, height] = placeOf(r);
        file.tag(TAG_RENDER_REGION, 20).i32s({0, x, y, width, height});
        const auto packed = [&](const std::string& bytes) { return compressed ? zipped(bytes, 9) : bytes; };
        const std::string nothing = packed("");
        for (const PixelBox& window : piece.windows)
            addWindow(file, 1, window, nothing);
        const auto bucket = [&](int channel, const PixelBox& box) {
            addPixels(file, channel, box, packed(std::string(static_cast<std::size_t>(4 * box.area()), 'v')));
        };
        bucket(0, r);
        for (const PixelBox& box : piece.buckets)
            bucket(1, box);
        return closed(file);
    };
    const struct {
        const char* what;
        std::vector<Piece> pieces;
        MergeState state;
        std::vector<PixelBox> windows;  // of b in the output
    } cases[] = {
        {"both state one", {{left, {small}, {small}}, {right, {none}, {}}}, MergeState::kGood, {small, none}},
        {"one states none", {{left, {none}, {}}, {right, {}, {right}}}, MergeState::kGood, {right, none}},
        {"one states none and lacks it", {{left, {none}, {}}, {right, {}, {}}}, MergeState::kHoles, {}},
        {"a window without its pixels", {{left, {small}, {}}, {right, {}, {right}}}, MergeState::kHoles, {}},
        {"the same one twice",
         {{left, {small}, {small}}, {left, {small}, {small}}},
         MergeState::kGood,
         {small}},
        {"two of one corner",
         {{left, {small}, {small}}, {left, {{1, 1, 3, 2}}, {{1, 1, 3, 2}}}},
         MergeState::kGood,
         {small, {1, 1, 3, 2}}},
    };
    for (const auto& c : cases) {
        for (const bool compressed : {true, false}) {
            SCOPED_TRACE(c.what);
            Merging merging({});
            for (const Piece& piece : c.pieces)
                merging.add().fill(bytesOf(piece, compressed));
            MergeOptions options;
            options.overlap = MergeOverlap::kFirst;
            EXPECT_EQ(merging.run(options).state, c.state);
            if (c.state != MergeState::kGood) continue;
            EXPECT_EQ(verify(merging.output.bytes()).cause, "");
            std::vector<PixelBox> windows;
            Reading reading(merging.output.bytes());
            ASSERT_EQ(reading.list(), 0);
            for (int i = 0; i < reading.file.NumTags(); ++i) {
                const RIF_TAG& tag = *reading.file.GetTag(i);
                if (tag.p7 == kChannelWindowMark) windows.push_back(boxAt(tag.p2, tag.p3, tag.p4, tag.p6));
            }
            EXPECT_THAT(windows, testing::UnorderedElementsAreArray(c.windows));
        }
    }
}
