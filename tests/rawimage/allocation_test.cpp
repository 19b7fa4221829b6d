#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>

#include "rawimage/read/callback.h"
#include "rawimage/writer.h"

// The sanitizers bring a malloc of their own, which must stay.
#if defined(__has_feature)
#define SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif

#if !SANITIZED
namespace {
std::atomic<int> news, mallocs;
}

void* operator new(std::size_t size) {
    ++news;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

// Everybody's: zlib's, and that of operator new above.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* malloc(std::size_t size) {
    return ++mallocs, __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    return ++mallocs, __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    return ++mallocs, __libc_realloc(memory, size);
}
}

namespace {

constexpr int kChannels = 11, kSide = 8;

struct Drop : RIFileCallback {
    int payloads = 0;
    bool setResolution(int, int, float) override { return true; }
    bool setNumChannels(int) override { return true; }
    bool setChannel(int, RegionChannelType, RegionChannelAlias, const char*) override { return true; }
    bool setImageData(const MBVTable&, int, int, int, int, int, int, int, int) override {
        return ++payloads > 0;
    }
};

struct Counts {
    int writing, parsing, listing;
};

// Allocations for `buckets` equal buckets, those of the first one aside in writing, as `counter` has them.
Counts countFor(int buckets, const std::atomic<int>& counter) {
    const float noise[kSide * kSide * 4] = {1, 2, 3};
    MBVTable values(16, 256);
    values.setCount(kSide * kSide);
    values.loadFromBuffer(noise, kSide * kSide);
    MRRegionData region;
    RegionChannel channel;
    channel.type = RCT_FLOAT4;
    channel.data = &values;
    for (int i = 0; i < kChannels; ++i)
        region.channels.Add(channel);
    region.width = region.height = kSide;

    PMemStream stream(buckets * kChannels * 200 + 1000);
    RIFile file;
    Drop drop;
    stream.Open();
    EXPECT_TRUE(file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty());
    EXPECT_TRUE(file.WTRegion(&region, 0, 0, 0).empty());
    const int first = counter;
    for (int i = 1; i < buckets; ++i)
        EXPECT_TRUE(file.WTRegion(&region, 0, 0, 0).empty());
    const int written = counter;
    EXPECT_TRUE(file.Close().empty() && stream.Open() == 0 && file.Open(nullptr, &stream).empty());
    const int closed = counter;
    EXPECT_EQ(file.ParseFile(drop), 0);
    const int parsed = counter;
    EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
    const int listed = counter;
    EXPECT_EQ(drop.payloads, buckets * kChannels);
    EXPECT_EQ(file.NumTags(), buckets * kChannels);
    return {written - first, parsed - closed, listed - parsed};
}

}  // namespace

// The writer's list of tags moves once for each quarter that it grows by; nothing else may depend on the
// number of tags.
TEST(Allocations, DoNotGrowWithTheBuckets) {
    for (const std::atomic<int>* counter : {&news, &mallocs}) {
        const Counts few = countFor(100, *counter), many = countFor(1000, *counter);
        EXPECT_LE(few.writing, 10);
        EXPECT_LE(many.writing, few.writing + 11);
        EXPECT_EQ(many.parsing, few.parsing);
        EXPECT_EQ(many.listing, few.listing);
    }
}

// A list that could not grow goes on with the room that it has.
TEST(Allocations, ThatFailLeaveAListAsItWas) {
    struct Large {
        unsigned char bytes[1 << 20];
    };
    PList<Large> list(2);
    EXPECT_THROW(list.Realloc(INT_MAX), std::bad_alloc);
    EXPECT_EQ(list.Capacity(), 0);
    list.Append({});
    EXPECT_EQ(list.Count(), 1);
    EXPECT_EQ(list.Capacity(), 2);
}
#else
TEST(Allocations, DoNotGrowWithTheBuckets) {
    GTEST_SKIP() << "the sanitizer's malloc cannot be counted";
}
#endif
