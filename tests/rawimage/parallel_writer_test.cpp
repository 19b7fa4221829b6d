#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "rawimage/output_queue.h"
#include "rawimage/writer.h"
#include "support/job_queue.h"
#include "tests/testing/sample_file.h"

namespace {

using namespace testing_tools;
using MUtils::Compression;

constexpr RegionChannelType kTypes[] = {RCT_COLOR,  RCT_FLOAT,  RCT_FLOAT2, RCT_INT,
                                        RCT_VECTOR, RCT_FLOAT4, RCT_COLOR,  RCT_FLOAT};

// Regions of several sizes, some channels in one block and some in many; `badChannel` has too few values in
// the last.
struct Frame {
    explicit Frame(int badChannel) {
        std::mt19937 random(5);
        for (const int side : {7, 40, 1, 64, 33}) {
            auto region = std::make_unique<MRRegionData>();
            region->width = region->height = region->x1 = region->y1 = side;
            for (const RegionChannelType type : kTypes) {
                const int size = MUtils::findChannelKind(type)->valueSize;
                const bool bad = side == 33 && region->channels.Count() == badChannel;
                tables.push_back(std::make_unique<MBVTable>(size, type == RCT_COLOR ? 256 : 1 << 20));
                MBVTable& table = *tables.back();
                table.initNotResizable(bad ? 3 : side * side, size, table.blockBytes);
                for (int i = 0; i < table.count; ++i) {
                    for (int c = 0; c < size; ++c)
                        table.item(i)[c] = static_cast<unsigned char>(random() % 7);
                }
                region->channels.Add({type, "c", RCA_NONE, &table, 0});
            }
            regions.push_back(std::move(region));
        }
    }

    std::vector<std::unique_ptr<MBVTable>> tables;
    std::vector<std::unique_ptr<MRRegionData>> regions;
};

struct Written {
    std::vector<unsigned char> bytes;
    std::string error;
    bool operator==(const Written& other) const { return bytes == other.bytes && error == other.error; }
};

struct Setting {
    Compression compression;
    int level;

    void applyTo(RIFile& file) const {
        file.setCompression(compression);
        file.setCompressionLevel(level);
    }
};

Written write(const Frame& frame, int threads, const Setting& setting, ThreadManager* manager) {
    FaultStream stream;
    stream.Open();
    RIFile file;
    file.setCompressionThreads(manager, threads);
    setting.applyTo(file);
    EXPECT_TRUE(file.Create(nullptr, &stream).empty());
    EXPECT_TRUE(file.WriteHeader(0).empty());
    Written written;
    for (const auto& region : frame.regions) {
        const ErrorCode error = file.WTRegion(region.get(), 0, 1, 2);
        written.error += error.describe();
        if (error) break;
    }
    if (written.error.empty()) written.error = file.Close().describe();
    written.bytes = stream.bytes();
    return written;
}

// Of an error, what the file itself has given.
Written writeQueued(const Frame& frame, int threads, const Setting& setting, std::int64_t maxPending) {
    FaultStream stream;
    stream.Open();
    RIFile file;
    file.setCompressionThreads(nullptr, threads);
    setting.applyTo(file);
    OutputQueue queue(file);
    queue.setMaxPending(maxPending);
    EXPECT_TRUE(queue.Create(nullptr, &stream).empty());
    EXPECT_TRUE(queue.WriteHeader(0).empty());
    for (const auto& region : frame.regions) {
        if (queue.WTRegion(region.get(), 0, 1, 2)) break;
    }
    Written written;
    const ErrorCode error = queue.Close();
    if (error) written.error = error.cause()->describe();
    written.bytes = stream.bytes();
    return written;
}

class ParallelWriter : public testing::TestWithParam<int> {};

TEST_P(ParallelWriter, WritesTheSameFileAsOneThread) {
    ThreadManager manager;
    constexpr Setting kSettings[] = {{Compression::kSmall, 1},
                                     {Compression::kSmall, 9},
                                     {Compression::kBalanced, 9},
                                     {Compression::kFast, 9}};
    for (const Setting& setting : kSettings) {
        for (const int badChannel : {-1, 0, 3, 7}) {
            const Frame frame(badChannel);
            SCOPED_TRACE(MUtils::compressorName(setting.compression) + ", bad " + std::to_string(badChannel));
            const Written one = write(frame, 1, setting, nullptr);
            EXPECT_EQ(one.error.empty(), badChannel < 0);
            for (ThreadManager* each : {&manager, static_cast<ThreadManager*>(nullptr)})
                EXPECT_TRUE(write(frame, GetParam(), setting, each) == one);
            for (const std::int64_t maxPending : {0, 100000, 1 << 28})
                EXPECT_TRUE(writeQueued(frame, GetParam(), setting, maxPending) == one) << maxPending;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, ParallelWriter, testing::Values(0, 1, 2, 3, 8));

// A host's stream may throw. Nobody reads the region any more when that has left WTRegion.
TEST(ParallelWriter, LeavesTheRegionAloneWhenTheStreamThrows) {
    struct Throwing : PMemStream {
        int Write(const void* data, int size, int& written) override {
            if (Tell() >= MUtils::kFileHeaderBytes) throw std::runtime_error("host");
            return PMemStream::Write(data, size, written);
        }
    } stream;
    stream.Open();
    RIFile file;
    file.setCompressionThreads(nullptr, 4);
    EXPECT_TRUE(file.Create(nullptr, &stream).empty());
    EXPECT_TRUE(file.WriteHeader(0).empty());
    for (int i = 0; i < 4; ++i) {
        const Frame frame(-1);
        EXPECT_THROW((void)file.WTRegion(frame.regions[3].get(), 0, 1, 2), std::runtime_error);
    }
}

TEST(Compression, ChangesOnlyTheSizeOfTheFile) {
    const Frame frame(-1);
    const auto written = [&frame](Compression compression, int level) {
        return write(frame, 1, {compression, level}, nullptr);
    };
    const Written small = written(Compression::kSmall, 9);
    const Written level1 = written(Compression::kSmall, 1);
    EXPECT_GT(level1.bytes.size(), small.bytes.size());
    EXPECT_TRUE(written(Compression::kSmall, 99) == small);
    EXPECT_TRUE(written(Compression::kSmall, -4) == level1);
    const Written balanced = written(Compression::kBalanced, 9);
    const Written fast = written(Compression::kFast, 9);
    EXPECT_TRUE(written(Compression::kFast, 3) == fast);
    Reading reference(small.bytes);
    EXPECT_EQ(reference.parse(), 0);
    for (const Written* other : {&level1, &balanced, &fast}) {
        EXPECT_FALSE(*other == small);
        Reading reading(other->bytes);
        EXPECT_EQ(reading.parse(), 0);
        EXPECT_EQ(reading.seen.events, reference.seen.events);
    }
}

}  // namespace
