#include "rawimage/tools/hash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "rawimage/tools/merge.h"
#include "tests/testing/check.h"
#include "tests/testing/memory_file.h"
#include "tests/testing/raw_frame.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

using Written = testing_tools::RawFrame;

HashReport hashOf(const Written& frame, const HashOptions& options = {}) {
    MemoryFile file;
    frame.write(file.path());
    return hashFile(file.path(), options);
}

// A hash as the format's page defines it, by the plain library, of little-endian bytes.
class Plain {
  public:
    Plain& number(std::int64_t value, int bytes = 4) {
        for (int i = 0; i < bytes; ++i)
            bytes_ += static_cast<char>(value >> 8 * i & 0xFF);
        return *this;
    }
    Plain& text(const std::string& letters) {
        bytes_ += letters;
        return *this;
    }
    Plain& value(float value) {
        std::int32_t bits = 0;
        std::memcpy(&bits, &value, 4);
        return number(bits);
    }
    std::string raw() const {
        XXH128_canonical_t form;
        XXH128_canonicalFromHash(&form, XXH3_128bits(bytes_.data(), bytes_.size()));
        return {reinterpret_cast<const char*>(form.digest), sizeof form.digest};
    }
    std::string text() const {
        std::string text;
        for (const char byte : raw()) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(byte)));
            text += digits;
        }
        return text;
    }

  private:
    std::string bytes_;
};

// The frame of the writer's helper with a hole in columns 8 to 11 of rows 4 to 7 and no rows 20 to 23.
Written holed() {
    Written frame;
    frame.channels = {{2, 126, "color"}, {4, 0, "id"}, {0, 7, "none"}};
    frame.boxes = {{0, 0, 40, 4}, {0, 4, 8, 4}, {12, 4, 28, 4}, {0, 8, 40, 12}};
    return frame;
}

// The digest of one of its channels.
std::string plainChannel(int index, int type, int alias, const std::string& name, int components) {
    Plain channel;
    channel.number(index)
        .number(type)
        .number(alias)
        .number(static_cast<std::int64_t>(name.size()))
        .text(name);
    for (int y = 0; components > 0 && y < 20; ++y) {
        const bool hole = y >= 4 && y < 8;
        Plain row;
        for (int x = 0; x < 40; ++x) {
            for (int c = 0; c < components && !(hole && x >= 8 && x < 12); ++c)
                row.value(valueAt(0, index, c, x, y));
        }
        if (hole) row.number(8).number(4);
        channel.number(y).number(hole ? 1 : 0).text(row.raw());
    }
    return channel.raw();
}

TEST(Hash, IsWhatTheFormatsPageDefines) {
    Written frame = holed();
    frame.metadata = [](RIFile& file) {
        expectOk(file.WTNote("take 3"));
        char settings[] = "set";
        expectOk(file.WTMirtSettings(settings, 3));
        RISceneInfo scene(5, "room");
        expectOk(file.WTSceneInfo(scene));
    };
    Plain plain;
    for (const int number : {1, 40, 24, 0, 0, 40, 24, 0x3F800000, 3})
        plain.number(number);
    plain.text(plainChannel(0, 2, 126, "color", 3))
        .text(plainChannel(1, 4, 0, "id", 1))
        .text(plainChannel(2, 0, 7, "none", 0));
    HashOptions options;
    const HashReport report = hashOf(frame, options);
    EXPECT_EQ(report.hash, plain.text());
    EXPECT_EQ(report.state, FileState::kIncomplete);
    options.metadata = true;
    plain.number(267).number(8, 8).number(5).text("room");
    plain.number(269).number(6, 8).text("take 3").number(273).number(3, 8).text("set");
    EXPECT_EQ(hashOf(frame, options).hash, plain.text());
}

