#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "rawimage/inspect/inspection.h"
#include "rawimage/tools/recover.h"
#include "support/bytes.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/sanitized.h"

// Which of a damaged file's own statements are believed, on a frame of several channels and buckets.

using namespace testing_tools;
using namespace MUtils;

namespace {

constexpr int kChannels = 4;

using Values = std::function<float(int component, int x, int y)>;

Values valuesOf(int seed) {
    return [seed](int component, int x, int y) {
        return static_cast<float>((x * 31 + y * 17 + component * 7) * (seed + 3) % (seed + 97));
    };
}

// 3 x 2 buckets of 16 x 16 with metadata.
Contents makeFrame(const Values& values, int channels = kChannels, const std::string& stamp = "stamp") {
    RawFrame frame;
    frame.width = 48, frame.height = 32;
    const RawChannel all[kChannels] = {{2, 126, "color"}, {2, 125, "alpha"}, {4, 0, "id"}, {4, 0, "mask"}};
    frame.channels.assign(all, all + channels);
    frame.boxes.clear();
    for (int i = 0; i < 6; ++i)
        frame.boxes.push_back({i % 3 * 16, i / 3 * 16, 16, 16});
    frame.metadata = [&stamp](RIFile& file) {
        expectOk(file.WTCameraInfo({}));
        expectOk(file.WTNote("note"));
        expectOk(file.WTStampText(stamp.c_str()));
        char blob[] = "settings";
        expectOk(file.WTOverlayTexts(blob, 3));
        expectOk(file.WTMirtSettings(blob, sizeof blob));
    };
    frame.values = values;
    MemoryFile file;
    frame.write(file.path());
    return file.bytes();
}

// The sound tags but the table: 40 bytes of header each, and the offset.
std::vector<std::string> headersOf(const Inspection& file) {
    std::vector<std::string> headers;
    for (const INFOTAG& tag : file.tags) {
        unsigned char entry[kInfoTagBytes];
        encodeInfoTag(tag, entry);
        if (tag.id != TAG_INFO_TAGS) headers.emplace_back(entry, entry + kInfoTagBytes);
    }
    return headers;
}

// What recovery writes, its table left out.
std::set<std::string> recoveredTags(const Contents& bytes) {
    MemoryFile input, output;
    input.fill(bytes);
    EXPECT_EQ(recoverFile(input.path(), output.path(), {}).state, RecoverState::kGood);
    const std::vector<std::string> tags = tagsOf(opened(output.bytes()));
    return {tags.begin(), tags.end()};
}

std::set<std::string> setOf(const std::vector<std::string>& tags) {
    return {tags.begin(), tags.end()};
}

struct Evidence : testing::Test {
    const Contents file = makeFrame(valuesOf(1));
    const Inspection sound = inspected(file);
    const std::vector<std::string> headers = headersOf(sound);
    const INFOTAG& table = sound.tags.back();

    INFOTAG tagOf(std::uint32_t id, int nth = 0) const {
        for (const INFOTAG& tag : sound.tags) {
            if (tag.id == id && nth-- == 0) return tag;
        }
        throw std::runtime_error("no such tag");
    }
    static Contents flipped(Contents bytes, std::uint64_t at, int bit) {
        bytes[at + static_cast<std::size_t>(bit / 8)] ^= static_cast<unsigned char>(1 << bit % 8);
        return bytes;
    }
};

}  // namespace

