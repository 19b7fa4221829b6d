#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <fstream>
#include <random>
#include <set>

#include "support/bytes.h"
#include "tests/testing/bytes.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/read_png.h"
#include "tests/testing/run_program.h"
#include "tests/testing/sanitized.h"

namespace {

using namespace MUtils;
using namespace testing_tools;
using testing::HasSubstr;

// What a channel holds at (x, y).
using Values = std::function<std::vector<float>(int x, int y)>;

float floatOf(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

Bytes channelList(int type, int alias, const std::string& name) {
    Bytes bytes = Bytes().tag(TAG_CHANNEL_INFO, kChannelRecordBytes, {1, kChannelRecordBytes});
    return bytes.i32s({0, type, alias, 0}).text(name).zeros(kChannelRecordBytes - 16 - name.size());
}

class RimgPreview : public testing::Test {
  protected:
    // A frame of 16 x 8 pixels with one channel.
    void write(int type, int alias, const char* name, const Values& values) {
        RawFrame frame;
        frame.width = kWidth;
        frame.height = kHeight;
        frame.channels = {{type, alias, name}};
        frame.boxes = {{0, 0, kWidth, kHeight}};
        frame.values = [&values](int component, int x, int y) {
            return values(x, y)[static_cast<std::size_t>(component)];
        };
        frame.write(file_);
    }
    ProgramResult run(std::vector<std::string> options) {
        options.insert(options.begin(), {"preview", file_, "-o", output_});
        return runProgram(RIMG_PROGRAM, options);
    }
    Png picture(const std::vector<std::string>& options = {}) {
        const ProgramResult result = run(options);
        EXPECT_EQ(result.status, 0) << result.err;
        Png png = readPng(output_);
        EXPECT_EQ(png.pixels.size(), std::size_t{kWidth * kHeight});
        return png;
    }
    static std::string hex(RGB24 p) {
        char text[7];
        std::snprintf(text, sizeof text, "%02x%02x%02x", p.r, p.g, p.b);
        return text;
    }

    static constexpr int kWidth = 16;
    static constexpr int kHeight = 8;
    TempFolder folder_;
    const std::string file_ = folder_ / "frame.rimg";
    const std::string output_ = folder_ / "p.png";
};

TEST_F(RimgPreview, RefusesOutputsThatNameAnotherFormat) {
    write(RCT_COLOR, RCA_COLOR, "color", [](int, int) { return std::vector<float>{1, 0, 0}; });
    const struct {
        const char* name;
        int status;
    } cases[] = {
        {"a.jpg", 2},  {"a.JPEG", 2}, {"a.b.Exr", 2},  {"a.tif", 2},  {"a.TIFF", 2},
        {"a.rimg", 2}, {"a.bmp", 2},  {"a.gif", 2},    {"a.webp", 2}, {"a", 0},
        {"a.png", 0},  {"a.PNG", 0},  {"frame.10", 0}, {".jpg", 0},   {"jpg", 0},
    };
    for (const auto& c : cases) {
        const std::string output = folder_ / c.name;
        const ProgramResult result = runProgram(RIMG_PROGRAM, {"preview", file_, "-o", output});
        EXPECT_EQ(result.status, c.status) << c.name << result.err;
        EXPECT_EQ(readPng(output).width, c.status == 0 ? kWidth : 0) << c.name;
        EXPECT_EQ(result.err.find("PNG") != std::string::npos, c.status == 2) << c.name;
    }
}

// A render that has only begun is not damaged.
TEST_F(RimgPreview, OfARenderWithNothingToDrawIsUnfinished) {
    const Bytes list = channelList(RCT_COLOR, RCA_COLOR, "color");
    const auto cut = [](Bytes bytes, std::size_t size) {
        bytes.resize(bytes.size() - size);
        return bytes;
    };
    const auto with = [](const Bytes& start, const Bytes& more) {
        Bytes bytes = start;
        return bytes.raw(more.data(), more.size());
    };
    const Bytes header = Bytes().fileHeader(0);
    const Bytes resolution = Bytes().tag(TAG_RESOLUTION, 0, {16, 8});
    const Bytes buckets = Bytes().tag(TAG_REGIONS_INFO, 0, {8, 8});
    Bytes finished = Bytes().fileHeader(72).tag(TAG_RESOLUTION, 0, {16, 8}).tag(TAG_INFO_TAGS, 48, {1});
    finished.tag(TAG_RESOLUTION, 0, {16, 8}).u64(32);
    const struct {
        const char* name;
        Bytes bytes;
        int status;
        const char* message;
    } cases[] = {
        {"header only", header, 3, "no resolution yet"},
        {"torn resolution", cut(with(header, resolution), 7), 3, "no resolution yet"},
        {"channels before the resolution", with(header, list), 3, "no resolution yet"},
        {"resolution only", with(header, resolution), 3, "no channel list yet"},
        {"buckets too", with(with(header, resolution), buckets), 3, "no channel list yet"},
        {"torn list", cut(with(with(header, resolution), list), 9), 3, "no channel list yet"},
        {"sizes of no picture", Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {0, -5}), 3, "resolution"},
        {"finished without a list", finished, 3, "channel list"},
        {"damaged", Bytes().fileHeader(0).i32s({TAG_CHANNEL_INFO, 3}).zeros(60), 4, ""},
        {"torn header", cut(header, 1), 5, ""},
    };
    for (const auto& c : cases) {
        writeFile(file_, {c.bytes.begin(), c.bytes.end()});
        writeFile(output_, "older");
        for (const auto& options : {std::vector<std::string>{}, {"--size", "8x8"}, {"--channel", "color"}}) {
            const ProgramResult result = run(options);
            EXPECT_EQ(result.status, c.status) << c.name << ": " << result.err;
            EXPECT_THAT(result.err, HasSubstr(c.message)) << c.name;
            EXPECT_EQ(result.errorLines(), 1) << result.err;
        }
        EXPECT_EQ(readFile(output_), "older") << c.name;
    }
}

// One damaged bucket costs its own pixels and no others.
TEST_F(RimgPreview, DrawsWhatIsSoundOfADamagedFile) {
    RawFrame frame;
    frame.width = kWidth, frame.height = kHeight, frame.tile = 4;
    frame.channels = {{RCT_COLOR, RCA_COLOR, "color"}, {RCT_FLOAT, 0, "fog"}};
    frame.boxes = {{0, 0, 4, 8}, {4, 0, 4, 8}, {8, 0, 8, 8}};
    frame.values = [](int, int, int) { return 1.0f; };
    frame.write(file_);
    const std::string sound = readFile(file_);
    // Each bucket's last tag is that of its first channel.
    std::vector<std::size_t> tags;
    const auto word = [&sound](std::size_t at) {
        return MUtils::loadU32(reinterpret_cast<const unsigned char*>(sound.data()) + at);
    };
    for (std::size_t at = 32; at < word(12); at += word(at + 4)) {
        if (word(at) == TAG_CHAN_FLOAT3) tags.push_back(at);
    }
    ASSERT_EQ(tags.size(), 3u);
    const struct {
        const char* what;
        std::size_t at;
        const char* message;
        const char* pixels;  // one of each bucket
        std::vector<std::string> options = {};
    } cases[] = {
        {"values", tags[1] + 50, "damaged bucket 4x8+4+0 of channel 0 color, offset ", "white back white"},
        {"values of another channel", tags[1] + 50, "", "white white white", {"--channel", "fog"}},
        {"a header that the table has", tags[0], "the picture shows what is there: ", "white white white"},
        {"table", sound.size() - 44, "the picture shows what is there: ", "white white white"},
    };
    for (const auto& c : cases) {
        std::string bytes = sound;
        bytes[c.at] = static_cast<char>(bytes[c.at] ^ 0x55);
        writeFile(file_, bytes);
        std::vector<std::string> options{"--background", "102030"};
        options.insert(options.end(), c.options.begin(), c.options.end());
        const ProgramResult result = run(options);
        EXPECT_EQ(result.status, *c.message != '\0' ? 4 : 0) << c.what;
        EXPECT_THAT(result.err, HasSubstr(c.message)) << c.what;
        EXPECT_LE(result.errorLines(), 1) << result.err;
        const Png png = readPng(output_);
        std::string pixels;
        for (const int x : {2, 6, 12})
            pixels +=
                std::string(pixels.empty() ? "" : " ") + (hex(png.at(x, 4)) == "102030" ? "back" : "white");
        EXPECT_EQ(pixels, c.pixels) << c.what;
    }
}

// A file that is being written shows the buckets that are in it.
TEST_F(RimgPreview, GrowsWithAFileThatIsBeingWritten) {
    RawFrame frame;
    frame.width = kWidth, frame.height = kHeight;
    frame.channels = {{RCT_COLOR, RCA_COLOR, "color"}};
    frame.boxes = {{0, 0, 8, 8}, {8, 0, 8, 8}};
    const auto pixels = [this](int status) {
        EXPECT_EQ(run({"--background", "102030"}).status, status);
        const Png png = readPng(output_);
        return hex(png.at(2, 4)) + ' ' + hex(png.at(12, 4));
    };
    std::string half;
    frame.values = [&](int component, int x, int y) {
        // The first bucket is written, the file open.
        if (component == 0 && x == 8 && y == 0) half = pixels(3);
        return 1.0f;
    };
    frame.write(file_);
    EXPECT_EQ(half, "ffffff 102030");
    EXPECT_EQ(pixels(0), "ffffff ffffff");
}

// Ids and their coverage: a background, two objects side by side and a border where they share pixels.
constexpr std::uint32_t kFirst = 0x91D2E3F4;
constexpr std::uint32_t kSecond = 0x7A123456;
std::vector<float> cryptoAt(int x, int y) {
    if (y < 2) return {0, 0, 0, 0};
    if (x == 8) return {floatOf(kFirst), 0.5f, floatOf(kSecond), 0.5f};
    return {floatOf(x < 8 ? kFirst : kSecond), 1, 0, 0};
}

TEST_F(RimgPreview, ShowsOneColourForEachId) {
    write(RCT_INT, RCA_NONE, "object",
          [](int x, int y) { return std::vector<float>{y < 2 ? 0.0f : floatOf(x < 8 ? kFirst : kSecond)}; });
    const Png integers = picture();
    ASSERT_EQ(hex(integers.at(3, 0)), "000000");
    const std::string first = hex(integers.at(3, 5)), second = hex(integers.at(12, 5));
    ASSERT_NE(first, second);
    const struct {
        int type;
        const char* name;
        int alias;
        Values values;
        std::vector<std::string> options;
        bool ids;
    } cases[] = {
        {RCT_FLOAT4, "Layer_CryptoObject00", 0, cryptoAt, {}, true},
        {RCT_FLOAT4, "matte", 0, cryptoAt, {}, true},
        {RCT_FLOAT4, "matte", RCA_COLOR, cryptoAt, {}, false},
        {RCT_FLOAT4, "matte", 0, cryptoAt, {"--as", "colour"}, false},
        {RCT_FLOAT4, "crypto", 0, cryptoAt, {"--as", "vector"}, false},
        {RCT_FLOAT4, "crypto", 0, cryptoAt, {"--as", "depth"}, false},
        {RCT_FLOAT4, "crypto", RCA_COLOR, cryptoAt, {"--as", "id"}, true},
        {RCT_FLOAT2, "crypto.00", 0, cryptoAt, {}, true},
        {RCT_FLOAT2, "motion", 0, cryptoAt, {}, false},
        {RCT_FLOAT2, "motion", 0, cryptoAt, {"--as", "id"}, true},
        {RCT_FLOAT, "id", 0, cryptoAt, {"--as", "id"}, true},
        {RCT_INT, "id", 0, cryptoAt, {"--as", "vector"}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name + (' ' + std::to_string(c.type)) + (c.options.empty() ? "" : c.options[1]));
        write(c.type, c.alias, c.name, c.values);
        const Png png = picture(c.options);
        EXPECT_EQ(hex(png.at(3, 5)) == first && hex(png.at(12, 5)) == second, c.ids);
        if (!c.ids) continue;
        EXPECT_EQ(hex(png.at(3, 0)), "000000");
        // Shared pixels are mixed by coverage where there is one.
        const RGB24 mixed = png.at(8, 5);
        if (c.type == RCT_FLOAT) {
            EXPECT_EQ(hex(mixed), first);
        } else {
            const RGB24 a = integers.at(3, 5);
            const RGB24 b = c.type == RCT_FLOAT4 ? integers.at(12, 5) : RGB24{0, 0, 0};
            EXPECT_NEAR(mixed.g, (a.g + b.g) / 2, 1);
            EXPECT_NEAR(mixed.b, (a.b + b.b) / 2, 1);
        }
    }
}

// What is not id-like stays a colour, whatever its size.
TEST_F(RimgPreview, TakesNoPicturesForIds) {
    const struct {
        const char* what;
        std::vector<float> value;
    } cases[] = {
        {"a colour", {0.25f, 0.5f, 0.75f, 1}},
        {"a dark one", {1e-9f, 0.5f, 0, 1}},
        {"a bright one", {1e9f, 1e9f, 1e9f, 1}},
        {"a position", {1e9f, 0.5f, -300, 7}},
    };
    for (const auto& c : cases) {
        write(RCT_FLOAT4, RCA_NONE, "layer", [&c](int, int) { return c.value; });
        const Png guessed = picture();
        EXPECT_EQ(hex(guessed.at(5, 5)), hex(picture({"--as", "colour"}).at(5, 5))) << c.what;
    }
    // Values that are no pairs still have a colour each.
    for (const float scale : {1.0f, 0.01f}) {
        write(RCT_FLOAT4, RCA_NONE, "layer", [scale](int x, int) {
            return std::vector<float>{scale, 0.5f, scale, scale * static_cast<float>(x)};
        });
        std::set<std::string> colours;
        for (const RGB24& p : picture({"--as", "id"}).pixels)
            colours.insert(hex(p));
        EXPECT_EQ(colours.size(), std::size_t{kWidth}) << scale;
    }
}

TEST_F(RimgPreview, LuminanceFollowsTheExposure) {
    const struct {
        const char* name;
        int alias;
        bool luminance;
    } cases[] = {
        {"Y", 0, true},           {"left.Luminance", 0, true},
        {"key.luma", 0, true},    {"main", RCA_COLOR, true},
        {"any", RCA_IMAGE, true}, {"fog", 0, false},
        {"normals.Y", 0, false},  {"Y", RCA_DEPTH, false},
    };
    for (const auto& c : cases) {
        write(RCT_FLOAT, c.alias, c.name,
              [](int x, int) { return std::vector<float>{x == 3 ? 0.25f : 0.5f}; });
        const std::string plain = hex(picture().at(3, 3));
        const std::string brighter = hex(picture({"--exposure", "1"}).at(3, 3));
        EXPECT_EQ(plain == "898989", c.luminance) << c.name << plain;
        EXPECT_EQ(brighter, c.luminance ? "bcbcbc" : plain) << c.name;
        EXPECT_EQ(hex(picture({"--as", "colour", "--exposure", "1"}).at(3, 3)), "bcbcbc") << c.name;
    }
}

TEST_F(RimgPreview, RefusesViewsThatItDoesNotKnow) {
    write(RCT_COLOR, RCA_COLOR, "color", [](int, int) { return std::vector<float>{1, 0, 0}; });
    for (const char* view : {"", "1", "normals", "Id"}) {
        const ProgramResult result = run({"--as", view});
        EXPECT_EQ(result.status, 2) << view;
        EXPECT_THAT(result.err, HasSubstr("id, colour, vector, depth")) << view;
    }
}

// A tag that is stored with another value size than its channel has is not drawn, and its values do not
// count.
TEST_F(RimgPreview, PassesTagsOfAnotherValueSizeOver) {
    const Bytes list = channelList(RCT_FLOAT2, RCA_NONE, "motion");
    Bytes bytes = Bytes().text("RIMG").i32s({1, 3}).zeros(20).tag(TAG_RESOLUTION, 0, {4, 4});
    bytes.raw(list.data(), list.size()).tag(TAG_CHAN_FLOAT, 64, {1, 0, 0, 4, 4});
    for (int i = 0; i < 16; ++i)
        bytes.f32(1000);
    bytes.tag(TAG_CHAN_FLOAT2, 64, {3, 0, 0, 4, 2});
    for (int i = 0; i < 8; ++i)
        bytes.f32(1).f32(-1);
    writeFile(file_, {bytes.begin(), bytes.end()});
    EXPECT_EQ(run({"--background", "102030"}).status, 4);
    const Png png = readPng(output_);
    EXPECT_EQ(hex(png.at(1, 0)), "ff0080");
    EXPECT_EQ(hex(png.at(1, 3)), "102030");
}

// One zlib stream of `size` bytes, zeros or noise, written as the payload of a frame with one tag.
void writeOneTag(const std::string& path, int type, int width, int height, bool noise) {
    const RIF_PIXEL_KIND* kind = findChannelKind(type);
    std::int64_t left = std::int64_t{width} * height * kind->valueSize;
    Bytes start = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {width, height});
    const Bytes list = channelList(type, RCA_NONE, "values");
    start.raw(list.data(), list.size());
    const std::size_t tagAt = start.size();
    start.tag(kind->tagId, 0, {type, 0, 0, width, height});
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(start.data()), static_cast<std::streamsize>(start.size()));

    std::mt19937 random(5);
    std::vector<std::uint32_t> values(1 << 18);
    std::vector<unsigned char> zipped(1 << 18);
    z_stream stream{};
    ASSERT_EQ(deflateInit(&stream, noise ? 0 : 1), Z_OK);
    for (int code = Z_OK; code != Z_STREAM_END;) {
        if (stream.avail_in == 0 && left > 0) {
            if (noise) std::generate(values.begin(), values.end(), random);
            stream.next_in = reinterpret_cast<Bytef*>(values.data());
            stream.avail_in = static_cast<uInt>(std::min<std::int64_t>(left, std::int64_t{1} << 20));
            left -= stream.avail_in;
        }
        stream.next_out = zipped.data();
        stream.avail_out = static_cast<uInt>(zipped.size());
        code = deflate(&stream, left > 0 ? Z_NO_FLUSH : Z_FINISH);
        out.write(reinterpret_cast<const char*>(zipped.data()),
                  static_cast<std::streamsize>(zipped.size() - stream.avail_out));
    }
    const auto size = static_cast<std::uint32_t>(stream.total_out + kTagHeaderBytes);
    deflateEnd(&stream);
    out.seekp(static_cast<std::streamoff>(tagAt) + 4);
    out.write(reinterpret_cast<const char*>(&size), 4);
}

