#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "exr/exr_file.h"
#include "tests/proof/frame.h"

// Streams and disks that fail at each of their operations under whole renders.

using namespace testing_tools;
using MUtils::FileState;

namespace {

constexpr int kBuckets = Script::kBuckets;
constexpr Fault kFaults[] = {Fault::kErrorFull, Fault::kErrorShort, Fault::kErrorNothing,
                             Fault::kSilentShort};

struct Outcome {
    bool told = false;     // some call gave an error
    bool struck = false;   // the fault met a call at all
    int acknowledged = 0;  // buckets that were accepted before the fault struck
    std::vector<unsigned char> bytes;
};

// A stream that knows when its fault strikes.
struct Outage {
    Call call;
    int nth;
    Fault fault;
    bool forEver;
};

int callsOf(const FaultStream& stream, const char* name) {
    int count = 0;
    for (std::size_t at = 0; (at = stream.log().find(name, at)) != std::string::npos; ++at)
        ++count;
    return count;
}

const char* nameOf(Call call) {
    constexpr const char* kNames[] = {"open", "close", "read", "write", "seek", "skip", "truncate", "sync"};
    return kNames[static_cast<int>(call)];
}

// Runs the script to its end; after an error only its Close is still called.
Outcome run(const Script& script, const Outage& outage) {
    Outcome outcome;
    FaultStream stream(script.before);
    stream.failAt(outage.call, outage.nth, outage.fault, outage.forEver);
    RIFile file;
    if (script.create()) stream.Open();
    outcome.told = !(script.create() ? file.Create(nullptr, &stream) : file.Append(nullptr, &stream)).empty();
    outcome.acknowledged = script.firstBucket;
    const std::size_t buckets = static_cast<std::size_t>(kBuckets - script.firstBucket);
    for (std::size_t i = 0; i < script.steps.size(); ++i) {
        if (outcome.told && i + 1 < script.steps.size()) continue;
        const bool accepted = script.steps[i](file).empty();
        outcome.told |= !accepted;
        outcome.struck = callsOf(stream, nameOf(outage.call)) >= outage.nth;
        const bool isBucket = i + 1 < script.steps.size() && i + 1 + buckets >= script.steps.size();
        if (isBucket && accepted && !outcome.struck) ++outcome.acknowledged;
    }
    outcome.bytes = stream.bytes();
    return outcome;
}

// Empties the file; while this lives it takes no more than `size` bytes, as every other file.
class FullDisk {
  public:
    FullDisk(MemoryFile& file, std::int64_t size) {
        file.fill({});
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        const rlimit limit{static_cast<rlim_t>(size), previous_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit previous_;
    void (*previousHandler_)(int);
};

}  // namespace

// A fault is told by a call, or the file is what it would have been without it, or verify does not call it
// good. Buckets that were accepted before are saved by recovery, those of the file that is continued, too.
TEST(Faults, EveryOperationOfAWriter) {
    int cases = 0, told = 0, harmless = 0, leftToVerify = 0;
    for (const Script& script :
         {createScript(), appendScript("append", true), appendScript("append to unfinished", false)}) {
        const Outcome whole = run(script, {Call::kOpen, 1000, Fault::kErrorNothing, false});
        ASSERT_FALSE(whole.told);
        for (const Call call : {Call::kOpen, Call::kClose, Call::kRead, Call::kWrite, Call::kSeek,
                                Call::kSkip, Call::kTruncate}) {
            for (const Fault fault : kFaults) {
                const bool moves = call == Call::kRead || call == Call::kWrite;
                if (!moves && fault != Fault::kErrorNothing) continue;
                for (const bool forEver : {false, true}) {
                    for (int nth = 1;; ++nth) {
                        const Outcome outcome = run(script, {call, nth, fault, forEver});
                        if (!outcome.struck) break;
                        SCOPED_TRACE(testing::Message()
                                     << script.name << ", " << nameOf(call) << ' ' << nth << ", fault "
                                     << static_cast<int>(fault) << (forEver ? " for ever" : ""));
                        ++cases;
                        MemoryFile file;
                        file.fill(outcome.bytes);
                        const FileState verdict = verdictOf(file.path());
                        const bool same = outcome.bytes == whole.bytes;
                        told += outcome.told;
                        harmless += !outcome.told && same;
                        leftToVerify += !outcome.told && !same;
                        EXPECT_TRUE(outcome.told || same || verdict != FileState::kGood);
                        const bool dead = fault == Fault::kErrorNothing || fault == Fault::kErrorShort;
                        EXPECT_TRUE(outcome.told || !forEver || call != Call::kWrite || !dead);
                        const std::vector<Event> lost =
                            without(bucketEvents(0, outcome.acknowledged), recoveredPixels(file.path()));
                        EXPECT_TRUE(lost.empty()) << lost.size() << " of the accepted tags";
                    }
                }
            }
        }
    }
    std::printf("%d faults: %d told, %d without effect, %d left to verify\n", cases, told, harmless,
                leftToVerify);
}

// A disk that is full at each size: a file opened by name tells it by Close at the latest, and what fitted is
// saved.
TEST(Faults, AFullDiskAtEverySize) {
    MemoryFile target;
    std::vector<std::int64_t> ends;  // where each bucket ends
    const auto render = [&](bool& told) {
        RIFile file;
        file.setCompressionThreads(nullptr, 2);
        told = !file.Create(target.path(), nullptr).empty();
        ends.clear();
        for (const Step& step : createScript().steps) {
            told |= !step(file).empty();
            ends.push_back(::lseek(target.descriptor(), 0, SEEK_END));
        }
    };
    bool told = false;
    render(told);
    ASSERT_FALSE(told);
    const std::vector<std::int64_t> sizes(ends.end() - kBuckets - 1, ends.end());

    for (std::int64_t size = 0; size < sizes.back(); size += 7) {
        {
            const FullDisk disk(target, size);
            render(told);
        }
        EXPECT_TRUE(told) << size;
        EXPECT_NE(verdictOf(target.path()), FileState::kGood);
        int whole = 0;
        while (whole < kBuckets && sizes[static_cast<std::size_t>(whole)] <= size)
            ++whole;
        EXPECT_TRUE(without(bucketEvents(0, whole), recoveredPixels(target.path())).empty()) << size;
        ASSERT_FALSE(HasFailure());
    }
}

// OpenEXR files of each kind on such a disk: Close tells what the library passes over.
TEST(Faults, AFullDiskAtEverySizeOfAnExrFile) {
    struct Describe final : RegionChannelCallback {
        explicit Describe(const RegionChannel& of) : channel(of) {}
        RegionChannelType getType() override { return channel.type; }
        RegionChannelAlias getAlias() override { return channel.alias; }
        const char* getName() override { return channel.name; }
        int getFlags() override { return channel.flags; }
        const RegionChannel& channel;
    };
    for (const int kind : {ExrFile::kScanline, ExrFile::kTiled, ExrFile::kMultiPart}) {
        // Tiled files take buckets, the others the whole frame.
        const int buckets = kind == ExrFile::kTiled ? kBuckets : 1;
        MemoryFile target;
        const auto render = [&] {
            ExrFile file(kind);
            FrameRegion frame(0);
            std::vector<Describe> descriptions;
            for (const RegionChannel& channel : frame.channels)
                descriptions.emplace_back(channel);
            MUtils::Table<RegionChannelCallback*, 100> channels;
            for (Describe& description : descriptions)
                channels.Add(&description);
            bool told = !file.Create(target.path(), nullptr).empty();
            const auto check = [&](const ErrorCode& error) { told |= !error.empty(); };
            check(file.WriteHeader(32));
            check(file.WTResolution(buckets * FrameRegion::kSide, FrameRegion::kSide, 1));
            check(file.WTRegionsInfo(FrameRegion::kSide, FrameRegion::kSide, 0));
            check(file.WTChannelInfo(&channels));
            for (int i = 0; i < buckets; ++i) {
                FrameRegion region(i);
                check(file.WTRegion(&region, 0, 0, 0));
            }
            check(file.Close());
            return told;
        };
        EXPECT_FALSE(render());
        const std::int64_t whole = ::lseek(target.descriptor(), 0, SEEK_END);
        EXPECT_GT(whole, 300);
        for (std::int64_t size = 0; size < whole; size += 7) {
            const FullDisk disk(target, size);
            EXPECT_TRUE(render()) << "kind " << kind << ", full at " << size << " of " << whole;
        }
    }
}