TEST_F(Evidence, RepairsEveryBitOfAListedHeader) {
    ASSERT_EQ(sound.state, FileState::kGood);
    const INFOTAG tags[] = {tagOf(TAG_RESOLUTION),     tagOf(TAG_REGIONS_INFO),   tagOf(TAG_NOTE),
                            tagOf(TAG_STAMP_TEXT),     tagOf(TAG_SETTINGS),       tagOf(TAG_CHAN_INT, 4),
                            tagOf(TAG_CHAN_FLOAT3, 4), tagOf(TAG_CHAN_FLOAT3, 5), tagOf(TAG_CHAN_INT, 11)};
    for (const INFOTAG& tag : tags) {
        for (int bit = 0; bit < 8 * kTagHeaderBytes; bit += kSanitized ? 5 : 1) {
            const bool isAspect = tag.id == TAG_RESOLUTION && bit / 32 == 4;  // which nothing else states
            if (isAspect) continue;
            const Contents bytes = flipped(file, tag.offset, bit);
            for (const InspectDepth depth : {InspectDepth::kHeaders, InspectDepth::kPayloads}) {
                const Inspection result = inspected(bytes, depth);
                EXPECT_EQ(result.state, FileState::kDamaged);
                ASSERT_EQ(headersOf(result), headers)
                    << tagName(tag.id) << ", bit " << bit % 32 << " of word " << bit / 32;
                ASSERT_EQ(result.repairs.size(), 1u);
                EXPECT_EQ(result.repairs[0].offset, static_cast<std::int64_t>(tag.offset));
                EXPECT_TRUE(result.gaps.empty() && result.faults.empty());
            }
        }
        const Contents bytes = flipped(file, tag.offset, 18);
        EXPECT_EQ(recoveredTags(bytes), setOf(tagsOf(opened(file)))) << tagName(tag.id);
    }
    // What is wrong with the table costs no tag.
    for (int bit = 0; bit < 8 * kInfoTagBytes; ++bit) {
        const std::uint64_t entry = table.offset + kTagHeaderBytes + 20 * kInfoTagBytes;
        const Inspection result = inspected(flipped(file, entry, bit));
        EXPECT_EQ(headersOf(result), headers) << bit;
        EXPECT_EQ(result.state, FileState::kDamaged) << bit;
        EXPECT_TRUE(result.repairs.empty()) << bit;
    }
}

// An aspect of 0 may have a sign.
TEST_F(Evidence, RepairsNoAspectByADamagedEntry) {
    const std::size_t inHeader = 16, tag = tagOf(TAG_RESOLUTION).offset;
    const std::size_t entry = table.offset + kTagHeaderBytes;  // the first one lists the resolution
    for (const std::uint32_t aspect : {0u, 0x80000000u, 0x3f800000u}) {
        Contents aspected = file;
        for (const std::size_t at : {tag, entry})
            storeU32(&aspected[at + inHeader], aspect);
        const std::vector<std::string> intact = headersOf(inspected(aspected));
        for (int bit = 0; bit < 32; ++bit) {
            const Inspection result = inspected(flipped(aspected, entry + inHeader, bit));
            EXPECT_EQ(headersOf(result), intact) << aspect << ", bit " << bit;
            EXPECT_TRUE(result.repairs.empty());
            EXPECT_EQ(result.faults.size(), 1u);
        }
    }
}

// A payload without a checksum may be gone with its header.
TEST_F(Evidence, RepairsNoPayloadThatNothingProves) {
    const INFOTAG settings = tagOf(TAG_SETTINGS);
    Contents bytes = file;
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(settings.offset), 44, 0);
    const Inspection result = inspected(bytes);
    EXPECT_TRUE(result.repairs.empty());
    EXPECT_EQ(result.gaps.size(), 1u);
    EXPECT_EQ(result.tags.size(), sound.tags.size() - 1);
}

// A block of a sibling in the file, as a disk leaves one that was not written. The tags of some siblings are
// those of the file, displaced by the longer stamp.
TEST_F(Evidence, KeepsNothingOfASibling) {
    const Values flat = [](int, int, int) { return 1.0f; }, brighter = [](int, int, int) { return 2.0f; };
    const Values moving = [](int component, int x, int y) {
        return valuesOf(x >= 16 && x < 32 && y < 16 ? 5 : 1)(component, x, y);
    };
    const std::pair<Contents, Contents> cases[] = {
        {file, makeFrame(valuesOf(2))},
        {file, makeFrame(valuesOf(2), kChannels, "other stamp")},
        {file, makeFrame(moving, kChannels, "other stamp")},
        {makeFrame(flat), makeFrame(brighter, kChannels, "other stamp")},
    };
    for (const auto& [frame, sibling] : cases) {
        const std::vector<INFOTAG> tags = inspected(frame).tags;
        const std::set<std::string> own = setOf(tagsOf(opened(frame)));
        for (const std::size_t size : {300u, 700u, 1500u, 4000u}) {
            // The last blocks cover the beginning of the table, too.
            for (std::size_t at = 100; at + size < tags.back().offset + 500; at += 97) {
                Contents bytes = frame;
                std::copy_n(sibling.begin() + static_cast<std::ptrdiff_t>(at), size,
                            bytes.begin() + static_cast<std::ptrdiff_t>(at));
                if (bytes == frame) continue;
                const std::set<std::string> kept = recoveredTags(bytes);
                std::size_t touched = 0;
                for (const INFOTAG& tag : tags)
                    touched += tag.offset < at + size && tag.offset + tag.size > at ? 1 : 0;
                EXPECT_GE(kept.size() + touched, own.size()) << at;
                for (const std::string& tag : kept) {
                    // Records and texts have no checksum.
                    if (isPixelTag(idOf(tag))) {
                        EXPECT_EQ(own.count(tag), 1u) << at << ", " << size;
                    }
                }
            }
        }
    }
}

