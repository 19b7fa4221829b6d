#include "rawimage/tools/resume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

// What single damaged bytes cost is proven in tests/proof; here is what takes more than one byte, or a file
// made for it.

using namespace testing_tools;
using namespace MUtils;
using testing::HasSubstr;

namespace {

struct Recovered {
    RecoverReport report;
    Contents bytes;
    std::vector<std::string> tags;  // without the table
};

// What recovery writes, which must be sound; or what the file is after it was mended in place.
Recovered recovered(const Contents& bytes, bool inPlace = false) {
    MemoryFile input, output;
    input.fill(bytes);
    Recovered result;
    result.report = inPlace ? recoverInPlace(input.path(), {}) : recoverFile(input.path(), output.path(), {});
    result.bytes = inPlace ? input.bytes() : output.bytes();
    EXPECT_TRUE(inPlace || input.bytes() == bytes);
    if (result.report.state != RecoverState::kGood) return result;
    const std::string after = verdict(result.bytes);
    EXPECT_TRUE(after == "good" || after == "incomplete") << after;
    EXPECT_EQ(difference(result.bytes, closed(opened(result.bytes))), "") << "the table";
    result.tags = tagsOf(opened(result.bytes));
    EXPECT_EQ(result.report.tagsKept, static_cast<std::int64_t>(result.tags.size()));
    return result;
}

// The sample's tags without its table and those given.
std::vector<std::string> tagsWithout(const Sample& sample, const std::vector<int>& lost) {
    std::vector<std::string> tags;
    const std::vector<std::string> all = tagsOf(sample.bytes);
    for (int i = 0; i < sample.tagCount(); ++i) {
        if (sample.tag(i).id != TAG_INFO_TAGS && std::count(lost.begin(), lost.end(), i) == 0)
            tags.push_back(all[static_cast<std::size_t>(i)]);
    }
    return tags;
}

// Bytes that are lost, one by one.
std::set<std::int64_t> lostBytes(const RecoverReport& report) {
    std::set<std::int64_t> bytes;
    for (const FileFault& range : report.lost) {
        for (std::int64_t at = range.offset; at < range.end; ++at)
            EXPECT_TRUE(bytes.insert(at).second) << at << " is lost twice";
    }
    return bytes;
}

}  // namespace

TEST(Recover, KeepsWhatIsSoundAsItStands) {
    const Sample sample = makeSample();
    const int pixels = sample.find(TAG_CHAN_FLOAT4);
    const int note = sample.find(TAG_NOTE), scene = sample.find(TAG_SCENE_INFO);
    const int stamp = sample.find(TAG_STAMP_TEXT), list = sample.find(TAG_CHANNEL_INFO);
    const Bytes zeros = Bytes().zeros(40);
    const auto afterScene = static_cast<std::size_t>(sample.offset(scene + 1) - sample.offset(scene));
    const auto threeTags = static_cast<std::uint32_t>(sample.offset(scene + 3) - sample.offset(scene));
    const Bytes overTags = Bytes().u32(threeTags).zeros(afterScene);
    const struct {
        const char* what;
        int tag, from;  // what is overwritten
        Bytes bytes;
        std::vector<int> lost;            // of the unfinished file
        std::vector<int> lostFinished{};  // what the table does not repair
        bool finishedOnly = false;
    } cases[] = {
        {"nothing", 0, 0, {}, {}},
        {"the file header", 0, -32, Bytes().u64(~0u).u64(~0u).u64(~0u).u64(~0u), {}},
        {"the first sector", 0, -32, Bytes().zeros(72), {0}},
        {"the first sector, not by zeros", 0, -32, Bytes().text(std::string(72, '\xaa')), {0}},
        {"the flags", 0, -12, Bytes().u32(0), {}},
        {"the flags and the first header", 0, -12, Bytes().zeros(52), {0}},
        {"a whole header", pixels, 0, zeros, {pixels}},
        {"a header and payload", pixels, 0, Bytes().zeros(60), {pixels}, {pixels}},
        {"one, and the header of the next", pixels, 50, Bytes().zeros(275), {pixels, pixels + 1}, {pixels}},
        {"a size over the next tags", note, 4, Bytes().u32(1064 + 44 + 51), {note}},
        {"a size over everything", pixels, 4, Bytes().u32(0x7fffffff), {pixels}},
        {"a text over tags, and the next header", scene, 4, overTags, {scene, scene + 1}, {scene, scene + 1}},
        {"a text that reaches over tags", stamp, 4, Bytes().u32(51 + 40 + 45), {stamp}},
        {"a text under another name", scene, 0, Bytes().u32(TAG_STAMP_TEXT), {}, {scene}, true},
        {"a channel that there is not", pixels, 36, Bytes().u32(700), {pixels}},
        {"the type of a listed channel", list, 40 + 80 + 4, Bytes().u32(1), {list}, {list}},
        {"a place", pixels + 2, 12, Bytes().u32(5), {}, {}, true},
        {"the frame", 0, 8, Bytes().u32(640), {}, {}, true},
    };
    for (const auto& c : cases) {
        for (const bool finished : {true, false}) {
            if (c.finishedOnly && !finished) continue;
            SCOPED_TRACE(c.what + std::string(finished ? "" : ", unclosed"));
            const Bytes bytes = finished ? sample.bytes : opened(sample.bytes);
            const Recovered result = recovered(with(bytes, sample, c.tag, c.from, c.bytes));
            ASSERT_EQ(result.report.state, RecoverState::kGood);
            const std::vector<int>& lostTags = finished ? c.lostFinished : c.lost;
            EXPECT_EQ(result.tags, tagsWithout(sample, lostTags));
            EXPECT_EQ(result.bytes[20], 1) << "compressed";
            std::set<std::int64_t> lost;
            for (const int tag : lostTags) {
                for (std::int64_t at = sample.offset(tag); at < sample.offset(tag + 1); ++at)
                    lost.insert(at);
            }
            EXPECT_EQ(lostBytes(result.report), lost);
        }
    }
}

