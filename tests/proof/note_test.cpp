#include "rawimage/tools/note.h"

#include <gtest/gtest.h>

#include "rawimage/tools/note_writer.h"
#include "support/stream_wrapper.h"
#include "tests/proof/frame.h"
#include "tests/testing/sample_file.h"

// A note is set on a finished file whose disk fails, or whose writer dies, at each step.

using namespace testing_tools;
using MUtils::FileState;

namespace {

constexpr char kNote[] = "a new note";

// Its table is longer than a note in one case, and shorter in the other.
Bytes finished(bool withNote, int buckets) {
    Bytes bytes;
    FaultStream stream;
    stream.Open();
    RIFile file;
    SampleOptions options;
    options.buckets = buckets;
    std::vector<Event> ignored;
    RISceneInfo scene(1, "scene");
    EXPECT_TRUE(file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty() &&
                file.WTResolution(5 * buckets, 3, 1).empty() && file.WTSceneInfo(scene).empty());
    EXPECT_TRUE(!withNote || file.WTNote("the old note").empty());
    for (int i = 0; i < buckets; ++i)
        writeBucket(file, i, options, ignored);
    EXPECT_TRUE(!withNote || file.WTNote("another old note").empty());
    EXPECT_TRUE(file.Close().empty());
    static_cast<std::vector<unsigned char>&>(bytes) = stream.bytes();
    return bytes;
}

// The tags of the file but for notes, as a walk delivers them; the walk is to come to an end.
std::vector<Event> frameOf(const std::vector<unsigned char>& bytes) {
    Reading reading(bytes);
    EXPECT_EQ(reading.parse(), 0);
    std::vector<Event> events;
    for (Event& event : reading.seen.events)
        if (event.call != "askNote" && event.call != "setNote") events.push_back(std::move(event));
    return events;
}

FileState judge(const std::vector<unsigned char>& bytes) {
    MemoryFile file;
    file.fill(bytes);
    return verdictOf(file.path());
}

bool isFinishedOrUnfinished(FileState verdict) {
    return isSound(verdict) || verdict == FileState::kUnfinished;
}

class SetNote : public testing::TestWithParam<std::pair<bool, int>> {
  protected:
    const Bytes before_ = finished(GetParam().first, GetParam().second);
    const std::vector<Event> frame_ = frameOf(before_);
};

INSTANTIATE_TEST_SUITE_P(Files, SetNote,
                         testing::Values(std::pair{false, 1}, std::pair{false, 9}, std::pair{true, 1}),
                         [](const auto& of) {
                             return (of.param.first ? "Replaced" : "Added") + std::to_string(of.param.second);
                         });

// The second stream, which mends: the same file, and a log of its own.
struct Mending : MUtils::StreamWrapper {
    using StreamWrapper::StreamWrapper;
    int Close() override { return 0; }
};

}  // namespace

TEST_P(SetNote, GivesTheFileOfReplaceRawNote) {
    MemoryFile one, other;
    one.fill(before_);
    other.fill(before_);
    char note[] = "a new note";
    EXPECT_FALSE(replaceRawNote(one.path(), note, 0, nullptr));
    EXPECT_EQ(MUtils::writeNote(other.path(), kNote).describe(), "");
    EXPECT_EQ(difference(other.bytes(), one.bytes()), "");
    EXPECT_EQ(verdictOf(other.path()), verdictOf(one.path()));
    EXPECT_TRUE(isSound(verdictOf(other.path())));
}

// A failure is reported and leaves the file as it was; one that lasts, as it was or unfinished.
TEST_P(SetNote, OnAFailingDisk) {
    const auto run = [this](Call call, int nth, Fault fault, bool forEver, ErrorCode& error) {
        auto stream = std::make_unique<FaultStream>(before_);
        stream->Open();
        stream->failAt(call, nth, fault, forEver);
        Mending mending(*stream);
        error = MUtils::setNote(*stream, mending, kNote);
        return stream;
    };
    ErrorCode error;
    const auto sound = run(Call::kOpen, 1, Fault::kErrorFull, false, error);
    const std::vector<unsigned char> after = sound->bytes();
    const auto calls = [log = sound->log()](Call call) {
        const char* names[] = {"open", "close", "read", "write", "seek", "skip", "truncate", "sync"};
        const std::string name = names[static_cast<int>(call)];
        int count = 0;
        for (std::size_t at = log.find(name); at != std::string::npos; at = log.find(name, at + 1))
            ++count;
        return count;
    };
    ASSERT_TRUE(error.empty());
    int asItWas = 0, unfinished = 0;
    for (const Call call : {Call::kRead, Call::kWrite, Call::kSeek, Call::kTruncate, Call::kSync}) {
        for (const Fault fault :
             {Fault::kErrorFull, Fault::kErrorShort, Fault::kErrorNothing, Fault::kSilentShort}) {
            const bool moves = call == Call::kRead || call == Call::kWrite;
            if (!moves && fault != Fault::kErrorNothing) continue;
            for (const bool forEver : {false, true}) {
                for (int nth = 1; nth <= calls(call); ++nth) {
                    const auto stream = run(call, nth, fault, forEver, error);
                    const std::vector<unsigned char> bytes = stream->bytes();
                    SCOPED_TRACE(testing::Message() << static_cast<int>(call) << ' ' << nth << ", fault "
                                                    << static_cast<int>(fault) << ' ' << forEver);
                    if (error.empty()) {
                        // A tag that is cut short without a reason is damage elsewhere.
                        EXPECT_TRUE(bytes == after || (call == Call::kRead && fault == Fault::kSilentShort));
                        EXPECT_TRUE(frameOf(bytes) == frame_);
                        continue;
                    }
                    asItWas += bytes == before_;
                    unfinished += bytes != before_;
                    const bool mendable = !forEver || call == Call::kSync || call == Call::kRead;
                    EXPECT_EQ(difference(bytes, mendable ? before_ : bytes), "");
                    EXPECT_TRUE(frameOf(bytes) == frame_);
                    EXPECT_TRUE(isFinishedOrUnfinished(judge(bytes)));
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
    std::printf("%d times as it was, %d times unfinished\n", asItWas, unfinished);
}

// Up to each operation, and to each sector of it, as a kill or a power cut leaves the file.
TEST_P(SetNote, CutShortAtEachMoment) {
    struct Recorded : FaultStream {
        using FaultStream::FaultStream;
        int Write(const void* data, int size, int& got) override {
            constexpr int kSector = 512;
            const auto at = static_cast<long>(Tell());
            for (int part = 0; part < size; part += kSector - static_cast<int>((at + part) % kSector)) {
                Seek(at);
                FaultStream::Write(data, part, got);
                states.push_back(bytes());
            }
            Seek(at);
            const int code = FaultStream::Write(data, size, got);
            states.push_back(bytes());
            return code;
        }
        int Truncate() override {
            const int code = FaultStream::Truncate();
            states.push_back(bytes());
            return code;
        }
        std::vector<std::vector<unsigned char>> states;
    } stream(before_);
    stream.Open();
    ASSERT_EQ(MUtils::setNote(stream, stream, kNote).describe(), "");
    EXPECT_GE(stream.states.size(), GetParam().first ? 4u : 8u);
    for (const std::vector<unsigned char>& state : stream.states) {
        SCOPED_TRACE(&state - stream.states.data());
        EXPECT_TRUE(frameOf(state) == frame_);
        EXPECT_TRUE(isFinishedOrUnfinished(judge(state))) << MUtils::stateName(judge(state));
    }
    EXPECT_TRUE(isSound(judge(stream.states.back())));
}