// The same at the end of the file, over its table: what then tells the two frames apart is in the header.
TEST_F(Evidence, DoubtsASiblingThatEndsTheFile) {
    constexpr std::size_t kPage = 4096;
    const Values noise = [](int component, int x, int y) {
        return static_cast<float>((x * 7919 + y * 104729 + component * 31) % 65521) / 3.0f;
    };
    const Values other = [noise](int component, int x, int y) { return noise(component, x + 1, y) + 1.0f; };
    const Contents first = makeFrame(noise),
                   second = makeFrame(other, kChannels, "the stamp of another frame");
    int trials = 0;
    for (const auto& [frame, sibling] : {std::pair(first, second), std::pair(second, first)}) {
        const std::set<std::string> own = setOf(tagsOf(opened(frame)));
        for (std::size_t at = kPage; at < inspected(frame).tags.back().offset; at += kPage, ++trials) {
            Contents bytes = sibling;
            bytes.resize(frame.size());  // behind a shorter sibling are zeros
            std::copy_n(frame.begin(), at, bytes.begin());
            const Inspection result = inspected(bytes);
            EXPECT_EQ(result.state, FileState::kDamaged) << at;
            for (const INFOTAG& tag : result.tags) {
                const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(tag.offset);
                const bool isOwn = own.count({begin, begin + tag.size}) > 0;
                const bool doubted = std::binary_search(result.doubted.begin(), result.doubted.end(),
                                                        static_cast<std::int64_t>(tag.offset));
                EXPECT_TRUE(doubted || isOwn || tag.id == TAG_INFO_TAGS) << at << ", " << tag.offset;
                EXPECT_FALSE(doubted && tag.offset < at) << at << ", " << tag.offset;
            }
        }
    }
    EXPECT_GE(trials, 6);
}

// Bytes inserted and as many lost further on: the header leads to the table, and the tags between are not
// where it lists them.
TEST_F(Evidence, KeepsTagsThatHaveMoved) {
    constexpr std::ptrdiff_t kMoved = 45;
    const INFOTAG first = tagOf(TAG_CHAN_FLOAT3, 0), last = tagOf(TAG_CHAN_FLOAT3, 10);
    std::set<std::string> intact = setOf(tagsOf(opened(file)));
    for (const INFOTAG& tag : {first, last}) {
        const auto begin = file.begin() + static_cast<std::ptrdiff_t>(tag.offset);
        intact.erase(std::string(begin, begin + static_cast<std::ptrdiff_t>(tag.size)));
    }
    const auto inside = [](const INFOTAG& tag) { return static_cast<std::ptrdiff_t>(tag.offset) + 50; };
    Contents later = file, sooner = file;
    later.erase(later.begin() + inside(last), later.begin() + inside(last) + kMoved);
    later.insert(later.begin() + inside(first), kMoved, 'x');
    sooner.insert(sooner.begin() + inside(last), kMoved, 'x');
    sooner.erase(sooner.begin() + inside(first), sooner.begin() + inside(first) + kMoved);
    // An entry that has lost its header, or its offset.
    const std::size_t entry = table.offset + kTagHeaderBytes + (sound.tags.size() - 15) * kInfoTagBytes;
    for (const Contents& moved : {later, sooner}) {
        EXPECT_EQ(recoveredTags(moved), intact);
        for (const std::size_t at : {entry + 20, entry + 28, entry + kTagHeaderBytes})
            EXPECT_EQ(recoveredTags(flipped(moved, at, 4)), intact) << at - entry;
    }
}

TEST_F(Evidence, NamesEveryListedTagThatIsLost) {
    const char* const names[] = {"", "mask", "id", "alpha"};
    const std::size_t blob = sound.tags.size() - 26;  // the last record before the pixels
    ASSERT_EQ(sound.tags[blob].id, TAG_SETTINGS);
    Contents bytes = file;
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(sound.tags[blob].offset),
              bytes.begin() + static_cast<std::ptrdiff_t>(sound.tags[blob + 3].offset) + 50, 0);
    const Inspection result = inspected(bytes);
    ASSERT_EQ(result.gaps.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        const TagGap& gap = result.gaps[i];
        EXPECT_EQ(gap.offset, static_cast<std::int64_t>(sound.tags[blob + i].offset));
        EXPECT_EQ(gap.end, static_cast<std::int64_t>(sound.tags[blob + i + 1].offset));
        const FileFault fault = faultOf(gap, result.facts);
        EXPECT_EQ(fault.tagId, sound.tags[blob + i].id);
        EXPECT_EQ(fault.channelName, names[i]);
    }
}

