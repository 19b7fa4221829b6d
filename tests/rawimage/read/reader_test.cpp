#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <fstream>

#include "tests/testing/sample_file.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

// Overwrites a word of the first tag with that id, or of the file header for id 0. Byte 40 of a tag is its
// payload's first.
void patch(Sample& sample, std::uint32_t id, int at, std::int32_t value) {
    MUtils::storeI32(sample.bytes.data() + (id == 0 ? 0 : sample.offset(sample.find(id))) + at, value);
}

TEST(Reader, GivesBackWhatWasWritten) {
    SampleOptions options;
    for (int variant = 0; variant < 16; ++variant) {
        options.closed = (variant & 1) != 0;
        options.compressed = (variant & 2) != 0;
        options.blockBytes = (variant & 4) != 0 ? 64 : 1 << 20;
        const Sample sample = makeSample(options);
        Reading reading(sample.bytes);
        if ((variant & 8) != 0) reading.stream.hideLength();
        // Each walk starts anew.
        for (int walk = 0; walk < 2; ++walk) {
            reading.seen.events.clear();
            ASSERT_EQ(reading.parse(), 0);
            EXPECT_EQ(reading.seen.events, sample.events);
        }
        ASSERT_EQ(reading.seen.tags.size(), 2 * sample.offsets.size());
        for (int i = 0; i < sample.tagCount(); ++i) {
            EXPECT_EQ(bytesOf(reading.seen.tags[static_cast<std::size_t>(i)]), bytesOf(sample.tag(i)));
        }
    }
}

// More than a block of the reader's holds, which moreover is no whole number of these values.
TEST(Reader, DeliversATagOverTwoBlocks) {
    constexpr int kWidth = 3000000;
    MBVTable data(12, 1 << 20);
    data.setCount(kWidth);
    data.loadFromBuffer(Bytes().zeros(12 * kWidth).data(), kWidth);
    for (int i = 0; i < kWidth; i += 4999) {
        MUtils::storeI32(data.item(i) + 4, i);
    }
    for (const bool compressed : {true, false}) {
        FaultStream stream;
        stream.Open();
        RIFile file;
        ASSERT_TRUE(file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty());
        const ErrorCode error =
            compressed ? file.WTChan(data, 0, 0, nullptr, RCA_NONE, RCT_COLOR, 0, 0, kWidth, 1, 0, 0)
                       : file.WT3Float(data, 2, 0, 0, kWidth, 1, 0, 0, 0);
        ASSERT_TRUE(error.empty()) << error.describe();
        std::vector<unsigned char> bytes = stream.bytes();
        bytes[20] = compressed ? 1 : 0;
        Reading reading(bytes);
        if (!compressed) reading.stream.hideLength();
        ASSERT_EQ(reading.parse(), 0);
        ASSERT_EQ(reading.seen.events.size(), 1u);
        EXPECT_TRUE(reading.seen.events[0].bytes == bytesOf(data));
    }
}

TEST(Reader, ReadsAFileByName) {
    const Sample sample = makeSample();
    const std::string name = testing::TempDir() + "reader_test.rimg";
    for (const std::size_t size : {std::size_t{31}, std::size_t{32}, sample.bytes.size()}) {
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(sample.bytes.data()), static_cast<std::streamsize>(size));
        EXPECT_EQ(RIFile::isRIFile(name.c_str()), size >= 32);
    }
    RIFile file;
    CollectCallback seen;
    ASSERT_TRUE(file.Open(name.c_str(), nullptr).empty());
    EXPECT_EQ(file.ParseFile(seen), 0);
    EXPECT_EQ(seen.events, sample.events);
    EXPECT_TRUE(file.Close().empty());
    std::remove(name.c_str());

    EXPECT_FALSE(RIFile::isRIFile(name.c_str()) || RIFile::isRIFile("/") || RIFile::isRIFile(nullptr));
    const ErrorCode error = file.Open(name.c_str(), nullptr);
    EXPECT_EQ(error.describe(),
              "Open: Error creating file \"" + name + "\" (2) (2); open: No such file or directory (2)");
    EXPECT_EQ(file.ParseFile(seen), -1);
}

