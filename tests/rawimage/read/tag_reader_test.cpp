#include "rawimage/read/tag_reader.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/testing/sample_file.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

// Gives rooms of one size that together are `total` bytes.
struct Rooms final : MUtils::ValueRooms {
    Rooms(std::size_t total, std::size_t roomBytes) : bytes(total), each(roomBytes) {}
    Room next() override {
        ++calls;
        const std::size_t size = std::min(each, bytes.size() - used);
        unsigned char* const data = bytes.data() + used;
        used += size;
        return {data, size};
    }

    std::vector<unsigned char> bytes;
    std::size_t each;
    std::size_t used = 0;
    int calls = 0;
};

INFOTAG entryOf(const Sample& sample, int index) {
    INFOTAG entry;
    static_cast<RIF_TAG&>(entry) = sample.tag(index);
    entry.offset = static_cast<std::uint64_t>(sample.offset(index));
    return entry;
}

std::size_t valueBytes(const INFOTAG& tag) {
    return static_cast<std::size_t>(tag.p4 * tag.p5 * findPixelKind(tag.id)->valueSize);
}

TEST(TagReader, ReadsTagsInAnyOrderWhateverTheFileHeaderSays) {
    for (const bool compressed : {true, false}) {
        SampleOptions options;
        options.compressed = compressed;
        Sample sample = makeSample(options);
        sample.bytes[20] = compressed ? 0 : 1;
        FaultStream stream(sample.bytes);
        stream.Open();
        MUtils::TagReader reader(stream, compressed);
        for (int i = sample.tagCount() - 1; i >= 0; --i) {
            const INFOTAG tag = entryOf(sample, i);
            CollectCallback seen;
            ASSERT_EQ(reader.read(tag, seen), 0);
            const std::vector<Event> expected(sample.events.begin() + sample.eventsBefore(i),
                                              sample.events.begin() + sample.eventsBefore(i + 1));
            EXPECT_EQ(seen.events, expected) << tagName(tag.id);
            if (!isPixelTag(tag.id)) continue;
            Rooms rooms(valueBytes(tag), 17);
            ASSERT_EQ(reader.readPixels(tag, rooms), 0);
            EXPECT_EQ(std::string(rooms.bytes.begin(), rooms.bytes.end()), expected.at(0).bytes);
        }
    }
}

TEST(TagReader, ReportsWhatIsWrongWithATag) {
    struct Case {
        const char* what;
        bool compressed;
        int code;
        bool asksForRooms;
        void (*damage)(INFOTAG& tag, Bytes& bytes, std::size_t& room);
    };
    const Case cases[] = {
        {"out of a stream's reach", true, -1, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { tag.offset = ULONG_MAX; }},
        {"past the end", true, -13, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { tag.offset = LONG_MAX / 2; }},
        {"more payload than file", true, -13, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { tag.size = 0xfffffff0u; }},
        {"no payload", true, -13, false, [](INFOTAG& tag, Bytes&, std::size_t&) { tag.size = 39; }},
        {"no zlib stream", true, -14, true,
         [](INFOTAG& tag, Bytes& bytes, std::size_t&) { bytes[tag.offset + 40] ^= 0x10; }},
        {"fewer values", true, -15, true,
         [](INFOTAG& tag, Bytes&, std::size_t& room) { room *= static_cast<std::size_t>(++tag.p5); }},
        {"more values than the payload can have", true, -15, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { tag.p4 = tag.p5 = 10000; }},
        {"negative", true, -14, false, [](INFOTAG& tag, Bytes&, std::size_t&) { tag.p4 = -1; }},
        {"no pixel tag", true, -14, false, [](INFOTAG& tag, Bytes&, std::size_t&) { tag.id = TAG_NOTE; }},
        {"too little room", true, -14, true, [](INFOTAG&, Bytes&, std::size_t& room) { --room; }},
        {"too little room", false, -16, true, [](INFOTAG&, Bytes&, std::size_t& room) { --room; }},
        {"values beyond the payload", false, -16, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { ++tag.p5; }},
        {"negative", false, -16, false, [](INFOTAG& tag, Bytes&, std::size_t&) { tag.p4 = -1; }},
        {"past the end", false, -16, false,
         [](INFOTAG& tag, Bytes&, std::size_t&) { tag.offset = LONG_MAX / 2; }},
    };
    for (const Case& c : cases) {
        SampleOptions options;
        options.compressed = c.compressed;
        Sample sample = makeSample(options);
        INFOTAG tag = entryOf(sample, sample.find(TAG_CHAN_FLOAT4));
        std::size_t room = valueBytes(tag);
        c.damage(tag, sample.bytes, room);
        FaultStream stream(sample.bytes);
        stream.Open();
        MUtils::TagReader reader(stream, c.compressed);
        Rooms rooms(room, 64);
        EXPECT_EQ(reader.readPixels(tag, rooms), c.code) << c.what;
        EXPECT_EQ(rooms.calls > 0, c.asksForRooms) << c.what;
    }
}

}  // namespace