TEST_F(Evidence, FindsTheTableAtTheEnd) {
    const INFOTAG moved = tagOf(TAG_CHAN_INT, 5);
    const Contents place = flipped(file, moved.offset + 12, 6);
    Contents pointer = flipped(place, 12, 9), zeroed = place, never = place;
    std::fill_n(zeroed.begin(), kFileHeaderBytes, 0);
    std::fill_n(never.begin() + 12, 8, 0);  // as a writer that dies just before
    for (const Contents& bytes : {pointer, zeroed, never}) {
        const Inspection result = inspected(bytes);
        EXPECT_EQ(headersOf(result), headers);
        EXPECT_EQ(result.repairs.size(), 1u);
        EXPECT_EQ(recoveredTags(bytes), setOf(tagsOf(opened(file))));
    }
}

TEST_F(Evidence, ReportsARunOfLikeEntriesOnce) {
    Contents bytes = file;
    std::fill(bytes.end() - 10 * kInfoTagBytes - 5, bytes.end(), 0);
    const Inspection result = inspected(bytes);
    EXPECT_EQ(headersOf(result), headers);
    ASSERT_LE(result.faults.size(), 3u);
    std::int64_t count = 0;
    for (const TagScan::Fault& fault : result.faults)
        count += fault.count;
    EXPECT_GE(count, 20);
}

// Without a table.
TEST_F(Evidence, RepairsAPlaceByTheOtherChannels) {
    const Bytes open = opened(file);
    for (const int nth : {0, 4, 7, 11}) {
        for (const std::uint32_t id : {TAG_CHAN_INT, TAG_CHAN_FLOAT3}) {
            const INFOTAG tag = tagOf(id, nth);
            for (int bit = 96; bit < 224; bit += nth == 4 ? 1 : 7) {  // x, y, width, height
                const Contents bytes = flipped(open, tag.offset, bit);
                for (const InspectDepth depth : {InspectDepth::kHeaders, InspectDepth::kPayloads}) {
                    const Inspection result = inspected(bytes, depth);
                    EXPECT_EQ(result.state, FileState::kDamaged);
                    ASSERT_EQ(headersOf(result), headers) << nth << ", bit " << bit;
                    EXPECT_TRUE(result.missing.empty());
                }
                // In the file as it is, the right place and the wrong one are to be rendered; then all is
                // well.
                FaultStream stream(bytes);
                stream.Open();
                InspectOptions options;
                options.repairedIsMissing = true;
                EXPECT_EQ(inspectStream(stream, options).missing.size(), 1u) << bit;
            }
        }
    }
}

// The first, a middle and the last channel; the lowest bits give another channel, of the same type or not.
TEST_F(Evidence, RepairsAChannelByItsOrder) {
    const Bytes open = opened(file);
    for (const INFOTAG& tag : {tagOf(TAG_CHAN_INT, 4), tagOf(TAG_CHAN_INT, 5), tagOf(TAG_CHAN_FLOAT3, 4),
                               tagOf(TAG_CHAN_FLOAT3, 5)}) {
        for (int bit = 0; bit < 32; ++bit) {
            const Inspection result = inspected(flipped(open, tag.offset + 36, bit));
            EXPECT_EQ(result.state, FileState::kDamaged);
            EXPECT_EQ(headersOf(result), headers) << tag.p8 << ", bit " << bit;
        }
    }
}

// The last tag of a torn file says another channel, of another type, and another width.
TEST_F(Evidence, RepairsNoPlaceOfATagThatContradictsTheList) {
    const INFOTAG tag = tagOf(TAG_CHAN_INT, 3);
    Contents bytes = opened(file);
    bytes.resize(tag.offset + tag.size);
    MemoryFile input, output;
    input.fill(flipped(flipped(bytes, tag.offset + 36, 1), tag.offset + 20, 1));
    EXPECT_EQ(recoverFile(input.path(), output.path(), {}).state, RecoverState::kGood);
    const Inspection result = inspected(output.bytes());
    EXPECT_EQ(result.state, FileState::kIncomplete) << result.cause;
}