TEST(Reader, EndsWithTheCodeOfARefusedOperation) {
    const Sample sample = makeSample();
    const std::pair<const char*, int> cases[] = {
        {"setResolution", -12}, {"setNumChannels", -10},     {"setChannel", -11},      {"setImageData", -17},
        {"setCameraInfo", -18}, {"setRenderRegion", -19},    {"setPreview", -21},      {"setSceneInfo", -1},
        {"setStampData", -23},  {"setOverlayTextData", -23}, {"setMirtSettings", -23}, {"setNote", 0},
    };
    for (const auto& [call, code] : cases) {
        Reading reading(sample.bytes);
        reading.seen.refused = {call};
        EXPECT_EQ(reading.parse(), code) << call;
        EXPECT_EQ(reading.seen.events.back().call, code != 0 ? call : "setImageData");
        EXPECT_EQ(reading.seen.count(call), 1) << call;
    }
}

TEST(Reader, AnswersEachKindOfDamage) {
    struct {
        const char* what;
        std::uint32_t id;
        int at, value;
        int code, plainCode;  // in a file with and without compression
        bool passed;          // the tag goes by in silence
    } const cases[] = {
        {"not a zlib stream", TAG_CHAN_FLOAT, 40, 0, -14, 0, false},
        {"more values than claimed", TAG_CHAN_FLOAT, 20, 4, -14, 0, false},
        {"fewer values than claimed", TAG_CHAN_FLOAT, 20, 6, -15, -16, false},
        {"far fewer than claimed", TAG_CHAN_FLOAT4, 20, 20000000, -15, -16, false},
        {"beyond 31 bits", TAG_CHAN_FLOAT2, 20, INT_MAX, -14, -16, false},
        {"negative count", TAG_CHAN_FLOAT3, 20, -5, -14, -16, false},
        {"no values", TAG_CHAN_INT, 20, 0, -14, 0, false},
        {"size below a header's", TAG_CHAN_INT, 4, 39, -13, -5, false},
        {"no payload", TAG_CHAN_INT, 4, 40, -14, -16, false},
        {"camera of no size", TAG_CAMERA_INFO, 4, 0, -5, -5, false},
        {"other channel records", TAG_CHANNEL_INFO, 12, 79, 0, 0, true},
        {"negative preview", TAG_PREVIEW, 8, -1, -20, -20, false},
        {"empty preview", TAG_PREVIEW, 12, 0, 0, 0, false},
        {"scene without a value", TAG_SCENE_INFO, 4, 43, -1, -1, false},
        {"huge stamp", TAG_STAMP, 8, INT_MAX, -22, -22, false},
        {"empty settings", TAG_SETTINGS, 8, 0, 0, 0, false},
        {"unknown id", TAG_SCENE_INFO, 0, 274, 0, 0, true},
        {"another magic", 0, 0, 0x474D4953, -3, -3, false},
        {"other format numbers", 0, 4, -1, 0, 0, false},
        {"a table elsewhere", 0, 12, 33, 0, 0, false},
    };
    for (const bool compressed : {true, false}) {
        for (const auto& c : cases) {
            const Sample whole = makeSample({true, compressed});
            Sample sample = whole;
            patch(sample, c.id, c.at, c.value);
            Reading reading(sample.bytes);
            EXPECT_EQ(reading.parse(), compressed ? c.code : c.plainCode)
                << c.what << ", compressed " << compressed;
            if (!c.passed) continue;
            EXPECT_EQ(reading.seen.events, whole.eventsWithout(c.id)) << c.what;
        }
    }
}

TEST(Reader, TellsWhereTheStreamFailed) {
    constexpr int kEio = FaultStream::kError;
    struct {
        const char* what;
        bool closed;  // the file
        Call call;
        int nth;
        Fault fault;
        int parsed, listed;
        bool staysOpen;  // the stream, by ReadInfoTags
        int entries;
    } const cases[] = {
        {"header seek", true, Call::kSeek, 1, Fault::kErrorNothing, -2, kEio, false, 0},
        {"header read", true, Call::kRead, 1, Fault::kErrorNothing, -2, kEio, false, 0},
        {"all of the header, and an error", true, Call::kRead, 1, Fault::kErrorFull, -2, kEio, false, 0},
        {"half a header", true, Call::kRead, 1, Fault::kSilentShort, -2, -2, false, 0},
        {"table seek, second tag", true, Call::kSeek, 2, Fault::kErrorNothing, -5, kEio, true, 0},
        {"table's or first tag's header", true, Call::kRead, 2, Fault::kErrorShort, -4, kEio, true, 0},
        {"half of it", true, Call::kRead, 2, Fault::kSilentShort, -4, -5, true, 0},
        {"first entry, second tag", true, Call::kRead, 3, Fault::kErrorShort, -4, 0, true, 1},
        {"scan", false, Call::kRead, 3, Fault::kErrorNothing, -4, -3, false, 1},
        {"short read in a scan", false, Call::kRead, 3, Fault::kSilentShort, -4, -3, false, 1},
        {"skip", false, Call::kSkip, 2, Fault::kErrorNothing, 0, -4, false, 2},
    };
    for (const auto& c : cases) {
        const Sample sample = makeSample({c.closed});
        Reading parsing(sample.bytes), listing(sample.bytes);
        parsing.stream.failAt(c.call, c.nth, c.fault);
        EXPECT_EQ(parsing.parse(), c.parsed) << c.what;
        listing.stream.failAt(c.call, c.nth, c.fault);
        EXPECT_EQ(listing.list(), c.listed) << c.what;
        EXPECT_EQ(listing.stream.IsOpen(), c.staysOpen) << c.what;
        EXPECT_EQ(listing.file.NumTags(), c.entries) << c.what;
    }
    Reading reading({});
    reading.stream.Close();
    EXPECT_EQ(reading.parse(), -1);
    EXPECT_EQ(reading.file.SetStream(nullptr), 0);
    EXPECT_EQ(reading.parse(), -1);
    EXPECT_EQ(reading.list(), -1);
}

