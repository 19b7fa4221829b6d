#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/testing/memory_file.h"
#include "tests/testing/sample_file.h"

// Where reading and writing meet: notes that are replaced in place, files that are continued.

using namespace testing_tools;

namespace {

TEST(Note, IsReplacedInPlace) {
    const Sample sample = makeSample();
    const std::int64_t payload = sample.offset(sample.find(TAG_NOTE)) + 40;
    for (const int length : {-1, 0, 5, 1021, 1022, 1023, 1024, 5000}) {
        const std::string note(static_cast<std::size_t>(std::max(length, 0)), 'n');
        Reading reading(sample.bytes);
        reading.seen.refused = {"askNote"};
        reading.seen.replacementNote = length >= 0 ? note.c_str() : nullptr;
        EXPECT_EQ(reading.parse(), 0);
        EXPECT_EQ(reading.seen.count("setNote"), 0);
        EXPECT_EQ(reading.seen.count("getNote"), 1);
        Bytes expected = sample.bytes;
        if (length >= 0) {
            const Bytes stored = Bytes().text(note.substr(0, 1023)).zeros(1024);
            std::copy_n(stored.begin(), 1024, expected.begin() + payload);
        }
        EXPECT_EQ(difference(reading.stream.bytes(), expected), "") << length;
        const std::string log = reading.stream.log();
        EXPECT_EQ(log.find("write"), length >= 0 ? log.rfind("write 1024") : std::string::npos)
            << "in one call: a kill leaves the old note or the new one";
    }
    // Without a look at the stored size: meant, every note tag carries 1024 bytes.
    Reading small(Bytes().fileHeader(0).tag(TAG_NOTE, 10).zeros(10).tag(TAG_RESOLUTION, 0, {1, 1}));
    small.seen.refused = {"askNote"};
    small.seen.replacementNote = "text";
    small.parse();
    const Bytes grown = Bytes().fileHeader(0).tag(TAG_NOTE, 10).text("text").zeros(1020);
    EXPECT_EQ(difference(small.stream.bytes(), grown), "");
}

// Continues a file by one bucket, as a renderer that was started again does; returns the finished file.
std::vector<unsigned char> continued(const std::vector<unsigned char>& bytes, std::vector<Event>& events) {
    FaultStream stream(bytes);
    RIFile file;
    EXPECT_TRUE(file.Append(nullptr, &stream).empty());
    EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
    writeBucket(file, 7, {}, events);
    EXPECT_TRUE(file.Close().empty());
    return stream.bytes();
}

// What each writing operation answers, in the order of the class.
std::vector<bool> refusals(RIFile& file) {
    MBVTable values(16, 64);
    values.setCount(1);
    float number[3] = {};
    char blob[1] = {};
    MUtils::RGB24 pixel[1];
    RICameraInfo camera{};
    RISceneInfo scene(1, "scene");
    MRRegionData region;  // without channels: nothing to write
    MUtils::Table<MUtils::RegionChannelCallback*, 100> channels;
    std::vector<bool> refused;
    for (const ErrorCode& error : {file.WriteHeader(0),
                                   file.WriteTagHeader(TAG_STAMP, 0),
                                   file.WTResolution(1, 1, 1),
                                   file.WTRegionsInfo(1, 1, 0),
                                   file.WTChannelInfo(&region),
                                   file.WTChannelInfo(&channels),
                                   file.WTChan(values, 0, 0, nullptr, RCA_NONE, RCT_FLOAT4, 0, 0, 1, 1, 0, 0),
                                   file.WTInt(values, 0, 0, 0, 0, 0, 0, 0, 0),
                                   file.WTFloat(values, 0, 0, 0, 0, 0, 0, 0, 0),
                                   file.WT2Float(values, 0, 0, 0, 0, 0, 0, 0, 0),
                                   file.WT3Float(values, 0, 0, 0, 0, 0, 0, 0, 0),
                                   file._WT3Float(number, 0, 0, 0, 1, 1, 0, 0, 0),
                                   file.WTCameraInfo(camera),
                                   file.WTRenderRegion({1, 2, 3, 4, 5}),
                                   file.WTSceneInfo(scene),
                                   file.WTStampText("text"),
                                   file.WTNote("note"),
                                   file.WTStamp(blob, 1),
                                   file.WTOverlayTexts(blob, 1),
                                   file.WTMirtSettings(blob, 1),
                                   file.WTPreview(pixel, 1, 1),
                                   file.WTRegion(&region, 0, 0, 0)})
        refused.push_back(!error.empty());
    return refused;
}

// A position that is anywhere must not be written to: until ReadInfoTags returns 0, also when it fails.
TEST(Append, WritesNothingBeforeTheListIsRead) {
    const Sample sample = makeSample();
    Bytes lost = sample.bytes, hole = makeSample({false}).bytes;
    MUtils::storeU64(lost.data() + 12, 32);  // the first tag for the table
    MUtils::storeU32(hole.data() + 36, 39);  // a size that is none
    const struct {
        Bytes bytes;
        int code;  // of ReadInfoTags; 1 when it is not called
    } cases[] = {{sample.bytes, 1}, {{}, 1},
                 {{}, -2},          {Bytes().text("no raw image, though long enough"), -2},
                 {lost, -5},        {hole, -4}};
    for (const auto& c : cases) {
        FaultStream stream(c.bytes);
        MemoryFile target;
        target.fill(c.bytes);
        for (const bool byName : {true, false}) {
            RIFile file;
            ASSERT_TRUE(file.Append(target.path(), byName ? nullptr : &stream).empty());
            EXPECT_EQ(c.code != 1 ? file.ReadInfoTags(nullptr) : 1, c.code);
            EXPECT_THAT(refusals(file), testing::Each(true)) << c.code << ' ' << byName;
            EXPECT_TRUE(file.Close().empty());
        }
        EXPECT_EQ(difference(target.bytes(), c.bytes), "");
        EXPECT_EQ(difference(stream.bytes(), c.bytes), "");
    }
    // A stream that is put in place is the caller's to position.
    FaultStream first, second;
    second.Open();
    RIFile file;
    ASSERT_TRUE(file.Append(nullptr, &first).empty());
    file.SetStream(&second);
    EXPECT_TRUE(file.WriteHeader(0).empty() && file.WTResolution(1, 1, 1).empty() && file.Close().empty());
    EXPECT_EQ(second.size(), 32 + 40 + 40 + 48);
}

// A second call may succeed where the first one failed.
TEST(Append, GoesOnOnceTheListIsRead) {
    const Sample sample = makeSample();
    FaultStream stream(sample.bytes);
    RIFile file;
    ASSERT_TRUE(file.Append(nullptr, &stream).empty());
    stream.failAt(Call::kRead, 2, Fault::kErrorNothing);  // the table's header
    EXPECT_EQ(file.ReadInfoTags(nullptr), FaultStream::kError);
    EXPECT_FALSE(file.WTNote("too early").empty());
    EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
    EXPECT_TRUE(file.WTNote("late").empty() && file.Close().empty());
    EXPECT_EQ(stream.size(), static_cast<std::int64_t>(sample.bytes.size()) + 1064 + 48);
}

TEST(Append, ContinuesAFile) {
    for (const bool closed : {true, false}) {
        for (const bool compressed : {true, false}) {
            const Sample sample = makeSample({closed, compressed});
            Reading before(sample.bytes);
            ASSERT_EQ(before.list(), 0);
            const int old = before.file.NumTags();
            std::vector<Event> events = sample.events;
            std::vector<unsigned char> bytes = sample.bytes;
            for (int round = 1; round <= 2; ++round) {
                bytes = continued(bytes, events);
                Reading after(bytes);
                ASSERT_EQ(after.parse(), 0);
                EXPECT_EQ(after.seen.events, events) << "the new values as the file says, compressed or not";
                ASSERT_EQ(after.list(), 0);
                ASSERT_EQ(after.file.NumTags(), old + 6 * round) << "the table holds old and new";
                for (int i = 0; i < old; ++i) {
                    EXPECT_EQ(bytesOf(*after.file.GetTag(i)), bytesOf(*before.file.GetTag(i)));
                }
                const auto end =
                    closed ? static_cast<std::size_t>(sample.offsets.back()) : sample.bytes.size();
                EXPECT_EQ(after.file.GetTag(old)->offset, end) << "over the old table";
            }
        }
    }
}

TEST(Append, GoesOverHalfAHeader) {
    const Sample sample = makeSample({false});
    std::vector<Event> events;
    const std::vector<unsigned char> clean = continued(sample.bytes, events);
    for (std::size_t half = 1; half < 40; ++half) {
        EXPECT_EQ(continued(Bytes(sample.bytes).raw(sample.bytes.data() + 32, half), events), clean) << half;
    }
}

// Of each kind whose size something confirms, cut anywhere in its payload.
TEST(Append, GoesOverHalfATag) {
    for (const bool compressed : {true, false}) {
        const Sample sample = makeSample({false, compressed});
        for (const std::uint32_t id : {TAG_CHAN_FLOAT3, TAG_CHAN_INT, TAG_NOTE, TAG_STAMP_TEXT,
                                       TAG_SCENE_INFO, TAG_SETTINGS, TAG_CAMERA_INFO, TAG_CHANNEL_INFO}) {
            const int tag = sample.find(id);
            const auto part = [&](std::int64_t size) {
                return Bytes().raw(sample.bytes.data(), static_cast<std::size_t>(sample.offset(tag) + size));
            };
            std::vector<Event> events;
            const std::vector<unsigned char> clean = continued(part(0), events);
            for (std::int64_t size = 40; size < sample.tag(tag).size; ++size)
                ASSERT_EQ(difference(continued(part(size), events), clean), "") << id << " cut to " << size;
        }
    }
}

// The header's offset is taken at its word only where nothing but a table goes by it.
TEST(Append, CutsNothingThatIsNotTheTable) {
    const Bytes inner = makeSample({true, true, false}).bytes;
    const auto size = static_cast<std::uint32_t>(inner.size());
    const auto holding = [&inner](std::uint64_t offset, std::uint32_t room) {
        return Bytes()
            .fileHeader(offset)
            .tag(TAG_SETTINGS, room, {static_cast<int>(room)})
            .raw(inner.data(), inner.size());
    };
    // A table without entries, which says so twice, and the two counts one by one.
    const auto table = [](std::uint32_t entries, std::int32_t p1) {
        return Bytes().tag(TAG_INFO_TAGS, entries * 48, {p1});
    };
    const std::uint64_t end = 72 + size, innerTable = 72 + MUtils::loadU32(inner.data() + 12);
    const auto with = [&](const Bytes& tail) { return holding(end, size).raw(tail.data(), tail.size()); };
    const Bytes none = table(0, 0);
    const struct {
        const char* what;
        Bytes bytes;
        int code;
    } cases[] = {
        {"a table", with(none), 0},
        {"zeros behind it", with(Bytes(none).zeros(500)), 0},
        {"half a header behind it", with(Bytes(none).raw(&inner[32], 39)), 0},
        {"an entry that is cut off", with(table(1, 1).zeros(30)), 0},
        {"a damaged size", with(table(1, 0)), 0},
        {"a damaged count", with(table(0, 1)), 0},
        {"both, and more than either", with(table(1, 2).zeros(200)), 0},
        {"a tag behind them", with(table(2, 3).zeros(144).raw(&inner[32], 40).zeros(60)), -5},
        {"text behind it", with(Bytes(none).text(std::string(20000, 'x'))), 0},
        {"numbers behind it",
         with(Bytes(none).zeros(41).i32s({256, 256, 256, 256, 256, 256, 256, 256}).zeros(9)), 0},
        {"a tag behind it", with(Bytes(none).raw(&inner[32], 40)), -5},
        {"one with a damaged size", with(Bytes(none).i32s({TAG_STAMP, 1000, 5}).zeros(33)), -5},
        {"a tag behind that", with(Bytes(none).text(std::string(16350, 'x')).raw(&inner[32], 40)), -5},
        {"a table inside a blob", holding(innerTable, size).raw(none.data(), 40), -5},
    };
    for (const auto& c : cases) {
        for (const bool lengthKnown : {true, false}) {
            FaultStream stream(c.bytes);
            if (!lengthKnown) stream.hideLength();
            RIFile file;
            EXPECT_TRUE(file.Append(nullptr, &stream).empty());
            EXPECT_EQ(file.ReadInfoTags(nullptr), c.code) << c.what;
            EXPECT_EQ(stream.size(), c.code == 0 ? static_cast<std::int64_t>(end)
                                                 : static_cast<std::int64_t>(c.bytes.size()))
                << c.what;
            EXPECT_EQ(file.WTNote("note").empty(), c.code == 0) << c.what;
        }
    }
}

// The header leads to the table until that is gone; where it cannot go, until what covers it is finished.
TEST(Append, KeepsTheOffsetOfATableThatIsThere) {
    const Sample sample = makeSample();
    std::vector<Event> events;
    const std::vector<unsigned char> whole = continued(sample.bytes, events);
    const auto offsetIn = [](const std::vector<unsigned char>& bytes) {
        return MUtils::loadU32(bytes.data() + 12);
    };
    for (const bool cuts : {true, false}) {
        FaultStream stream(sample.bytes);
        if (!cuts) stream.failAt(Call::kTruncate, 1, Fault::kErrorNothing, true);
        RIFile file;
        EXPECT_TRUE(file.Append(nullptr, &stream).empty());
        EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
        const std::string log = stream.log();
        EXPECT_EQ(log.find("write") != std::string::npos, cuts) << "the offset, once the table is gone";
        EXPECT_TRUE(!cuts || log.find("write") > log.find("truncate"));
        EXPECT_EQ(offsetIn(stream.bytes()), cuts ? 0u : static_cast<std::uint32_t>(sample.offsets.back()));
        EXPECT_EQ(stream.Tell(), sample.offsets.back());
        writeBucket(file, 7, {}, events);
        EXPECT_TRUE(file.Close().empty());
        EXPECT_EQ(difference(stream.bytes(), whole), "");
    }
    // A file of one's own that cannot be cut is an error that has a reason.
    struct OwnFile : RIFile {
        explicit OwnFile(PStream* own) { stream = ownStream = own; }
        using RIFile::writeMode;
    };
    auto* own = new FaultStream(sample.bytes);
    OwnFile file(own);
    own->Open();
    own->failAt(Call::kTruncate, 1);
    file.writeMode = true;
    EXPECT_EQ(file.ReadInfoTags(nullptr), FaultStream::kError);
    EXPECT_FALSE(file.WTNote("note").empty());
    EXPECT_EQ(difference(own->bytes(), sample.bytes), "");
}

// A stream that does not know its length and answers an error where it ends.
TEST(Append, FindsTheEndOfAnyStream) {
    struct ErrorAtEnd : FaultStream {
        using FaultStream::FaultStream;
        int Read(void* data, int size, int& got) override {
            const int code = FaultStream::Read(data, size, got);
            return code == 0 && got < size ? kError : code;
        }
    };
    for (const bool closed : {true, false}) {
        const Sample sample = makeSample({closed});
        ErrorAtEnd stream(sample.bytes);
        stream.hideLength();
        RIFile file;
        EXPECT_TRUE(file.Append(nullptr, &stream).empty());
        EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
        const auto end = closed ? sample.offsets.back() : static_cast<std::int64_t>(sample.bytes.size());
        EXPECT_EQ(stream.Tell(), end);
        EXPECT_TRUE(file.WTNote("note").empty() && file.Close().empty());
    }
}

TEST(Append, CutsTheOldTableOff) {
    const Sample sample = makeSample();
    for (const bool create : {true, false}) {
        FaultStream stream(sample.bytes);
        stream.Open();
        RIFile file;
        EXPECT_TRUE((create ? file.Create(nullptr, &stream) : file.Append(nullptr, &stream)).empty());
        EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
        EXPECT_EQ(stream.size(), sample.offsets.back());
        EXPECT_EQ(stream.Tell(), sample.offsets.back());
        // Opened for reading, the same object leaves a file as it is.
        FaultStream whole(sample.bytes);
        whole.Open();
        EXPECT_TRUE(file.Open(nullptr, &whole).empty());
        EXPECT_EQ(file.NumTags(), 0);
        EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
        EXPECT_EQ(whole.bytes(), sample.bytes);
    }
    FaultStream fresh;
    RIFile file;
    EXPECT_TRUE(file.Append(nullptr, &fresh).empty());
    EXPECT_EQ(file.ReadInfoTags(nullptr), -2);
    EXPECT_FALSE(fresh.IsOpen());
}

}  // namespace