// The values of one tag are in memory once, whatever their type, their compression and their shape.
TEST_F(RimgPreview, NeedsLittleMoreMemoryThanTheValuesOfATag) {
    constexpr int kSide = 4800;
    constexpr int kRow = kSide * kSide;
    const struct {
        const char* what;
        int type, width, height;
        bool noise;
    } cases[] = {
        {"ids", RCT_INT, kSide, kSide, false},           {"pairs", RCT_FLOAT2, kSide / 2, kSide, false},
        {"colours", RCT_COLOR, kSide / 2, kSide, false}, {"four floats", RCT_FLOAT4, kSide / 4, kSide, false},
        {"one row", RCT_FLOAT, kRow, 1, false},          {"one column", RCT_INT, 1, kRow, false},
        {"noise", RCT_FLOAT, kSide / 2, kSide, true},
    };
    for (const auto& c : cases) {
        writeOneTag(file_, c.type, c.width, c.height, c.noise);
        const ProgramCost cost = costOf(RIMG_PROGRAM, {"preview", file_, "-o", output_});
        const std::int64_t peak = cost.bytes >> 20;
        EXPECT_EQ(cost.status, 3) << c.what;
        const long raw = long{c.width} * c.height * findChannelKind(c.type)->valueSize >> 20;
        constexpr long kProgram = 24;
        EXPECT_TRUE(kSanitized || peak <= raw * 6 / 5 + kProgram) << c.what << ": " << peak << " for " << raw;
    }
}

}  // namespace