TEST(Reader, ListsByTableOrByScan) {
    for (const bool closed : {true, false}) {
        const Sample sample = makeSample({closed});
        Reading reading(sample.bytes);
        ASSERT_EQ(reading.list(), 0);
        ASSERT_EQ(reading.list(), 0) << "anew, not in addition";
        EXPECT_EQ(reading.mask, closed ? -1 : 1 | 2 | 3 | 4 | 5 | 6)
            << "the mask is a by-product of scanning only";
        int entry = 0;
        for (int i = 0; i < sample.tagCount(); ++i) {
            const std::uint32_t id = sample.tag(i).id;
            const bool bare = id == TAG_CAMERA_INFO || id == TAG_RENDER_REGION || id == TAG_SCENE_INFO;
            if (closed && (bare || id == TAG_INFO_TAGS)) continue;
            INFOTAG* found = reading.file.GetTag(entry++);
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(bytesOf(static_cast<RIF_TAG&>(*found)), bytesOf(sample.tag(i)));
            EXPECT_EQ(found->offset, static_cast<std::uint64_t>(sample.offset(i)));
        }
        EXPECT_EQ(reading.file.NumTags(), entry);
        EXPECT_EQ(reading.stream.bytes(), sample.bytes) << "only a writer cuts the table off";
    }
    // The words are ORed as they stand, those of pixel tags only.
    Sample odd = makeSample({false});
    for (int i = 0; i < odd.tagCount(); ++i) {
        MUtils::storeI32(odd.bytes.data() + odd.offset(i) + 8, isPixelTag(odd.tag(i).id) ? 4 : -1);
    }
    Reading reading(odd.bytes);
    ASSERT_EQ(reading.list(), 0);
    EXPECT_EQ(reading.mask, 4);
}

TEST(Reader, LooksTagsUp) {
    const Sample sample = makeSample({false});
    Reading reading(sample.bytes);
    RIFile& file = reading.file;
    ASSERT_EQ(reading.list(), 0);
    const int count = file.NumTags();
    for (const int index : {-1, count, INT_MAX, INT_MIN}) {
        EXPECT_EQ(file.GetTag(index), nullptr);
        EXPECT_EQ(file.GetTagDataSize(index), -1);
        EXPECT_EQ(file.ReadTag(index, nullptr), -1);
        EXPECT_EQ(file.FindNextTag(TAG_RESOLUTION, index), -1);
    }
    EXPECT_EQ(file.FindNextTag(TAG_RESOLUTION, 0), 0) << "the start counts";
    EXPECT_EQ(file.FindNextTag(TAG_RESOLUTION, 1), -1);
    EXPECT_EQ(file.FindNextTag(TAG_NOTE, 0), sample.find(TAG_NOTE));
    const int pixels = sample.find(TAG_CHAN_FLOAT4);
    EXPECT_EQ(file.FindNextChanTag(-1), pixels);
    EXPECT_EQ(file.FindNextChanTag(pixels - 1), pixels);
    EXPECT_EQ(file.FindNextChanTag(pixels), pixels + 1) << "the start does not count";
    for (const int after : {count - 1, count, INT_MAX, -2, INT_MIN}) {
        EXPECT_EQ(file.FindNextChanTag(after), -1) << after;
    }
    // Payloads come as they are stored.
    for (int i = 0; i < count; ++i) {
        std::vector<unsigned char> payload(static_cast<std::size_t>(file.GetTagDataSize(i)));
        EXPECT_EQ(file.ReadTag(i, payload.data()), 0);
        EXPECT_TRUE(std::equal(payload.begin(), payload.end(), sample.bytes.begin() + sample.offset(i) + 40))
            << i;
    }
    struct {
        std::uint32_t size;
        std::uint64_t offset;
        int code;
    } const spoiled[] = {{39, 32, -3},       {UINT_MAX, 32, -3}, {41, 9999, -3}, {41, LONG_MAX - 39, -2},
                         {41, LONG_MAX, -2}, {41, ~0ull, -2},    {41, 0, 0}};
    unsigned char byte[1];
    for (const auto& [size, offset, code] : spoiled) {
        file.GetTag(0)->size = size;
        file.GetTag(0)->offset = offset;
        EXPECT_EQ(file.ReadTag(0, byte), code) << size << " at " << offset;
    }
    EXPECT_EQ(byte[0], sample.bytes[40]) << "the entry's word counts, also inside the file header";
    file.GetTag(0)->size = UINT_MAX;
    EXPECT_EQ(file.GetTagDataSize(0), INT_MAX);
}