TEST(Hash, CountsLongTexts) {
    std::string hashes[2];
    for (const char last : {'a', 'b'}) {
        MemoryFile file;
        Bytes bytes;
        bytes.fileHeader(0).tag(TAG_RESOLUTION, 0, {3, 1});
        bytes.tag(TAG_STAMP_TEXT, 1 << 21).text(std::string((1 << 21) - 2, 't') + last).zeros(1);
        file.fill(bytes);
        HashOptions options;
        options.metadata = true;
        hashes[last - 'a'] = hashFile(file.path(), options).hash;
        EXPECT_EQ(hashes[last - 'a'].size(), 32u);
    }
    EXPECT_NE(hashes[0], hashes[1]);
}

std::vector<RawBox> tiles(int width, int height) {
    std::vector<RawBox> boxes;
    for (int y = 0; y < 24; y += height) {
        for (int x = 0; x < 40; x += width)
            boxes.push_back({x, y, width, height});
    }
    return boxes;
}

TEST(Hash, DoesNotDependOnHowTheFrameIsStored) {
    const std::string expected = hashOf({}).hash;
    ASSERT_EQ(expected.size(), 32u);
    for (const auto& [width, height] : {std::pair(7, 5), {16, 16}, {1, 24}, {40, 1}}) {
        Written frame;
        frame.tile = width;
        frame.boxes = tiles(width, height);
        EXPECT_EQ(hashOf(frame).hash, expected) << width;
        std::reverse(frame.boxes.begin(), frame.boxes.end());
        // Values that later buckets cover, and a bucket outside.
        frame.boxes.insert(frame.boxes.begin(), {3, 2, 30, 20, 500});
        frame.boxes.push_back({40, 0, 8, 8});
        HashOptions options;
        options.threads = 3;
        EXPECT_EQ(hashOf(frame, options).hash, expected) << width << " reversed";
    }
    MemoryFile file;
    Written().write(file.path());
    // Each channel's payload compressed another way.
    const Contents bytes = file.bytes();
    Bytes recompressed;
    for (const std::string& tag : tagsOf(opened(bytes))) {
        if (recompressed.empty()) recompressed.raw(bytes.data(), 32);
        if (!isPixelTag(idOf(tag))) {
            recompressed.raw(tag.data(), tag.size());
            continue;
        }
        RIF_TAG header = decodeTag(reinterpret_cast<const unsigned char*>(tag.data()));
        std::string values(static_cast<std::size_t>(pixelBytes(header)), 0);
        auto size = static_cast<uLongf>(values.size());
        ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(values.data()), &size,
                             reinterpret_cast<const Bytef*>(tag.data()) + 40,
                             static_cast<uLong>(header.payloadBytes())),
                  Z_OK);
        const std::string payload = zipped(values, 1);
        header.size = static_cast<std::uint32_t>(40 + payload.size());
        unsigned char head[40];
        encodeTag(header, head);
        recompressed.raw(head, 40).raw(payload.data(), payload.size());
    }
    file.fill(closed(recompressed));
    EXPECT_EQ(hashFile(file.path(), {}).hash, expected);
}

TEST(Hash, OfMergedPiecesIsThatOfTheWhole) {
    HashOptions options;
    options.metadata = true;
    Written whole;
    const std::string expected = hashOf(whole, options).hash;
    std::vector<std::string> names;
    MemoryFile pieces[4], merged;
    std::vector<std::string> ofPieces;
    for (int i = 0; i < 4; ++i) {
        Written piece;
        piece.boxes = {{i % 2 * 20, i / 2 * 12, 20, 12}};
        const RawBox box = piece.boxes[0];
        piece.metadata = [box](RIFile& file) {
            expectOk(file.WTRenderRegion({4, box.x, box.y, box.width, box.height}));
        };
        piece.write(pieces[i].path());
        names.emplace_back(pieces[i].path());
        const HashReport report = hashFile(pieces[i].path(), options);
        EXPECT_EQ(report.state, FileState::kGood);
        EXPECT_NE(report.hash, expected);
    }
    ASSERT_EQ(mergeFiles(names, merged.path(), {}).state, MergeState::kGood);
    EXPECT_EQ(hashFile(merged.path(), options).hash, expected);
}

