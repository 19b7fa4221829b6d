#include "rawimage/output_queue.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "rawimage/writer.h"
#include "tests/testing/collect.h"
#include "tests/testing/fault_stream.h"

// What the queue promises its callers, with a file that keeps a list of what it was asked to do.

namespace {

using namespace testing_tools;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kValues = 1000;

// A region of one channel, whose values and left border are `number`.
struct Numbered : MRRegionData {
    explicit Numbered(int number, int values = kValues) : table(4, values * 4) {
        table.setCount(values);
        set(number);
        width = values;
        height = y1 = 1;
        channels.Add({RCT_INT, "c", RCA_NONE, &table, 0});
    }
    void set(int number) {
        for (int i = 0; i < table.count; ++i)
            std::memcpy(table.item(i), &number, sizeof number);
        x0 = number;
        x1 = number + table.count;
    }
    MBVTable table;
};

// Lists the calls. A region with values of its own that are not all alike is listed as torn.
class ListingFile : public RIFile {
  public:
    ErrorCode WTRegion(MRRegionData* region, int /*a*/, int b, int /*c*/) override {
        std::unique_lock<std::mutex> lock(mutex_);
        ++begun_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
        if (region == nullptr) return ErrorCode("WTRegion", -1, "null");
        if (region->x0 == throwAt) throw std::runtime_error("host");
        if (region->x0 == failAt) return ErrorCode("WTRegion", 28, "full");
        const MBVTable& table = *region->channels[0].data;
        std::string text = std::to_string(region->x0);
        for (int i = 0; i < table.count; ++i) {
            if (std::memcmp(table.item(i), &region->x0, 4) != 0) text = "torn";
        }
        calls_.push_back(text + (b != 0 ? "/" + std::to_string(b) : ""));
        return {};
    }
    ErrorCode WTRegions(RegionFeed& feed) override { return RIFileBase::WTRegions(feed); }
    ErrorCode WTResolution(int width, int, float) override {
        if (width < 0) throw std::bad_alloc();
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("resolution");
        return width == 0 ? ErrorCode("WTResolution", -1, "zero") : ErrorCode();
    }
    ErrorCode Close() override {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("close");
        return {};
    }

    // Regions wait in WTRegion while it is shut.
    void setOpen(bool open) {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = open;
        changed_.notify_all();
    }
    void waitForRegion() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return begun_ > 0; });
    }
    std::vector<std::string> calls() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

    int failAt = -1;
    int throwAt = -1;

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = true;
    int begun_ = 0;
    std::vector<std::string> calls_;
};

class QueueTest : public testing::Test {
  protected:
    ErrorCode give(int number, int values = kValues) {
        Numbered region(number, values);
        return queue.WTRegion(&region, 0, 0, 0);
    }

    ListingFile file;
    OutputQueue queue{file};
};

}  // namespace

TEST_F(QueueTest, KeepsTheOrderOfCallsAndTheValuesAsTheyWere) {
    file.setOpen(false);
    Numbered region(1);
    EXPECT_FALSE(queue.WTRegion(&region, 5, 6, 7));
    region.set(2);
    EXPECT_FALSE(queue.WTRegion(&region, 0, 0, 0));
    EXPECT_EQ(queue.pending(), 2);
    std::thread opener([this] {
        file.waitForRegion();
        file.setOpen(true);
    });
    EXPECT_FALSE(queue.WTResolution(1, 1, 1));
    opener.join();
    EXPECT_FALSE(give(3));
    EXPECT_FALSE(queue.flush());
    EXPECT_EQ(queue.pending(), 0);
    EXPECT_THAT(file.calls(), ElementsAre("1/6", "2", "resolution", "3"));
}