TEST(Reader, ObeysParseTag) {
    const Sample sample = makeSample();
    for (int i = 0; i < sample.tagCount(); ++i) {
        const std::uint32_t id = sample.tag(i).id;
        for (const int verdict : {0, 2, -1, 3}) {
            Reading reading(sample.bytes);
            int asked = 0;
            reading.seen.verdicts[id] = 1;
            reading.seen.edit = [&](RIF_TAG&) { reading.seen.verdicts[id] = asked++ == i ? verdict : 1; };
            ASSERT_EQ(reading.parse(), verdict == 0 ? -9 : 0) << id;
            std::vector<Event> expected = sample.events;
            const auto first = expected.begin() + sample.eventsBefore(i);
            if (verdict == 0) expected.erase(first, expected.end());
            if (verdict == 2) expected.erase(first, expected.begin() + sample.eventsBefore(i + 1));
            EXPECT_EQ(reading.seen.events, expected) << id << ' ' << verdict;
        }
    }
    Reading unknown(Bytes().fileHeader(0).tag(300, 0));
    unknown.seen.verdicts[300] = 0;
    EXPECT_EQ(unknown.parse(), -9) << "asked for ids that no reader knows, too";
}

TEST(Reader, GoesOnWithAnEditedTag) {
    const Sample sample = makeSample();
    Reading reading(sample.bytes);
    reading.seen.edit = [](RIF_TAG& tag) {
        if (tag.id == TAG_RESOLUTION) tag.p3 = 0;
        if (tag.id == TAG_NOTE) tag.id = TAG_REGIONS_INFO;
        if (isPixelTag(tag.id)) tag.p8 += 100;
    };
    std::vector<Event> expected = sample.eventsWithout(TAG_NOTE);
    for (Event& event : expected) {
        if (event.call == "setResolution") event.numbers[2] = 0x3F800000;  // a word of 0 means 1.0
        if (event.call == "setImageData") event.numbers[1] += 100;
    }
    EXPECT_EQ(reading.parse(), 0);
    EXPECT_EQ(reading.seen.events, expected);
}

// Uncompressed pixels: what lies behind the values is walked over, but values that lack bytes are refused.
TEST(Reader, TakesTheFirstValuesOfALongerPayload) {
    const Bytes values = Bytes().i32s({1, 2, 3, 4, 5, 6});
    const auto file = [&values](std::uint32_t size, int width, int height) {
        Bytes bytes = Bytes().fileHeader(0).tag(TAG_CHAN_INT, size, {RCT_INT, 7, 8, width, height, 0, 0, 3});
        bytes.raw(values.data(), size).tag(TAG_RESOLUTION, 0, {10, 3, 0x3F800000});
        bytes[20] = 0;
        return bytes;
    };
    const struct {
        std::uint32_t size;
        int width, height, editedHeight;
        int delivered, code;
    } cases[] = {{24, 3, 2, 2, 6, 0}, {24, 3, 2, 1, 3, 0}, {23, 3, 2, 1, 3, 0},  {24, 2, 2, 2, 4, 0},
                 {13, 3, 1, 1, 3, 0}, {24, 3, 0, 0, 0, 0}, {11, 3, 1, 1, 0, -16}};
    for (const auto& c : cases) {
        for (const bool lengthKnown : {true, false}) {
            Reading reading(file(c.size, c.width, c.height));
            if (!lengthKnown) reading.stream.hideLength();
            reading.seen.edit = [&c](RIF_TAG& tag) {
                if (isPixelTag(tag.id)) tag.p5 = c.editedHeight;
            };
            EXPECT_EQ(reading.parse(), c.code);
            std::vector<Event> expected;
            if (c.code == 0) {
                const auto bytes = static_cast<std::size_t>(c.delivered) * 4;
                expected = {{"setImageData",
                             {c.delivered, 3, 7, 8, c.width, c.editedHeight, 0, 0},
                             std::string(values.begin(), values.begin() + static_cast<long>(bytes))},
                            {"setResolution", {10, 3, 0x3F800000}, {}}};
            }
            EXPECT_EQ(reading.seen.events, expected) << &c - cases;
        }
    }
}