// Damage that points elsewhere: at most the tag in which it is may go.
TEST(Recover, KeepsWhatNoDamageHasTouched) {
    Bytes open = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {16, 24});
    const std::string pixels = zipped(std::string(16 * 8 * 4, 'x'), 9);
    addPixels(open, 0, {0, 0, 16, 8}, pixels);
    for (const char* note : {"one", "two"})
        open.tag(TAG_NOTE, 1024).text(note).zeros(1024 - 3);
    addPixels(open, 0, {0, 8, 16, 16}, pixels);
    addPixels(open, 0, {0, 16, 16, 24}, pixels);
    const Bytes finished = closed(open);
    const std::vector<std::string> written = tagsOf(open);
    const std::size_t pixelTag = 40 + pixels.size(), table = open.size();
    const std::size_t bucket = 72, note = bucket + pixelTag, last = table - pixelTag;

    struct Case {
        const char* what;
        Contents bytes;
        std::vector<std::size_t> lost;
    };
    std::vector<Case> cases;
    const auto damaged = [&cases](const char* what, const Bytes& file,
                                  std::vector<std::size_t> lost) -> Contents& {
        return cases.emplace_back(Case{what, file, std::move(lost)}).bytes;
    };
    damaged("a size into the last tag", open, {4})[last - pixelTag + 4] += 41;
    Contents& shorter = damaged("a note that lacks bytes, at the end", open, {3});
    shorter.erase(shorter.begin() + static_cast<std::ptrdiff_t>(note) + 1500,
                  shorter.begin() + static_cast<std::ptrdiff_t>(note) + 2000);
    Contents& unlisted = damaged("the table's entry of one note", finished, {});
    std::fill_n(unlisted.begin() + static_cast<std::ptrdiff_t>(table) + 40 + 2 * 48, 48, 0);
    damaged("the id in the entry of one note", finished, {})[table + 40 + 2 * 48] ^= 1;
    Contents& misplaced = damaged("the table's beginning over a bucket", finished, {1});
    std::copy_n(finished.begin() + static_cast<std::ptrdiff_t>(table), pixelTag,
                misplaced.begin() + static_cast<std::ptrdiff_t>(bucket));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<std::string> kept = written;
        for (const std::size_t lost : c.lost)
            kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(lost));
        EXPECT_EQ(recovered(c.bytes).tags, kept);
    }
}

