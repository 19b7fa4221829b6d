#include "support/job_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <set>
#include <stdexcept>

namespace {

// Runs a function for each job.
class TestQueue final : public JobQueue {
  public:
    explicit TestQueue(std::function<void(int, int, void*)> job) : job_(std::move(job)) {}
    ~TestQueue() { releaseThreads(); }
    int jobProc(int threadIndex, int jobIndex, void* data) override {
        job_(threadIndex, jobIndex, data);
        return 0;
    }
    void add(void* data, JobsHandle* handle = nullptr) { enqueueJob(handle, acquireJobIndex(), data); }

  private:
    std::function<void(int, int, void*)> job_;
};

void passWhen(const std::atomic<bool>& open) {
    while (!open)
        std::this_thread::yield();
}

TEST(JobQueue, ClampsWhatItIsAskedFor) {
    TestQueue queue([](int, int, void*) {});
    constexpr int kMost = JobQueue::kMaxSlots;
    const int cases[][4] = {{1, 2, 1, 2}, {0, 0, 1, 1}, {-9, -9, 1, 1},
                            {3, 4, 3, 4}, {2, 1, 2, 1}, {1, kMost + 1, 1, kMost}};
    for (const auto& [threads, slots, workers, given] : cases) {
        queue.startThreads(threads, slots);
        EXPECT_EQ(queue.numThreads(), workers);
        EXPECT_EQ(queue.numSlots(), given);
    }
}

// Tiny jobs, some of which throw, and slots that are given back unused, several times on one queue.
TEST(JobQueue, RunsEachJobOnceWithASlotAndAWorkerOfItsOwn) {
    constexpr int kJobs = 5000;
    std::vector<std::atomic<bool>> slots(100), workers(100);
    std::vector<std::atomic<int>> runs(kJobs);
    TestQueue queue([&](int worker, int slot, void* data) {
        EXPECT_FALSE(slots[static_cast<std::size_t>(slot)].exchange(true));
        EXPECT_FALSE(workers[static_cast<std::size_t>(worker)].exchange(true));
        const int run = ++*static_cast<std::atomic<int>*>(data);
        workers[static_cast<std::size_t>(worker)] = false;
        slots[static_cast<std::size_t>(slot)] = false;
        if (run % 3 == 1) throw std::runtime_error("dropped");
    });
    int round = 0;
    for (const int threads : {1, 2, 8, 2}) {
        ++round;
        queue.startThreads(threads, threads + 1);
        for (std::atomic<int>& run : runs) {
            if (&run - runs.data() == kJobs / 2) queue.waitJobs(nullptr);
            queue.cancelJob(queue.acquireJobIndex());
            queue.add(&run);
        }
        queue.waitJobs(nullptr);
        for (const std::atomic<int>& run : runs)
            ASSERT_EQ(run, round);
        std::set<int> all;
        for (int i = 0; i < queue.numSlots(); ++i)
            all.insert(queue.acquireJobIndex());
        EXPECT_EQ(all.size(), static_cast<std::size_t>(queue.numSlots())) << "every slot came free";
        EXPECT_EQ(*all.begin(), 0);
        EXPECT_EQ(*all.rbegin(), queue.numSlots() - 1);
    }
}

TEST(JobQueue, WaitsForOneGroupOrForAll) {
    std::atomic<bool> open{false};
    std::atomic<int> quick{0}, slow{0};
    TestQueue queue([&](int, int, void* data) {
        if (data == &slow) passWhen(open);
        ++*static_cast<std::atomic<int>*>(data);
    });
    queue.startThreads(2, 3);
    JobsHandle quickJobs, slowJobs, none;
    queue.add(&slow, &slowJobs);
    for (int i = 0; i < 100; ++i)
        queue.add(&quick, &quickJobs);
    queue.waitJobs(&quickJobs);
    queue.waitJobs(&none);
    EXPECT_EQ(quick, 100);
    EXPECT_EQ(slow, 0);
    open = true;
    queue.waitJobs(&slowJobs);
    EXPECT_EQ(slow, 1);
    queue.waitJobs(nullptr);
}

TEST(JobQueue, ThrottlesTheOwner) {
    std::atomic<bool> open{false};
    std::atomic<int> done{0};
    TestQueue queue([&](int, int, void*) {
        passWhen(open);
        ++done;
    });
    queue.startThreads(2, 3);
    for (int i = 0; i < queue.numSlots(); ++i)
        queue.add(nullptr);
    std::thread opener([&] { open = true; });
    queue.acquireJobIndex();
    EXPECT_GE(done, 1) << "no slot is free before a job is done";
    opener.join();
    // The others are held by the owner itself: one that comes free must do.
    queue.waitJobs(nullptr);
    for (int i = 1; i < queue.numSlots(); ++i)
        queue.acquireJobIndex();
    queue.enqueueJob(nullptr, 1, nullptr);
    EXPECT_EQ(queue.acquireJobIndex(), 1);
}

TEST(JobQueue, OneFreeSlotIsEnough) {
    std::atomic<int> tickets{0}, acquired{0};
    TestQueue queue([&](int, int, void*) {
        for (int left = tickets; left == 0 || !tickets.compare_exchange_strong(left, left - 1);) {
            std::this_thread::yield();
            left = tickets;
        }
    });
    queue.startThreads(2, 8);
    const int slots = queue.numSlots();
    std::thread owner([&] {
        for (int i = 0; i < 2 * slots; ++i) {
            queue.add(nullptr);
            ++acquired;
        }
    });
    const auto waitFor = [&](int count) {
        for (int tries = 0; tries < 2000 && acquired < count; ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return acquired.load();
    };
    EXPECT_EQ(waitFor(slots), slots);
    EXPECT_EQ(queue.pendingJobs(), slots);
    // One job done each time, all others are still there.
    for (int done = 1; done <= slots && acquired == slots + done - 1; ++done) {
        ++tickets;
        EXPECT_EQ(waitFor(slots + done), slots + done);
    }
    tickets = 2 * slots;
    owner.join();
    queue.waitJobs(nullptr);
    EXPECT_EQ(queue.pendingJobs(), 0);
}

TEST(JobQueue, ServesTwoOwnersFromOneManager) {
    ThreadManager manager;
    std::atomic<int> runs{0};
    const auto own = [&](int threads) {
        TestQueue queue([&](int, int, void*) { ++runs; });
        queue.setThreadManager(&manager);
        for (int start = 0; start < 30; ++start) {
            queue.startThreads(threads, threads);
            for (int i = 0; i < 50; ++i)
                queue.add(nullptr);
            if (start % 2 == 0) queue.releaseThreads();
        }
    };
    std::thread other([&] { own(3); });
    own(2);
    other.join();
    EXPECT_EQ(runs, 2 * 30 * 50);
}

TEST(JobQueue, EndsAfterTheJobsItHas) {
    std::atomic<bool> open{false};
    std::atomic<int> done{0};
    int slots = 0;
    std::thread::id last;
    {
        TestQueue queue([&](int, int, void* data) {
            passWhen(open);
            if (data != nullptr) *static_cast<std::thread::id*>(data) = std::this_thread::get_id();
            ++done;
        });
        queue.releaseThreads();
        for (int round = 0; round < 2; ++round) {
            open = false;
            queue.startThreads(1, 5);
            slots = queue.numSlots();
            for (int i = 0; i < slots; ++i)
                queue.add(nullptr);
            open = true;
            if (round == 1) break;
            queue.releaseThreads();
            EXPECT_EQ(done, slots);
            queue.add(&last);
            EXPECT_EQ(last, std::this_thread::get_id()) << "without workers the owner runs its jobs";
        }
    }
    EXPECT_EQ(done, 2 * slots + 1);
}

}  // namespace
