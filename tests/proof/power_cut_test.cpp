#include <gtest/gtest.h>

#include <random>

#include "tests/proof/frame.h"

// The operations of a render, replayed up to a power cut.

using namespace testing_tools;
using MUtils::FileState;

namespace {

constexpr std::size_t kSector = 512;  // what a disk writes whole or not at all

struct Operation {
    enum Kind { kWrite, kTruncate, kSync } kind;
    std::size_t offset = 0;
    std::string bytes;
};
using Operations = std::vector<Operation>;
using Disk = std::vector<unsigned char>;

// A stream in memory that writes its operations down in a place that outlives it.
class RecordingStream : public PMemStream {
  public:
    RecordingStream(const Disk& before, Operations& log) : log_(log) {
        int written = 0;
        PMemStream::Open();
        PMemStream::Write(before.data(), static_cast<int>(before.size()), written);
        Seek(0);
    }
    int Write(const void* data, int size, int& written) override {
        log_.push_back({Operation::kWrite,
                        static_cast<std::size_t>(Tell()),
                        {static_cast<const char*>(data), static_cast<std::size_t>(size)}});
        return PMemStream::Write(data, size, written);
    }
    int Truncate() override {
        log_.push_back({Operation::kTruncate, static_cast<std::size_t>(Tell()), {}});
        return PMemStream::Truncate();
    }
    int Sync() override {
        log_.push_back({Operation::kSync, 0, {}});
        return 0;
    }

  private:
    Operations& log_;
};

// A file takes the stream for one that it opened itself: only those it syncs.
struct RecordedFile : RIFile {
    explicit RecordedFile(PStream* own) { stream = ownStream = own; }
    using RIFile::writeMode;
};

Operations record(const Script& script) {
    Operations log;
    RecordedFile file(new RecordingStream(script.before, log));
    file.writeMode = true;
    for (const Step& step : script.steps)
        EXPECT_TRUE(step(file).empty());
    return log;
}

void apply(Disk& disk, const Operation& operation) {
    if (operation.kind == Operation::kTruncate) disk.resize(std::min(disk.size(), operation.offset));
    if (operation.kind != Operation::kWrite) return;
    disk.resize(std::max(disk.size(), operation.offset + operation.bytes.size()));
    std::copy(operation.bytes.begin(), operation.bytes.end(),
              disk.begin() + static_cast<std::ptrdiff_t>(operation.offset));
}

// The operation in pieces that the disk writes whole.
Operations sectors(const Operation& operation) {
    if (operation.kind != Operation::kWrite) return {operation};
    Operations pieces;
    for (std::size_t at = 0; at < operation.bytes.size();) {
        const std::size_t size = kSector - (operation.offset + at) % kSector;
        pieces.push_back({Operation::kWrite, operation.offset + at, operation.bytes.substr(at, size)});
        at += size;
    }
    return pieces;
}

class PowerCut : public testing::TestWithParam<int> {
  protected:
    // Never good with pixels that are not the frame's; what was on the disk before is saved in any case.
    FileState check(const Disk& disk, int bucketsThere) {
        ++cases_;
        file_.fill(disk);
        const FileState verdict = verdictOf(file_.path());
        const Delivered delivered = parse(file_.path());
        if (isSound(verdict)) {
            good_ += verdict == FileState::kGood;
            EXPECT_EQ(delivered.code, 0);
            EXPECT_TRUE(without(delivered.pixels, bucketEvents(0, Script::kBuckets)).empty());
            EXPECT_TRUE(verdict != FileState::kGood || delivered.pixels == bucketEvents(0, Script::kBuckets));
        }
        EXPECT_TRUE(without(bucketEvents(0, bucketsThere), recoveredPixels(file_.path())).empty());
        return verdict;
    }

    MemoryFile file_;
    int cases_ = 0;
    int good_ = 0;
};

Script scriptOf(int number) {
    return number == 0 ? createScript() : appendScript("", number % 2 == 1, number < 3);
}

// To a new file; to a finished and an unfinished one.
std::string nameOf(const testing::TestParamInfo<int>& of) {
    const char* const names[] = {"NewFile", "FinishedCompressed", "UnfinishedCompressed", "FinishedRaw",
                                 "UnfinishedRaw"};
    return names[of.param];
}

INSTANTIATE_TEST_SUITE_P(Scripts, PowerCut, testing::Range(0, 5), nameOf);

}  // namespace

// Everything up to some operation is on the disk, and of that one some first sectors.
TEST_P(PowerCut, AfterEveryOperation) {
    const Script script = scriptOf(GetParam());
    const Operations log = record(script);
    Disk disk = script.before;
    int synced = script.firstBucket;
    for (const Operation& operation : log) {
        for (const Operation& piece : sectors(operation)) {
            apply(disk, piece);
            const FileState verdict = check(disk, synced);
            EXPECT_TRUE(verdict == FileState::kUnfinished || verdict == FileState::kGood ||
                        (disk.size() < 32 && verdict == FileState::kNotThisFormat))
                << MUtils::stateName(verdict) << " at " << disk.size();
        }
        if (operation.kind == Operation::kSync) synced = Script::kBuckets;
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(check(disk, Script::kBuckets), FileState::kGood);
    std::printf("%d cuts, %d good\n", cases_, good_);
}

// Between two syncs the disk takes sectors in any order.
TEST_P(PowerCut, WithAnySectorsSinceTheLastSync) {
    const Script script = scriptOf(GetParam());
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    Disk base = script.before;
    Operations epoch;
    int synced = script.firstBucket;
    for (const Operation& operation : record(script)) {
        for (Operation& piece : sectors(operation))
            epoch.push_back(std::move(piece));
        if (operation.kind != Operation::kSync) continue;
        for (int sample = 0; sample < 300; ++sample) {
            // From nearly nothing to nearly everything.
            const unsigned share = random() % 32 + 1;
            Disk disk = base;
            for (const Operation& piece : epoch)
                if (random() % 32 < share) apply(disk, piece);
            check(disk, synced);
            ASSERT_FALSE(HasFailure()) << "sample " << sample;
        }
        for (const Operation& piece : epoch)
            apply(base, piece);
        epoch.clear();
        synced = Script::kBuckets;
    }
    std::printf("%d cuts, %d good\n", cases_, good_);
}