// Bytes that went missing on the way, or came in between, cost the tag in which that happened.
TEST(Recover, FindsTheWayWhereOffsetsHaveMoved) {
    // Without a checksum only the tag that is cut off tells that bytes are missing.
    const Sample bare = makeSample({false, false});
    const int camera = bare.find(TAG_CAMERA_INFO);
    Contents lacking = bare.bytes;
    lacking.erase(lacking.begin() + bare.offset(camera) + 60);
    EXPECT_EQ(recovered(lacking).tags, tagsWithout(bare, {camera}));
    // Small tags behind a large one vanish under it as a whole.
    Bytes open = Bytes().fileHeader(0).tag(TAG_PREVIEW, 3000, {100, 10}).zeros(3000);
    open.tag(TAG_RESOLUTION, 0, {16, 8}).tag(TAG_REGIONS_INFO, 0, {16, 8, 0});
    addPixels(open, 0, {0, 0, 16, 8}, zipped(noise(16 * 8 * 4), 9));
    std::vector<std::string> written = tagsOf(open);
    open.erase(open.begin() + 512, open.begin() + 1024);
    written.erase(written.begin());
    EXPECT_EQ(recovered(open).tags, written);

    const Sample sample = makeSample();
    const int pixels = sample.find(TAG_CHAN_FLOAT2);
    for (const Bytes& file : {sample.bytes, opened(sample.bytes)}) {
        for (const int size : {1, 3, 40}) {
            const auto place = file.begin() + sample.offset(pixels) + 47;
            Contents less(file.begin(), place);
            less.insert(less.end(), place + size, file.end());
            Contents more = file;
            more.insert(more.begin() + (place - file.begin()), static_cast<std::size_t>(size), 7);
            for (const Contents& bytes : {less, more}) {
                EXPECT_EQ(verdict(bytes), "damaged");
                EXPECT_EQ(recovered(bytes).tags, tagsWithout(sample, {pixels})) << size;
            }
        }
    }
}

// A blob may hold a raw image, and a table looks like tags: nothing of that comes out as tags of the file,
// whatever happens to the header before it.
TEST(Recover, MakesNothingUpOutOfPayloads) {
    const Contents inner = makeSample({true, true, true, 1}).bytes;
    const auto size = static_cast<std::uint32_t>(inner.size());
    Bytes open = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {4, 4});
    const std::size_t settings = open.size();
    open.tag(TAG_SETTINGS, size, {static_cast<int>(size)}).raw(inner.data(), size);
    open.tag(TAG_STAMP, 8, {8}).zeros(8).tag(TAG_NOTE, 1024).text("note").zeros(1020);
    const Bytes finished = closed(open);
    // With a table even a header that is gone altogether opens nothing; and the table may lose its own.
    std::vector<Contents> spoiled(4, finished);
    std::memset(&spoiled[0][settings], 0, 40);
    for (const unsigned lost : {1u, 2u, 3u})
        std::memset(&spoiled[lost][open.size()], 0, lost == 3 ? 40 : lost * 4);
    for (const Bytes& file : {open, finished}) {
        for (std::size_t at = settings; at < settings + 40; ++at) {
            for (const int change : {0x01, 0x10, 0xff})
                spoiled.emplace_back(file)[at] ^= static_cast<unsigned char>(change);
        }
    }
    const std::vector<std::string> written = tagsOf(open);
    for (std::size_t i = 0; i < spoiled.size(); ++i) {
        const std::vector<std::string> tags = recovered(spoiled[i]).tags;
        for (const std::size_t intact : {0u, 2u, 3u})
            EXPECT_EQ(std::count(tags.begin(), tags.end(), written[intact]), 1) << i;
        EXPECT_LE(tags.size(), written.size()) << i;
    }
}

TEST(Recover, TellsWhatItCannotDecide) {
    const Sample sample = makeSample();
    // The aspect: by the tag or by the table?
    const Recovered result = recovered(with(sample.bytes, sample, 0, 16, Bytes().f32(2)));
    EXPECT_TRUE(result.report.lost.empty());
    EXPECT_TRUE(result.report.lacks);
    ASSERT_EQ(result.report.doubts.size(), 2u);
    EXPECT_EQ(result.report.doubts[0].tagId, TAG_RESOLUTION);
    EXPECT_EQ(result.report.doubts[1].offset, sample.offsets.back() + 40) << "the table's first entry";
    EXPECT_THAT(result.report.doubts[1].cause, HasSubstr(": p3 is -2147483648 in the table, 1073741824 in"));
    EXPECT_EQ(result.tags.size(), static_cast<std::size_t>(sample.tagCount() - 1));
    EXPECT_EQ(recovered({}).report.state, RecoverState::kNotThisFormat);
    EXPECT_EQ(recovered(Contents(100, 'x')).report.state, RecoverState::kNotThisFormat);
}

// Of one channel only the frame says whether a tag or its table entry is right.
TEST(Recover, RepairsPixelsThatHaveLeftTheFrame) {
    RawFrame frame;
    frame.channels.resize(1);
    MemoryFile file;
    frame.write(file.path());
    Contents bytes = file.bytes();
    std::vector<std::string> tags = tagsOf(opened(bytes));
    bytes[loadU32(&bytes[12]) - tags.back().size() + 13] ^= 1;  // 256 pixels to the right
    EXPECT_EQ(recovered(bytes).tags, tags);
}

