#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>

#include "tests/testing/sample_file.h"

// Values that fill several blocks, which are inflated piece by piece, answer as those of one block do.

using namespace MUtils;
using namespace testing_tools;

namespace {

constexpr int kWidth = 3000;
constexpr int kHeight = 1000;
constexpr std::size_t kPayloadAt = kFileHeaderBytes + kTagHeaderBytes;

// Noise in part, so that payloads are long too.
std::vector<unsigned char> makeValues() {
    std::vector<unsigned char> values(std::size_t{kWidth} * kHeight * 12);
    std::mt19937 random(2);
    for (std::size_t i = 0; i + 4 <= values.size(); i += 4 + i % 64) {
        const auto word = static_cast<std::uint32_t>(random());
        std::memcpy(&values[i], &word, 4);
    }
    return values;
}

struct Frame {
    explicit Frame(const std::vector<unsigned char>& values) {
        uLongf size = compressBound(static_cast<uLong>(values.size()));
        std::vector<unsigned char> zipped(size);
        compress2(zipped.data(), &size, values.data(), static_cast<uLong>(values.size()), 1);
        bytes.fileHeader(0).tag(TAG_CHAN_FLOAT3, static_cast<std::uint32_t>(size),
                                {RCT_COLOR, 0, 0, kWidth, kHeight});
        bytes.raw(zipped.data(), size);
    }
    Bytes bytes;
};

struct Compare final : CollectCallback {
    explicit Compare(const std::vector<unsigned char>& expectedValues) : expected(expectedValues) {}
    bool setImageData(const MBVTable& data, int count, int, int, int, int, int, int, int) override {
        std::vector<unsigned char> stored(expected.size());
        same = count == kWidth * kHeight && data.storeToBuffer(stored.data(), 0, count) == count &&
               stored == expected;
        ++calls;
        return true;
    }
    const std::vector<unsigned char>& expected;
    bool same = false;
    int calls = 0;
};

TEST(InflatePixels, FillsSeveralBlocksAndReportsEveryDamage) {
    const std::vector<unsigned char> values = makeValues();
    const Frame sound(values);
    std::vector<unsigned char> shortValues(values.begin(), values.end() - 12);
    std::vector<unsigned char> longValues = values;
    longValues.resize(values.size() + 12);
    const auto flipped = [&sound](std::size_t fromEnd) {
        Bytes bytes = sound.bytes;
        bytes[bytes.size() - fromEnd] ^= 0x10;
        return bytes;
    };
    const auto resized = [&sound](std::size_t size, std::uint32_t claimed) {
        Bytes bytes = sound.bytes;
        bytes.resize(size);
        std::memcpy(&bytes[kFileHeaderBytes + 4], &claimed, 4);
        return bytes;
    };
    const std::size_t whole = sound.bytes.size();
    const auto claim = static_cast<std::uint32_t>(whole - kFileHeaderBytes);
    const struct {
        const char* what;
        Bytes bytes;
        int code;
    } cases[] = {
        {"sound", sound.bytes, 0},
        {"bytes after the stream", resized(whole + 400000, claim + 400000), 0},
        {"bytes after the stream are missing", resized(whole + 300000, claim + 400000), -13},
        {"one byte missing", resized(whole - 1, claim), -13},
        {"half of it missing", resized(whole / 2, claim), -13},
        {"stream cut", resized(whole - 1, claim - 1), -14},
        {"wrong checksum", flipped(1), -14},
        {"no stream", flipped(whole - kPayloadAt), -14},
        {"fewer values", Frame(shortValues).bytes, -15},
        {"more values", Frame(longValues).bytes, -14},
    };
    for (const auto& c : cases) {
        for (const bool lengthKnown : {true, false}) {
            Reading reading(c.bytes);
            if (!lengthKnown) reading.stream.hideLength();
            Compare seen(values);
            EXPECT_EQ(reading.file.ParseFile(seen), c.code) << c.what << lengthKnown;
            EXPECT_EQ(seen.calls, c.code == 0) << c.what;
            EXPECT_EQ(seen.same, c.code == 0) << c.what;
        }
    }
    // The stream fails in the middle, also behind what the inflater needed.
    for (const Bytes& bytes : {sound.bytes, flipped(whole - kPayloadAt)}) {
        Reading reading(bytes);
        reading.stream.failAt(Call::kRead, 10);
        Compare seen(values);
        EXPECT_EQ(reading.file.ParseFile(seen), -13);
    }
    // The table of one tag does not spoil the next one's.
    Bytes two = sound.bytes;
    two.raw(sound.bytes.data() + kFileHeaderBytes, whole - kFileHeaderBytes);
    Reading reading(two);
    Compare seen(values);
    EXPECT_EQ(reading.file.ParseFile(seen), 0);
    EXPECT_EQ(seen.calls, 2);
    EXPECT_TRUE(seen.same);
}

}  // namespace