TEST(Hash, ShowsEveryDifference) {
    const auto withNote = [](RIFile& file) { expectOk(file.WTNote("note")); };
    const struct {
        const char* what;
        std::function<void(Written&)> change;
        bool metadata = false;
        bool same = false;
    } cases[] = {
        {"a value",
         [](Written& f) {
             f.values = [](int c, int x, int y) { return valueAt(0, 0, c, x, y == 23 && x == 39 ? 9 : y); };
         }},
        {"the sign of a zero",
         [](Written& f) {
             f.values = [](int c, int x, int y) { return x + y + c == 0 ? -0.0f : valueAt(0, 0, c, x, y); };
         }},
        {"width", [](Written& f) { f.width = 39; }},
        {"height", [](Written& f) { f.height = 25; }},
        {"aspect",
         [](Written& f) { f.metadata = [](RIFile& file) { expectOk(file.WTResolution(40, 24, 2)); }; }},
        {"alias", [](Written& f) { f.channels[0].alias = 1; }},
        {"name", [](Written& f) { f.channels[0].name = "colour"; }},
        {"type", [](Written& f) { f.channels[0].type = 5; }},
        {"one channel less", [](Written& f) { f.channels.pop_back(); }},
        {"a missing pixel",
         [](Written& f) {
             f.boxes = {{0, 0, 40, 23}, {0, 23, 39, 1}};
         }},
        {"region",
         [](Written& f) {
             f.metadata = [](RIFile& file) { expectOk(file.WTRenderRegion({4, 0, 0, 39, 24})); };
         }},
        {"note", [&](Written& f) { f.metadata = withNote; }, true},
        {"note, without metadata", [&](Written& f) { f.metadata = withNote; }, false, true},
        {"flags", [](Written& f) { f.channels[0].flags = 4; }, true, true},
        {"unfinished", [](Written& f) { f.closed = false; }, false, true},
    };
    Written plain;
    plain.values = [](int c, int x, int y) { return valueAt(0, 0, c, x, y); };
    for (const auto& c : cases) {
        HashOptions options;
        options.metadata = c.metadata;
        Written changed = plain;
        c.change(changed);
        const std::string hash = hashOf(changed, options).hash;
        EXPECT_EQ(hash.size(), 32u) << c.what;
        EXPECT_EQ(hash == hashOf(plain, options).hash, c.same) << c.what;
    }
}

TEST(Hash, OfChosenChannels) {
    HashOptions options;
    const HashReport all = hashOf({});
    options.channels = {"c*", "id"};
    const HashReport chosen = hashOf({}, options);
    ASSERT_EQ(chosen.channels.size(), 2u);
    EXPECT_EQ(chosen.channels[1].channel.name, "id");
    EXPECT_EQ(chosen.channels[1].hash, all.channels[2].hash);
    EXPECT_NE(chosen.hash, all.hash);
    options.channels.emplace_back("depth");
    EXPECT_EQ(hashOf({}, options).unmatched, "depth");
}

// No byte of a payload or of a tag's header can be wrong without the hash being another one, or none.
TEST(Hash, OfDamagedFilesIsNone) {
    MemoryFile file;
    holed().write(file.path());
    const Contents bytes = file.bytes();
    const std::string sound = hashFile(file.path(), {}).hash;
    int without = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        Contents damaged = bytes;
        damaged[at] ^= 0x10;
        file.fill(damaged);
        const HashReport report = hashFile(file.path(), {});
        EXPECT_EQ(report.hash.empty(), report.state != FileState::kIncomplete)
            << at << ' ' << stateName(report.state);
        EXPECT_FALSE(report.hash.empty() && report.cause.empty()) << at;
        without += report.hash.empty() ? 1 : 0;
    }
    EXPECT_GT(without, 500);
    file.fill(Contents());
    EXPECT_EQ(hashFile(file.path(), {}).state, FileState::kNotThisFormat);
    EXPECT_EQ(hashFile("/no/such/file", {}).state, FileState::kCannotOpen);
    file.fill(bytes);
    HashOptions stopping;
    stopping.progress = [](std::int64_t, std::int64_t total) { return total == 0; };
    const HashReport stopped = hashFile(file.path(), stopping);
    EXPECT_TRUE(stopped.stopped);
    EXPECT_EQ(stopped.hash, "");
}

}  // namespace
