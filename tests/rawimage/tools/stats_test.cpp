#include "rawimage/tools/stats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <set>

#include "rawimage/tools/frame_rows.h"
#include "rawimage/tools/id_set.h"
#include "tests/testing/check.h"
#include "tests/testing/memory_file.h"
#include "tests/testing/raw_frame.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

using Written = testing_tools::RawFrame;

constexpr float kInf = std::numeric_limits<float>::infinity();

StatsReport statsOf(const Written& frame, int threads = 1) {
    MemoryFile file;
    frame.write(file.path());
    FrameToolOptions options;
    options.threads = threads;
    return statsOfFile(file.path(), options);
}

// Large values close to each other, which a sum of squares would lose, and some of each other kind.
float special(int component, int x, int y) {
    if (component == 1) {
        if (y == 7 && x == 30) return NAN;
        if (y > 7 && x % 9 == 0) return kInf;
        if (y == 5 && x == 2) return -kInf;
        if (y == 6 && x > 20) return -1.5f;
        if (y == 20) return x % 2 == 0 ? 0.0f : -0.0f;
    }
    return component == 2 ? 0.0f : 1e6f + static_cast<float>((x * 7 + y * 13) % 64) / 8;
}

TEST(Stats, CountsAndSumsUpEveryPixelOnce) {
    Written frame;
    frame.values = special;
    frame.boxes = {{0, 0, 40, 10}, {5, 5, 30, 8}, {0, 10, 17, 14}, {23, 10, 17, 14}, {38, 2, 9, 9}};
    const StatsReport report = statsOf(frame);
    EXPECT_EQ(report.state, FileState::kIncomplete);
    ASSERT_EQ(report.channels.size(), 3u);
    const ChannelStatistics& colour = report.channels[0];
    ASSERT_EQ(colour.components.size(), 3u);
    // What the boxes cover of the frame.
    std::set<std::pair<int, int>> pixels;
    for (const RawBox& box : frame.boxes) {
        for (int i = 0; i < box.width * box.height; ++i) {
            const int x = box.x + i % box.width, y = box.y + i / box.width;
            if (x < 40 && y < 24) pixels.insert({y, x});
        }
    }
    EXPECT_EQ(colour.pixels, static_cast<std::int64_t>(pixels.size()));
    for (int c = 0; c < 3; ++c) {
        SCOPED_TRACE(c);
        long double sum = 0, squares = 0, number = 0;
        double least = HUGE_VAL, most = -HUGE_VAL;
        std::map<std::string, std::int64_t> counts;
        std::map<std::string, std::pair<int, int>> first;
        const auto add = [&](const char* kind, const std::pair<int, int>& pixel) {
            if (counts[kind]++ == 0) first[kind] = pixel;
        };
        for (const auto& pixel : pixels) {
            const float value = special(c, pixel.second, pixel.first);
            if (value < 0) add("negative", pixel);
            if (value == 0) add("zero", pixel);
            if (std::isnan(value)) add("nan", pixel);
            if (std::isinf(value)) add(value > 0 ? "+inf" : "-inf", pixel);
            if (!std::isfinite(value)) continue;
            sum += value;
            ++number;
            least = std::min(least, static_cast<double>(value));
            most = std::max(most, static_cast<double>(value));
        }
        for (const auto& pixel : pixels) {
            const float value = special(c, pixel.second, pixel.first);
            if (std::isfinite(value)) squares += (value - sum / number) * (value - sum / number);
        }
        const ValueStats& found = colour.components[static_cast<std::size_t>(c)];
        EXPECT_EQ(found.finite, static_cast<std::int64_t>(number));
        EXPECT_EQ(found.min, least);
        EXPECT_EQ(found.max, most);
        EXPECT_NEAR(found.mean, static_cast<double>(sum / number), 1e-9 * std::fabs(found.mean));
        const auto deviation = static_cast<double>(std::sqrt(squares / number));
        EXPECT_NEAR(found.deviation, deviation, 1e-9 * deviation);
        EXPECT_EQ(found.zero, counts["zero"]);
        for (const auto& [kind, value] : {std::pair("nan", found.nan),
                                          {"+inf", found.plusInf},
                                          {"-inf", found.minusInf},
                                          {"negative", found.negative}}) {
            EXPECT_EQ(value.count, counts[kind]) << kind;
            if (value.count == 0) continue;
            EXPECT_EQ(first[kind], std::pair(static_cast<int>(value.y), static_cast<int>(value.x))) << kind;
        }
    }
}

TEST(Stats, DoNotDependOnBucketsAndThreads) {
    Written frame;
    frame.values = special;
    const StatsReport expected = statsOf(frame);
    frame.boxes.clear();
    for (int y = 20; y >= 0; y -= 4) {
        for (int x = 35; x >= 0; x -= 5)
            frame.boxes.push_back({x, y, 5, 4});
    }
    for (const int threads : {1, 3}) {
        const StatsReport found = statsOf(frame, threads);
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t c = 0; c < expected.channels[i].components.size(); ++c) {
                EXPECT_EQ(found.channels[i].components[c].mean, expected.channels[i].components[c].mean);
                EXPECT_EQ(found.channels[i].components[c].deviation,
                          expected.channels[i].components[c].deviation);
            }
        }
    }
}