// Each thread's regions stay in their order, and no region takes the values of another.
TEST_F(QueueTest, TakesRegionsFromManyThreads) {
    constexpr int kThreads = 8, kRegions = 50;
    for (const int bound : {1, 5 * kValues * 4, 1 << 28}) {
        queue.setMaxPending(bound);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([this, t] {
                for (int i = 0; i < kRegions; ++i)
                    EXPECT_FALSE(give(t * 100 + i, kValues - i % 3 * 300));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_FALSE(queue.flush());
    }
    std::vector<int> next(kThreads);
    for (const std::string& call : file.calls()) {
        ASSERT_NE(call, "torn");
        const int number = std::stoi(call);
        int& expected = next[static_cast<std::size_t>(number / 100)];
        EXPECT_EQ(number % 100, expected);
        expected = (expected + 1) % kRegions;
    }
    EXPECT_EQ(file.calls().size(), std::size_t{3 * kThreads * kRegions});
}

// A caller over the bound waits, and a region larger than it passes alone.
TEST_F(QueueTest, HoldsNoMoreThanTheBound) {
    constexpr int kRegionBytes = 4032;  // in whole lines of 64 bytes
    queue.setMaxPending(3 * kRegionBytes);
    file.setOpen(false);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(give(i));
    std::atomic<int> passed{0};
    std::vector<std::thread> threads;
    for (const int values : {100 * kValues, 1}) {
        threads.emplace_back([this, values, &passed] {
            EXPECT_FALSE(give(7, values));
            ++passed;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    // The small one fits no more than the large one: it was called later.
    EXPECT_EQ(passed, 0);
    EXPECT_EQ(queue.pending(), 3);
    file.setOpen(true);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(queue.flush());
    EXPECT_THAT(file.calls(), ElementsAre("0", "1", "2", "7", "7"));
}

TEST_F(QueueTest, EndsAtTheFirstRegionThatFails) {
    for (const bool throws : {false, true}) {
        (throws ? file.throwAt : file.failAt) = 2;
        file.setOpen(false);
        for (int i = 1; i < 5; ++i)
            EXPECT_FALSE(give(i));
        // Callers who wait for room learn of it, too.
        queue.setMaxPending(1);
        std::thread waiting([this] { EXPECT_TRUE(give(6)); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        file.setOpen(true);
        waiting.join();
        const ErrorCode errors[] = {queue.flush(), give(7), queue.WTResolution(1, 1, 1), queue.Close()};
        for (const ErrorCode& error : errors) {
            EXPECT_STREQ(error.message(), "Error writing region ((2, 0)-(1002, 1))");
            EXPECT_STREQ(error.message(1), throws ? "host" : "full");
        }
        EXPECT_EQ(queue.pending(), 0);
        // Another file may follow.
        file.failAt = file.throwAt = -1;
        queue.setMaxPending(OutputQueue::kMaxPending);
        EXPECT_FALSE(give(9));
        EXPECT_FALSE(queue.Close());
    }
    EXPECT_THAT(file.calls(), ElementsAre("1", "close", "9", "close", "1", "close", "9", "close"));
}

// A null region, and errors and exceptions of everything that is no region, belong to their call alone.
TEST_F(QueueTest, GivesOtherErrorsToTheirCaller) {
    EXPECT_EQ(queue.WTRegion(nullptr, 0, 0, 0).describe(), "WTRegion: null (-1)");
    EXPECT_EQ(queue.WTResolution(0, 1, 1).describe(), "WTResolution: zero (-1)");
    EXPECT_THROW((void)queue.WTResolution(-1, 1, 1), std::bad_alloc);
    EXPECT_EQ(queue.run([] { return ErrorCode("run", 3, "own"); }).describe(), "run: own (3)");
    EXPECT_FALSE(give(1));
    EXPECT_FALSE(queue.Close());
}

TEST_F(QueueTest, WritesWhatWaitsBeforeItGoes) {
    {
        OutputQueue another(file);
        for (int i = 0; i < 20; ++i) {
            Numbered region(i);
            EXPECT_FALSE(another.WTRegion(&region, 0, 0, 0));
        }
    }
    EXPECT_EQ(file.calls().size(), 20u);
}

// While it lives the system gives no thread: there is no memory for a stack of the default size.
class NoThreads {
  public:
    NoThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t attributes = before_;
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 46);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
    }
    ~NoThreads() { pthread_setattr_default_np(&before_); }

  private:
    pthread_attr_t before_;
};

// The callers do the work then, one at a time, and what they are promised stays the same.
TEST(OutputQueue, NeedsNoThreadOfItsOwn) {
    ListingFile file;
    FaultStream stream, plainStream;
    RIFile raw, plain;
    std::optional<OutputQueue> listing, writing;
    Numbered region(2);
    {
        const NoThreads none;
        listing.emplace(file);
        writing.emplace(raw);
        raw.setCompressionThreads(nullptr, 3);
        for (RIFileBase* each : {static_cast<RIFileBase*>(&*writing), static_cast<RIFileBase*>(&plain)}) {
            FaultStream& to = each == &plain ? plainStream : stream;
            to.Open();
            EXPECT_FALSE(each->Create(nullptr, &to));
            EXPECT_FALSE(each->WriteHeader(0));
            for (int i = 0; i < 3; ++i)
                EXPECT_FALSE(each->WTRegion(&region, 0, 0, 0));
            EXPECT_FALSE(each->Close());
        }
        EXPECT_EQ(stream.bytes(), plainStream.bytes());
        EXPECT_FALSE(listing->WTRegion(&region, 0, 0, 0));
        EXPECT_EQ(listing->pending(), 0);
    }
    listing->setMaxPending(1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&listing] {
            Numbered own(7);
            for (int i = 0; i < 25; ++i)
                EXPECT_FALSE(listing->WTRegion(&own, 0, 0, 0));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(file.calls().size(), 101u);
    file.failAt = 2;
    EXPECT_FALSE(listing->WTRegion(&region, 0, 0, 0));
    EXPECT_STREQ(listing->WTRegion(&region, 0, 0, 0).message(1), "full");
    EXPECT_STREQ(listing->Close().message(1), "full");
    EXPECT_THAT(file.calls().back(), "close");
}

// A disk that is full: the file has what was written before, and its table.
TEST(OutputQueue, LeavesTheRegionsBeforeTheFailedOne) {
    for (const int threads : {1, 3}) {
        FaultStream stream;
        stream.Open();
        RIFile file;
        file.setCompressionThreads(nullptr, threads);
        OutputQueue queue(file);
        ASSERT_FALSE(queue.Create(nullptr, &stream));
        ASSERT_FALSE(queue.WriteHeader(0));
        Numbered region(0);
        for (int i = 0; i < 10; ++i) {
            region.set(i);
            // Of the wrong size from there on.
            if (i == 6) region.channels[0].type = RCT_COLOR;
            if (queue.WTRegion(&region, 0, 0, 0)) break;
        }
        const std::string error = queue.Close().describe();
        EXPECT_THAT(error, HasSubstr("region ((6, 0)-(1006, 1))"));
        EXPECT_THAT(error, HasSubstr("Error reading data buffer for compression"));
        stream.Open();
        ASSERT_FALSE(file.Open(nullptr, &stream));
        EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
        EXPECT_EQ(file.NumTags(), 6);
    }
}
