#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "rawimage/output_queue.h"
#include "tests/proof/frame.h"
#include "tests/testing/sanitized.h"

// A render that is killed at any moment: what it was told is written is there.

using namespace testing_tools;

namespace {

constexpr int kBuckets = 100;
constexpr int kMoments = kSanitized ? 30 : 240;

enum class Way { kPlain, kThreaded, kQueued };

// Hands the buckets from `first` on over, a batch at a time, and says so of each when its batch is flushed.
bool renderQueued(RIFile& file, int first, int report) {
    OutputQueue queue(file);
    bool good = true;
    for (int i = first, batch = 0; i < kBuckets && good; ++i) {
        FrameRegion region(i);
        good = queue.WTRegion(&region, 0, i, 7).empty();
        if (++batch < 1 + i % 7 && i + 1 < kBuckets) continue;
        const std::string bytes(static_cast<std::size_t>(batch), '\0');
        good = good && queue.flush().empty() && ::write(report, bytes.data(), bytes.size()) == batch;
        batch = 0;
    }
    return good && queue.Close().empty();
}

// Renders into `target`, from bucket `first` on, and says so of each bucket that was accepted. Does not
// return.
[[noreturn]] void render(const MemoryFile& target, int first, Way way, int report) {
    RIFile file;
    if (way != Way::kPlain) file.setCompressionThreads(nullptr, 2);
    bool good =
        (first == 0 ? file.Create(target.path(), nullptr) : file.Append(target.path(), nullptr)).empty();
    if (first == 0) {
        for (const Step& step : frameStart(kBuckets))
            good = good && step(file).empty();
    } else {
        good = good && file.ReadInfoTags(nullptr) == 0;
    }
    if (way == Way::kQueued) ::_exit(good && renderQueued(file, first, report) ? 0 : 1);
    for (int i = first; i < kBuckets && good; ++i) {
        good = bucketStep(i)(file).empty();
        const char byte = 0;
        good = good && ::write(report, &byte, 1) == 1;
    }
    good = good && file.Close().empty();
    ::_exit(good ? 0 : 1);
}

// A finished file with the first ten buckets, to be continued.
void makeStart(MemoryFile& target, int buckets) {
    RIFile file;
    ASSERT_TRUE(file.Create(target.path(), nullptr).empty());
    for (const Step& step : frameStart(kBuckets))
        ASSERT_TRUE(step(file).empty());
    for (int i = 0; i < buckets; ++i)
        ASSERT_TRUE(bucketStep(i)(file).empty());
    ASSERT_TRUE(file.Close().empty());
}

}  // namespace

TEST(Kill, KeepsEveryBucketThatWasAccepted) {
    std::mt19937 random(20);
    int unfinished = 0, torn = 0;
    for (int moment = 0; moment < kMoments; ++moment) {
        MemoryFile target;
        const int first = moment % 2 == 0 ? 0 : 10;
        if (first > 0) makeStart(target, first);
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ends[0]);
            render(target, first, static_cast<Way>(moment / 2 % 3), ends[1]);
        }
        ::close(ends[1]);
        // Some buckets, then somewhere in the next ones, or in Close, or before the first.
        int accepted = first;
        char byte;
        for (int wait = static_cast<int>(random() % 100); wait > 0 && ::read(ends[0], &byte, 1) == 1; --wait)
            ++accepted;
        ::usleep(static_cast<useconds_t>(random() % 200));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        while (::read(ends[0], &byte, 1) == 1)
            ++accepted;
        ::close(ends[0]);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);

        const MUtils::FileState verdict = verdictOf(target.path());
        unfinished += verdict == MUtils::FileState::kUnfinished;
        EXPECT_NE(verdict, MUtils::FileState::kDamaged);
        const std::vector<Event> expected = bucketEvents(0, accepted);
        const Delivered walked = parse(target.path());
        torn += walked.code != 0;
        EXPECT_TRUE(without(expected, walked.pixels).empty()) << "moment " << moment << ", walk";
        EXPECT_TRUE(without(expected, recoveredPixels(target.path())).empty())
            << "moment " << moment << ", recovery";
        EXPECT_TRUE(without(walked.pixels, bucketEvents(0, kBuckets)).empty()) << "made up";
        ASSERT_FALSE(HasFailure());
    }
    std::printf("%d renders killed: %d files unfinished, %d of them ending in half a tag's payload\n",
                kMoments, unfinished, torn);
}