TEST(Stats, CountDistinctIds) {
    Written frame;
    frame.channels = {{4, 0, "id"}, {4, 0, "other"}, {1, 0, "float"}};
    // Bits of floats as integers: some below zero, 0 among them.
    frame.values = [](int, int x, int y) { return (y % 2 == 0 ? -1.0f : 1.0f) * static_cast<float>(x % 11); };
    const StatsReport report = statsOf(frame, 2);
    ASSERT_TRUE(report.channels[0].ids && report.channels[1].ids && !report.channels[2].ids);
    EXPECT_EQ(report.channels[1].ids->count, 22);
    EXPECT_EQ(report.channels[0].components[0].min, std::numeric_limits<std::int32_t>::min());
    IdSet few(1000);
    for (int round = 0; round < 2; ++round) {
        for (int i = -500; i < 500; ++i)
            few.insert(i * 65536);
    }
    EXPECT_EQ(few.size(), 1000u);
    EXPECT_FALSE(few.overflowed());
    few.insert(1);
    EXPECT_TRUE(few.overflowed());
    EXPECT_EQ(few.size(), 1000u);
}

TEST(Stats, LeaveOutDamagedPixels) {
    MemoryFile file;
    Written frame;
    frame.boxes = {{0, 0, 40, 12}, {0, 12, 40, 12}};
    frame.write(file.path());
    Contents bytes = file.bytes();
    const auto found = inspected(bytes);
    const INFOTAG* damaged = nullptr;
    for (const INFOTAG& tag : found.tags) {
        if (isPixelTag(tag.id) && tag.p8 == 0 && tag.p3 == 12) damaged = &tag;
    }
    ASSERT_NE(damaged, nullptr);
    bytes[damaged->offset + 60] ^= 0x55;
    file.fill(bytes);
    const StatsReport report = statsOfFile(file.path(), {});
    EXPECT_EQ(report.state, FileState::kDamaged);
    ASSERT_EQ(report.damaged.size(), 1u);
    EXPECT_EQ(report.causeOffset, static_cast<std::int64_t>(damaged->offset));
    EXPECT_EQ(report.channels[0].pixels, 480);
    EXPECT_EQ(report.channels[1].pixels, 960);
}

// Keeps the rows of all channels as text.
class Keeping final : public RowSink {
  public:
    void begin(std::size_t, std::size_t) override {}
    void take(std::size_t channel, std::size_t, const FrameRow& row) override {
        std::string text;
        for (const RowRun& run : row.runs) {
            text += std::to_string(run.x0) + ':';
            text.append(reinterpret_cast<const char*>(row.at(run.x0)),
                        static_cast<std::size_t>((run.x1 - run.x0) * row.valueBytes));
        }
        EXPECT_TRUE(rows.emplace(std::pair(channel, row.y), text).second) << "comes twice";
    }
    void end(std::size_t) override {}
    void finish(std::size_t) override {}

    std::map<std::pair<std::size_t, std::int64_t>, std::string> rows;
};

TEST(FrameRows, AreTheSameInBandsOfAnySize) {
    Written written;
    written.boxes = {{0, 0, 16, 9}, {16, 0, 20, 5}, {16, 5, 24, 9}, {2, 16, 30, 4, 7}, {8, 18, 4, 4, 90}};
    MemoryFile file;
    written.write(file.path());
    const MUtils::RawFrame frame(file.path());
    const std::vector<FrameChannel> channels = frame.info()->channels;
    std::map<std::pair<std::size_t, std::int64_t>, std::string> expected;
    for (const std::int64_t bytes : {8 << 20, 20000, 4000, 1100, 60}) {
        FrameRowsOptions options;
        options.threads = 1;
        options.bandBytes = bytes;
        FrameRows rows(frame, frame.info()->area, channels, options);
        Keeping kept;
        ASSERT_TRUE(rows.read(kept)) << rows.refused;
        if (expected.empty()) expected = kept.rows;
        EXPECT_EQ(kept.rows.size(), 3u * 20);
        EXPECT_TRUE(kept.rows == expected) << bytes;
    }
    FrameRowsOptions tooSmall;
    tooSmall.bandBytes = 9;
    FrameRows rows(frame, frame.info()->area, channels, tooSmall);
    Keeping kept;
    EXPECT_FALSE(rows.read(kept));
    EXPECT_THAT(rows.refused, testing::HasSubstr("channel 0 are too large"));
}

// Frames of absurd sizes end soon: with a result when the pixels are few, or with a reason.
TEST(FrameRows, OfHostileSizesEndSoon) {
    constexpr int kMost = std::numeric_limits<int>::max();
    for (const auto& [width, height, refused] :
         {std::tuple(40, kMost, false), {1 << 20, kMost, false}, {kMost, 24, true}, {kMost, kMost, true}}) {
        Written frame;
        frame.width = width;
        frame.height = height;
        frame.boxes = {{0, 0, 16, 16}, {8, height - 8, 8, 8}};
        const StatsReport report = statsOf(frame);
        EXPECT_EQ(!report.refused.empty(), refused) << width << ' ' << height;
        EXPECT_EQ(report.channels.size(), refused ? 0u : 3u);
        for (const ChannelStatistics& channel : report.channels)
            EXPECT_EQ(channel.pixels, 16 * 16 + 64);
    }
}

}  // namespace
