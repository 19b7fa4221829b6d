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

TEST(Append, WritesNothingBeforeTheListIsRead) {
    const Sample sample = makeSample();
    MemoryFile target;
    target.fill(sample.bytes);
    RIFile file;
    ASSERT_TRUE(file.Append(target.path(), nullptr).empty());
    EXPECT_FALSE(file.WriteHeader(0).empty());
    EXPECT_FALSE(file.WTNote("lost").empty());
    MUtils::Table<MUtils::RegionChannelCallback*, 100> none;
    EXPECT_FALSE(file.WTChannelInfo(&none).empty());
    EXPECT_TRUE(file.Close().empty());
    EXPECT_EQ(difference(target.bytes(), sample.bytes), "");
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
