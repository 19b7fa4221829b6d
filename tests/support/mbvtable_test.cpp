#include "support/mbvtable.h"

#include <gtest/gtest.h>

#include <climits>
#include <numeric>

#include "tests/testing/fault_stream.h"

using namespace testing_tools;

namespace {

// `count` bytes 0, 1, 2 ...
std::vector<unsigned char> ramp(int count) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(count));
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    return bytes;
}

std::vector<unsigned char> values(const MBVTable& table, int start, int n) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(n * table.itemSize));
    bytes.resize(static_cast<std::size_t>(table.storeToBuffer(bytes.data(), start, n) * table.itemSize));
    return bytes;
}

// 40 values of 4 bytes in blocks of 16 values, with the bytes 0, 1, 2 ...
struct Filled : MBVTable {
    Filled() : MBVTable(4, 64) {
        setCount(40);
        loadFromBuffer(ramp(240).data(), 60);  // cut to the capacity of 48
    }
};

}  // namespace

TEST(MBVTable, GeometryIsMaximumThenRounding) {
    const struct {
        int itemSize, wanted, blockBytes, itemsPerBlock;
    } cases[] = {{12, 100, 96, 8},  {4, 10, 64, 16},
                 {12, 10, 60, 5},   {100, 10, 100, 1},
                 {1, 65, 65, 65},   {65, 64, 65, 1},
                 {64, -5, 64, 1},   {0, 100, 100, 0},
                 {-3, 100, 100, 0}, {1, INT_MAX, INT_MAX, INT_MAX}};
    for (const auto& c : cases) {
        const MBVTable table(c.itemSize, c.wanted);
        EXPECT_EQ(table.blockBytes, c.blockBytes) << c.itemSize << ", " << c.wanted;
        EXPECT_EQ(table.itemsPerBlock, c.itemsPerBlock) << c.itemSize << ", " << c.wanted;
        EXPECT_EQ(table.numBlocks + table.count + table.capacity + table.blockArrayCapacity, 0);
    }
}

TEST(MBVTable, SetCountGrowsByBlocksAndNeverShrinks) {
    MBVTable table(4, 64);
    const struct {
        int n, count, capacity;
    } steps[] = {{0, 0, 0},   {-1, 0, 0},   {1, 1, 16},   {16, 16, 16},     {17, 17, 32},
                 {3, 17, 32}, {30, 30, 32}, {33, 33, 48}, {INT_MIN, 33, 48}};
    for (const auto& step : steps) {
        table.setCount(step.n);
        EXPECT_EQ(table.count, step.count) << step.n;
        EXPECT_EQ(table.capacity, step.capacity) << step.n;
        EXPECT_EQ(table.numBlocks * 16, step.capacity) << step.n;
    }
}

TEST(MBVTable, PointerArrayGrowsBeyondAMultiple) {
    const struct {
        int firstStep, first, step, blocks, slots;
    } cases[] = {{100, 0, 100, 1, 100},   {100, 0, 100, 100, 100}, {100, 0, 100, 101, 200},
                 {99, 99, 100, 100, 200}, {1, 0, 1, 1, 2},         {0, 0, 0, 3, 4},
                 {0, 0, 0, 5, 8},         {3, 2, 3, 4, 6}};
    for (const auto& c : cases) {
        MBVTable table(64, 64);
        table.blockGrowStep = c.firstStep;
        table.setCount(c.first);
        table.blockGrowStep = c.step;
        table.setCount(c.blocks);
        EXPECT_EQ(table.blockArrayCapacity, c.slots) << c.step << ", " << c.blocks;
    }
}

TEST(MBVTable, InitNotResizableKeepsBlocksWithinAFactorOfFour) {
    const struct {
        int count, itemSize, blockBytes;
        bool kept;  // of 100 values of 4 bytes in two blocks of 256 bytes
        int countAfter, blockBytesAfter, numBlocksAfter;
    } cases[] = {{100, 4, 256, true, 100, 256, 2},    {50, 4, 1024, true, 100, 256, 2},
                 {300, 4, 1024, true, 300, 256, 5},   {300, 4, 64, true, 300, 256, 5},
                 {16, 4, INT_MAX, true, 100, 256, 2}, {300, 4, 63, false, 300, 64, 19},
                 {300, 4, 1028, false, 300, 1028, 2}, {15, 4, 256, false, 15, 64, 1},
                 {100, 8, 256, false, 100, 256, 4},   {0, 4, 256, false, 0, 64, 0},
                 {-1, 4, 256, false, 0, 64, 0},       {100, 0, 256, false, 0, 64, 0},
                 {100, 4, -1, false, 100, 64, 7}};
    for (const auto& c : cases) {
        MBVTable table(1, 0x2000000);
        table.initNotResizable(100, 4, 256);
        const unsigned char* before = table.blocks[0];
        table.initNotResizable(c.count, c.itemSize, c.blockBytes);
        SCOPED_TRACE(testing::Message() << c.count << " x " << c.itemSize << " in " << c.blockBytes);
        EXPECT_EQ(table.count, c.countAfter);
        EXPECT_EQ(table.blockBytes, c.blockBytesAfter);
        EXPECT_EQ(table.numBlocks, c.numBlocksAfter);
        EXPECT_EQ(table.capacity, table.numBlocks * table.itemsPerBlock);
        EXPECT_TRUE(!c.kept || table.blocks[0] == before);
    }
}