TEST(RecoverInPlace, CutsTheEndAndRefusesAnythingElse) {
    const Sample open = makeSample({false});
    const Bytes torn = Bytes(open.bytes).raw(&open.bytes[static_cast<std::size_t>(open.offset(3))], 30);
    for (const Contents& bytes : {open.bytes, torn}) {
        const Recovered mended = recovered(bytes, true);
        EXPECT_TRUE(mended.report.changed);
        EXPECT_EQ(mended.tags, tagsOf(open.bytes));
        EXPECT_EQ(lostBytes(mended.report).size(), bytes.size() - open.bytes.size());
        const Recovered again = recovered(mended.bytes, true);
        EXPECT_FALSE(again.report.changed);
        EXPECT_EQ(difference(again.bytes, mended.bytes), "");
    }
    for (const int byte : {0, 9, 44}) {
        const Contents damaged = with(torn, open, open.find(TAG_CHAN_INT), byte, Bytes().text("x"));
        const Recovered refused = recovered(damaged, true);
        EXPECT_EQ(refused.report.state, RecoverState::kNotInPlace) << byte;
        EXPECT_FALSE(refused.report.cause.empty());
        EXPECT_EQ(difference(refused.bytes, damaged), "");
    }
}

TEST(Recover, LeavesFilesAloneThatAreInUse) {
    MemoryFile file, output;
    file.fill(makeSample({false}).bytes);
    const Contents before = file.bytes();
    EXPECT_EQ(recoverFile(file.path(), file.path(), {}).state, RecoverState::kWriteFailed);
    RIFile writer;
    ASSERT_TRUE(writer.Append(file.path(), nullptr).empty());
    EXPECT_EQ(recoverInPlace(file.path(), {}).state, RecoverState::kCannotOpen);
    EXPECT_THAT(prepareResume(file.path()).cause, HasSubstr("another writer"));
    EXPECT_EQ(recoverFile(file.path(), output.path(), {}).state, RecoverState::kGood) << "reading is free";
    EXPECT_EQ(recoverFile(output.path(), file.path(), {}).state, RecoverState::kWriteFailed);
    EXPECT_EQ(difference(file.bytes(), before), "");
    EXPECT_EQ(recoverFile("/no/such/file", output.path(), {}).state, RecoverState::kCannotOpen);
    EXPECT_EQ(prepareResume("/no/such/file").state, RecoverState::kCannotOpen);

    RecoverOptions options;
    options.progress = [](std::int64_t done, std::int64_t total) { return 2 * done <= total; };
    EXPECT_EQ(recoverFile(file.path(), output.path(), options).state, RecoverState::kStopped);
    EXPECT_EQ(verdict(output.bytes()), "unfinished") << "never passes for whole";
}

// A render that was killed in the middle of a bucket, or had finished too few, goes on in the same file.
TEST(Resume, RendersOnlyWhatIsMissing) {
    SampleOptions options;
    options.buckets = 4;
    for (const bool finished : {false, true}) {
        const Sample sample = makeSample(options);
        const int kept = sample.find(TAG_CHAN_FLOAT4) + 2 * 6 + 3;  // two buckets and three channels
        Contents bytes(sample.bytes.begin(),
                       sample.bytes.begin() + sample.offset(kept) + (finished ? 0 : 50));
        if (finished) bytes = recovered(bytes).bytes;
        MemoryFile file;
        file.fill(bytes);

        const VerifyReport left = missingPixels(file.path());
        EXPECT_EQ(left.missingInAny.boxes, (std::vector<PixelBox>{{10, 0, 20, 3}}));
        ASSERT_EQ(left.missing.size(), 6u);
        for (const MissingPixels& missing : left.missing) {
            const PixelBox box = missing.channel > 2 ? PixelBox{15, 0, 20, 3} : PixelBox{10, 0, 20, 3};
            EXPECT_EQ(missing.boxes.boxes, std::vector<PixelBox>{box}) << missing.channel;
        }
        ASSERT_EQ(prepareResume(file.path()).state, RecoverState::kGood);
        EXPECT_EQ(file.bytes().size(), static_cast<std::size_t>(sample.offset(kept)));

        RIFile writer;
        std::vector<Event> ignored;
        ASSERT_TRUE(writer.Append(file.path(), nullptr).empty());
        ASSERT_EQ(writer.ReadInfoTags(nullptr), 0);
        writeBucket(writer, 3, options, ignored);
        writeBucket(writer, 2, options, ignored);
        ASSERT_TRUE(writer.Close().empty());
        EXPECT_EQ(verdict(file.bytes()), "good");
        const auto tags = [](const Contents& of) {
            const std::vector<std::string> list = tagsOf(opened(of));
            return std::set<std::string>(list.begin(), list.end());
        };
        EXPECT_TRUE(tags(file.bytes()) == tags(sample.bytes));
    }
}