TEST_F(Evidence, CallsAFileSoundWhoseWrongPlacesWereRenderedAgain) {
    Bytes bytes = opened(file);
    const std::vector<std::string> tags = tagsOf(bytes);
    const INFOTAG wrong = tagOf(TAG_CHAN_INT, 2), other = tagOf(TAG_CHAN_INT, 4);  // 16 pixels to the right
    static_cast<Contents&>(bytes) = flipped(bytes, wrong.offset + 12, 4);
    static_cast<Contents&>(bytes) = flipped(bytes, wrong.offset + 12, 5);
    EXPECT_EQ(inspected(bytes).state, FileState::kDamaged);
    for (const INFOTAG& tag : {wrong, other})
        bytes.raw(&file[tag.offset], tag.size);
    const Inspection result = inspected(bytes);
    EXPECT_EQ(result.state, FileState::kUnfinished) << result.cause;
    EXPECT_TRUE(result.missing.empty());
}

// Two words at once, or a row of two channels that contradict each other.
TEST_F(Evidence, DoubtsWhatItCannotSettle) {
    const INFOTAG tag = tagOf(TAG_CHAN_INT, 2);
    const Contents both = flipped(flipped(opened(file), tag.offset + 12, 4), tag.offset + 16, 6);
    const Inspection twice = inspected(both);
    EXPECT_EQ(twice.state, FileState::kDamaged);
    EXPECT_EQ(twice.doubted, std::vector<std::int64_t>{static_cast<std::int64_t>(tag.offset)});
    EXPECT_EQ(twice.missing.size(), 1u) << "both places of one channel";

    const Contents pairs = makeFrame(valuesOf(1), 2);
    const Inspection soundPairs = inspected(pairs);
    for (const INFOTAG& of : soundPairs.tags) {
        if (!isPixelTag(of.id)) continue;
        for (const int bit : {1, 4, 5, 9}) {
            const Inspection result = inspected(flipped(opened(pairs), of.offset + 12, bit));
            EXPECT_EQ(result.state, FileState::kDamaged) << of.offset << ", bit " << bit;
            EXPECT_TRUE(!result.doubted.empty() || headersOf(result) == headersOf(soundPairs));
        }
    }
}

// Rows of channels and boxes as writers may leave them; nothing is wrong.
TEST(EvidenceOfPlaces, RaisesNoFalseAlarm) {
    struct Written {
        int channel;
        PixelBox box;
    };
    using Rows = std::vector<Written>;
    const auto at = [](int x, int y = 0, int w = 8, int h = 8) { return boxAt(x, y, w, h); };
    Rows overlapping, offGrid, passes, lagging, ascending, single, clipped, split, mixed;
    for (int i = 0; i < 12; ++i) {
        for (int c = 3; c >= 0; --c) {
            overlapping.push_back({c, at(6 * i)});
            offGrid.push_back({c, at(7 * i + i * i, i, 5 + i % 3, 4)});
            ascending.push_back({3 - c, at(8 * i)});
            if (c > 0) lagging.push_back({c, at(8 * i)});
            clipped.push_back({c, c == 2 && i % 4 == 0 ? at(8 * i + 3, 2, 5, 6) : at(8 * i)});
            if (c < 2) split.push_back({c, at(8 * i)});
            mixed.push_back({c, c == 1 ? at(8 * (11 - i)) : at(8 * i)});
        }
        if (i > 0) lagging.push_back({0, at(8 * i - 8)});
        single.push_back({0, i % 5 == 4 ? at(3 * i, 1) : at(8 * i)});
    }
    for (int i = 11; i >= 0; --i) {
        split.push_back({3, at(8 * i)});
        split.push_back({2, at(8 * i)});
    }
    for (int pass = 0; pass < 3; ++pass) {
        for (const Written& written : overlapping)
            passes.push_back({written.channel, at(static_cast<int>(written.box.x0) / 6 * 8)});
    }
    const std::pair<const char*, Rows> cases[] = {
        {"overlapping", overlapping}, {"off the grid", offGrid}, {"several passes", passes},
        {"a channel later", lagging}, {"ascending", ascending},  {"a single channel", single},
        {"clipped", clipped},         {"several calls", split},  {"a channel of its own", mixed}};
    for (const auto& [what, rows] : cases) {
        Bytes bytes =
            Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {96, 16}).tag(TAG_REGIONS_INFO, 0, {8, 8, 0});
        for (const Written& written : rows) {
            addPixels(bytes, written.channel, written.box,
                      zipped(noise(static_cast<std::size_t>(4 * written.box.area())), 1));
            const Inspection result = inspected(bytes, InspectDepth::kHeaders);
            ASSERT_EQ(result.state, FileState::kUnfinished) << what << ": " << result.cause;
        }
    }
}