// Their blocks stay untouched, save for the values that are looked at.
TEST(MBVTable, HoldsAsManyValuesAsItCanCount) {
    constexpr int kPixels = 180'000'000, kBlock = 0x2000000, kInBlock = kBlock / 12;
    constexpr int kBlocks = (kPixels - 1) / kInBlock + 1;
    MBVTable fresh(1, 64), reused(1, 64), grown(12, kBlock), bytes(1, 1'000'000'007), odd(1, INT_MAX - 1);
    fresh.initNotResizable(kPixels, 12, kBlock);
    reused.initReusing(kPixels, 12, kBlock);
    grown.setCount(kPixels);
    bytes.setCount(INT_MAX);
    odd.setCount(INT_MAX);
    const struct {
        MBVTable& table;
        int count, blocks, capacity;
    } cases[] = {{fresh, kPixels, kBlocks, kBlocks * kInBlock},
                 {reused, kPixels, kBlocks, kBlocks * kInBlock},
                 {grown, kPixels, kBlocks, kBlocks * kInBlock},
                 // No index reaches the end of the last block.
                 {bytes, INT_MAX, 3, INT_MAX},
                 {odd, INT_MAX, 2, INT_MAX}};
    for (const auto& c : cases) {
        MBVTable& table = c.table;
        EXPECT_EQ(table.count, c.count);
        EXPECT_EQ(table.numBlocks, c.blocks);
        ASSERT_EQ(table.capacity, c.capacity);
        // Across byte 2^31, where there is one, and the last ones.
        const std::int64_t across = (std::int64_t{1} << 31) / table.itemSize - 1;
        const int last = table.count - 3;
        for (const int at : {static_cast<int>(std::min<std::int64_t>(across, last)), last}) {
            FaultStream stream(ramp(3 * table.itemSize));
            stream.Open();
            int moved = 0;
            EXPECT_EQ(table.read(&stream, at, 3, moved), 0);
            EXPECT_EQ(moved, 3);
            EXPECT_EQ(values(table, at, 3), ramp(3 * table.itemSize));
            EXPECT_EQ(*table.item(at + 2), 2 * table.itemSize);
        }
    }
}

TEST(MBVTable, InitReusingHasTheShapeOfANewTable) {
    MBVTable reused(1, 64);
    for (int count : {1000, 3, 0, 90, 1000, 5000}) {
        for (int itemSize : {4, 12, 16}) {
            MBVTable fresh(1, 0x2000000);
            fresh.initNotResizable(count, itemSize, 4096);
            reused.initReusing(count, itemSize, 4096);
            EXPECT_EQ(reused.count, fresh.count) << count << " x " << itemSize;
            EXPECT_EQ(reused.blockBytes, fresh.blockBytes) << count << " x " << itemSize;
            EXPECT_EQ(reused.capacity, fresh.capacity) << count << " x " << itemSize;
            reused.loadFromBuffer(ramp(count * itemSize).data(), count);
            EXPECT_EQ(values(reused, 0, count), ramp(count * itemSize));
        }
    }
}

TEST(MBVTable, MovesValuesBlockByBlockUpToTheCapacity) {
    const struct {
        int start, n, moved;
        const char* sizes[3];
    } cases[] = {{0, 40, 40, {"64", "64", "32"}},
                 {10, 30, 30, {"24", "64", "32"}},
                 {10, 3, 3, {"12"}},
                 {0, 32, 32, {"64", "64"}},
                 {40, 100, 8, {"32"}},
                 {48, 1, 0, {}},
                 {-1, 5, 0, {}},
                 {0, -5, 0, {}}};
    for (const auto& c : cases) {
        const Filled table;
        FaultStream stream;
        stream.Open();
        std::string calls = "open";
        int moved = -1;
        EXPECT_EQ(table.write(&stream, c.start, c.n, moved), 0);
        EXPECT_EQ(moved, c.moved) << c.start << ", " << c.n;
        EXPECT_EQ(stream.bytes(), values(table, c.start, c.moved));
        for (const char* size : c.sizes)
            calls += size != nullptr ? std::string(", write ") + size : "";
        EXPECT_EQ(stream.log(), calls);

        MBVTable back(4, 64);
        back.setCount(40);
        stream.Seek(0);
        EXPECT_EQ(back.read(&stream, c.start, c.n, moved = -1), 0);
        EXPECT_EQ(moved, c.moved);
        EXPECT_EQ(values(back, c.start, c.moved), stream.bytes());
    }
}

TEST(MBVTable, OnlyAnErrorWithAShortCountStops) {
    const struct {
        Fault fault;
        int code, moved;
    } cases[] = {{Fault::kErrorFull, 0, 40},
                 {Fault::kErrorShort, FaultStream::kError, 16 + 8},
                 {Fault::kErrorNothing, FaultStream::kError, 16},
                 {Fault::kSilentShort, 0, 16 + 8 + 8}};  // the next block follows all the same
    for (const auto& c : cases) {
        for (Call call : {Call::kWrite, Call::kRead}) {
            Filled table;
            FaultStream stream(ramp(160));
            stream.Open();
            stream.failAt(call, 2, c.fault);
            int moved = -1;
            EXPECT_EQ(
                call == Call::kWrite ? table.write(&stream, 0, 40, moved) : table.read(&stream, 0, 40, moved),
                c.code);
            EXPECT_EQ(moved, c.moved);
        }
    }
    FaultStream stream(ramp(35));  // part of a value does not count
    MBVTable triples(12, 64);
    triples.setCount(3);
    stream.Open();
    int got = -1;
    EXPECT_EQ(triples.read(&stream, 0, 3, got), 0);
    EXPECT_EQ(got, 2);
}