// Values count as read when all came; on a stream that does not know its length, too.
TEST(Reader, TakesValuesThatAllCameWithAnError) {
    Bytes bytes = Bytes().fileHeader(0).tag(TAG_PREVIEW, 6, {2, 1}).text("abcdef");
    bytes.tag(TAG_CHAN_INT, 8, {RCT_INT, 0, 0, 2, 1}).i32s({7, 8});
    bytes[20] = 0;
    for (const bool lengthKnown : {true, false}) {
        for (const Fault fault : {Fault::kErrorFull, Fault::kErrorShort}) {
            for (const int payload : {3, 5}) {
                Reading reading(bytes);
                if (!lengthKnown) reading.stream.hideLength();
                reading.stream.failAt(Call::kRead, payload, fault);
                const int refused = payload == 3 ? -20 : -16;
                EXPECT_EQ(reading.parse(), fault == Fault::kErrorFull ? 0 : refused)
                    << "read " << payload << ", length known " << lengthKnown;
            }
        }
    }
}

// A record that is cut is passed over, and the next one asked for; a failed read or one of nothing is the
// last.
TEST(Reader, ReadsChannelRecordsUntilAReadFails) {
    const Sample sample = makeSample();
    const struct {
        Fault fault;
        std::ptrdiff_t channels;
    } cases[] = {{Fault::kErrorNothing, 1}, {Fault::kErrorShort, 1}, {Fault::kErrorFull, 2}};
    for (const auto& c : cases) {
        Reading reading(sample.bytes);
        RIF_TAG tag = sample.tag(sample.find(TAG_CHANNEL_INFO));
        reading.stream.Seek(static_cast<long>(sample.offset(sample.find(TAG_CHANNEL_INFO))) + 40);
        reading.stream.clearLog();
        reading.stream.failAt(Call::kRead, 2, c.fault);
        EXPECT_EQ(reading.file.ParseTag(tag, &reading.seen), 0);
        EXPECT_EQ(reading.seen.count("setChannel"), c.channels);
        EXPECT_EQ(reading.stream.log(), "read 80, read 80") << static_cast<int>(c.fault);
    }
    Reading torn(Bytes().fileHeader(0).tag(TAG_CHANNEL_INFO, 160, {2, 80}).zeros(79));
    torn.stream.failAt(Call::kRead, 3, Fault::kSilentShort);  // 40 bytes, then the other 39
    EXPECT_EQ(torn.parse(), 0);
    EXPECT_EQ(torn.seen.count("setChannel"), 0);
    EXPECT_EQ(torn.stream.log().substr(torn.stream.log().find("read 80")),
              "read 80, read 80, seek 232, read 40");
}

TEST(Text, EndsWithItsPayload) {
    for (const bool lengthKnown : {true, false}) {
        for (const unsigned size : {0u, 1u, 1024u, 3000u}) {
            // Without a NUL.
            const std::string text(size, 'x');
            Reading reading(Bytes()
                                .fileHeader(0)
                                .tag(TAG_NOTE, size)
                                .text(text)
                                .tag(TAG_SCENE_INFO, 4 + size)
                                .u32(5)
                                .text(text));
            if (!lengthKnown) reading.stream.hideLength();
            EXPECT_EQ(reading.parse(), 0);
            EXPECT_EQ(reading.seen.events[1], (Event{"setNote", {}, text}));
            EXPECT_EQ(reading.seen.events[2], (Event{"setSceneInfo", {5}, text}));
        }
    }
}

}  // namespace
