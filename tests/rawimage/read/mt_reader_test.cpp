#include "rawimage/read/mt_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "rawimage/read/accepting_callback.h"
#include "tests/testing/sample_file.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

// Named by programs outside.
static_assert(std::is_base_of_v<JobQueue, RIFileMT::RIFileJobManager>);

// A Reading on several threads.
struct Parallel {
    Parallel(const std::vector<unsigned char>& bytes, int threads) : stream(bytes), file(nullptr, threads) {
        stream.Open();
        (void)file.Open(nullptr, &stream);
    }
    int parse() { return file.ParseFile(seen); }

    FaultStream stream;
    RIFileMT file;
    CollectCallback seen;
};

// Buckets of which every payload is smaller than its values, in the middle of two lots of metadata.
Sample wideSample(bool closed = true, bool compressed = true) {
    SampleOptions options;
    options.compressed = compressed;
    options.bucketWidth = 24;
    options.bucketHeight = 16;
    options.closed = false;
    Sample sample = makeSample(options);
    options.closed = closed;
    options.buckets = 5;
    const Sample more = makeSample(options);
    const auto shift = static_cast<std::int64_t>(sample.bytes.size()) - 32;
    for (const std::int64_t offset : more.offsets)
        sample.offsets.push_back(offset + shift);
    sample.bytes.raw(more.bytes.data() + 32, more.bytes.size() - 32);
    sample.events.insert(sample.events.end(), more.events.begin(), more.events.end());
    return sample;
}

// One bucket, of which the first channel has four floats a value, and nothing after it.
Sample bucketSample(bool compressed) {
    SampleOptions options;
    options = {false, compressed, false, 1, 24, 16, 64};
    return makeSample(options);
}

// With another word in the header, or from 40 on in the payload, of its first pixel tag.
Bytes spoilt(Sample sample, int at, std::int32_t value) {
    MUtils::storeI32(sample.bytes.data() + sample.offset(sample.find(TAG_CHAN_FLOAT4)) + at, value);
    return sample.bytes;
}

bool isImageData(const Event& event) {
    return event.call == "setImageData";
}

// With the image data between two other events in one order.
std::vector<Event> ordered(std::vector<Event> events) {
    for (auto at = events.begin(); at != events.end();) {
        const auto first = std::find_if(at, events.end(), isImageData);
        at = std::find_if_not(first, events.end(), isImageData);
        std::sort(first, at);
    }
    return events;
}

std::ptrdiff_t runningThreads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task"), end;
    return std::distance(tasks, end);
}

// Threads that were joined are listed a little longer.
bool onlyThreads(std::ptrdiff_t count) {
    for (int tries = 0; tries < 1000 && runningThreads() != count; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return runningThreads() == count;
}

std::vector<std::string> sortedTags(const CollectCallback& seen) {
    std::vector<std::string> tags;
    for (const RIF_TAG& tag : seen.tags)
        tags.push_back(bytesOf(tag));
    std::sort(tags.begin(), tags.end());
    return tags;
}

// The parameter is the number of threads that is asked for.
class MTReader : public testing::TestWithParam<int> {
  protected:
    // Whether all is as in the sequential reader, down to the codes.
    bool sequential() const {
        return GetParam() == 1 || (GetParam() == 0 && MUtils::getNumProcessors() == 1);
    }
    // The results of both readers, and how often the multi-threaded one delivers image data.
    void expectCodes(
        const Bytes& bytes, int sequentialCode, int parallelCode, int delivered,
        const std::function<void(CollectCallback&)>& answers = [](CollectCallback&) {}) const {
        Reading reading(bytes);
        Parallel parallel(bytes, GetParam());
        answers(reading.seen);
        answers(parallel.seen);
        EXPECT_EQ(reading.parse(), sequentialCode);
        EXPECT_EQ(parallel.parse(), sequential() ? sequentialCode : parallelCode) << sequentialCode;
        EXPECT_EQ(parallel.seen.count("setImageData"),
                  sequential() ? reading.seen.count("setImageData") : delivered)
            << sequentialCode;
    }
};

INSTANTIATE_TEST_SUITE_P(Threads, MTReader, testing::Values(0, 1, 2, 4, 8));

// One object, one manager, different files one after the other.
TEST_P(MTReader, DeliversWhatTheSequentialReaderDelivers) {
    ThreadManager manager;
    RIFileMT file(&manager, GetParam());
    for (int variant = 0; variant < 16; ++variant) {
        SampleOptions raw;
        raw.compressed = false;
        raw.metadata = (variant & 1) != 0;
        raw.buckets = variant;
        const bool wide = (variant & 8) != 0;
        const Sample sample = wide ? wideSample(variant & 1, variant & 2) : makeSample(raw);
        Reading reading(sample.bytes);
        ASSERT_EQ(reading.parse(), 0);
        FaultStream stream(sample.bytes);
        if ((variant & 4) != 0) stream.hideLength();
        stream.Open();
        file.SetStream(&stream);
        CollectCallback seen;
        ASSERT_EQ(file.ParseFile(seen), 0);
        EXPECT_EQ(ordered(seen.events), ordered(sample.events)) << variant;
        EXPECT_EQ(sortedTags(seen), sortedTags(reading.seen));
    }
}

// What callbacks answer or edit outside pixel tags, and what they skip anywhere, goes alike with both
// readers.
TEST_P(MTReader, ObeysItsCallbackLikeTheSequentialReader) {
    std::vector<std::function<void(CollectCallback&)>> moods;
    for (std::uint32_t id = kFirstTagId; id <= kLastTagId; ++id) {
        moods.push_back([id](CollectCallback& seen) { seen.verdicts[id] = 2; });
        moods.push_back([id](CollectCallback& seen) { seen.verdicts[id] = isPixelTag(id) ? -1 : 0; });
    }
    for (const char* call :
         {"setResolution", "setNumChannels", "setChannel", "setCameraInfo", "setRenderRegion", "setPreview",
          "setSceneInfo", "setStampData", "setNote", "setOverlayTextData", "setMirtSettings", "askNote"}) {
        moods.push_back([call](CollectCallback& seen) { seen.refused = {call}; });
    }
    moods.push_back([](CollectCallback& seen) {
        seen.edit = [](RIF_TAG& tag) {
            if (tag.id == TAG_NOTE) tag.id = TAG_REGIONS_INFO;
            if (isPixelTag(tag.id)) tag.p8 += 100;
        };
    });
    const Sample sample = wideSample();
    for (const auto& mood : moods) {
        Reading reading(sample.bytes);
        Parallel parallel(sample.bytes, GetParam());
        for (CollectCallback* seen : {&reading.seen, &parallel.seen}) {
            seen->replacementNote = "replaced";
            mood(*seen);
        }
        const auto number = &mood - moods.data();
        EXPECT_EQ(parallel.parse(), reading.parse()) << number;
        EXPECT_EQ(ordered(parallel.seen.events), ordered(reading.seen.events)) << number;
        EXPECT_EQ(sortedTags(parallel.seen), sortedTags(reading.seen)) << number;
        EXPECT_EQ(difference(parallel.stream.bytes(), reading.stream.bytes()), "") << number;
    }
}

// The differences that are meant, and the codes of the file header.
TEST_P(MTReader, AnswersDamageInItsOwnWay) {
    const Sample zipped = bucketSample(true);
    const Sample raw = bucketSample(false);
    const auto cut = [](Bytes bytes, std::size_t size) {
        bytes.resize(size);
        return bytes;
    };
    expectCodes(zipped.bytes, 0, 0, 6);
    expectCodes(cut(zipped.bytes, 31), -2, -107, 0);
    expectCodes(Bytes().text("RIMX").zeros(28), -3, -108, 0);
    expectCodes(cut(zipped.bytes, static_cast<std::size_t>(zipped.offset(zipped.find(TAG_CHAN_INT))) + 20), 0,
                0, 2);
    expectCodes(cut(zipped.bytes, zipped.bytes.size() - 1), -13, 0, 5);
    expectCodes(cut(raw.bytes, raw.bytes.size() - 1), -16, 0, 5);
    expectCodes(spoilt(zipped, 4, 39), -13, -5, 0);
    expectCodes(spoilt(zipped, 40, 0), -14, 0, 5);
    expectCodes(spoilt(zipped, 20, 23), -14, 0, 5);
    expectCodes(spoilt(zipped, 20, 25), -15, 0, 5);
    expectCodes(spoilt(zipped, 20, 1 << 22), -15, 0, 5);
    expectCodes(spoilt(zipped, 20, -1), -14, 0, 5);
    expectCodes(spoilt(raw, 20, 23), 0, 0, 6);  // a longer payload: the first values count
    expectCodes(spoilt(raw, 20, 25), -16, 0, 5);
    expectCodes(spoilt(raw, 20, -1), -16, 0, 5);
    expectCodes(zipped.bytes, -9, 0, 4, [](CollectCallback& seen) { seen.verdicts[TAG_CHAN_FLOAT3] = 0; });
    expectCodes(zipped.bytes, -17, 0, 6, [](CollectCallback& seen) { seen.refused = {"setImageData"}; });
    // What is no longer a pixel tag has no values, and no operation that a worker may call.
    expectCodes(zipped.bytes, 0, 0, 5, [](CollectCallback& seen) {
        seen.edit = [](RIF_TAG& tag) { tag.id = tag.id == TAG_CHAN_INT ? TAG_CAMERA_INFO : tag.id; };
    });
    // The one goes on where the file says, the other where the edited tag says.
    expectCodes(zipped.bytes, 0, 0, 6, [](CollectCallback& seen) {
        seen.edit = [](RIF_TAG& tag) { tag.size += tag.id == TAG_REGIONS_INFO ? 1u << 30 : 0u; };
    });
    Parallel unopened(zipped.bytes, GetParam());
    for (PStream* stream : {static_cast<PStream*>(&unopened.stream), static_cast<PStream*>(nullptr)}) {
        unopened.stream.Close();
        unopened.file.SetStream(stream);
        EXPECT_EQ(unopened.parse(), sequential() ? -1 : -106);
    }
}

// Noise, ids and tiny buckets: what zlib makes larger is lost here, by contract, and nothing else is.
TEST_P(MTReader, DropsPayloadsLargerThanTheirValues) {
    for (const int size : {1, 5, 24}) {
        SampleOptions options;
        options.bucketWidth = options.bucketHeight = size;
        const Sample sample = makeSample(options);
        std::vector<Event> expected = sample.events;
        for (int i = sample.tagCount(); i-- > 0 && !sequential();) {
            const auto event = expected.begin() + sample.eventsBefore(i);
            if (isPixelTag(sample.tag(i).id) && sample.tag(i).size > event->bytes.size() + 40)
                expected.erase(event);
        }
        EXPECT_EQ(expected.size() == sample.events.size(), size == 24 || sequential());
        Parallel parallel(sample.bytes, GetParam());
        EXPECT_EQ(parallel.parse(), 0);
        EXPECT_EQ(ordered(parallel.seen.events), ordered(expected)) << size;
    }
    const unsigned char nothing[] = {0x78, 0xDA, 3, 0, 0, 0, 0, 1};
    expectCodes(Bytes().fileHeader(0).tag(TAG_CHAN_FLOAT, 8, {1}).raw(nothing, 8), 0, 0, 0);
}

// Exceptions out of parseTag of each kind of tag: on a worker they cost the tag, on the parsing thread they
// come out; the reader is fit for the next walk.
TEST_P(MTReader, OutlivesCallbacksThatThrow) {
    const Sample sample = wideSample();
    Parallel parallel(sample.bytes, GetParam());
    // A sanitizer starts a thread of its own with the first one of the program.
    std::thread([] {}).join();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const std::ptrdiff_t threads = runningThreads();
    for (std::uint32_t id = kFirstTagId; id <= kLastTagId; ++id) {
        const auto throwing = [id](RIF_TAG& tag) {
            if (tag.id == id) throw std::runtime_error("thrown");
        };
        Reading reading(sample.bytes);
        parallel.seen.edit = throwing;
        parallel.seen.events.clear();
        if (isPixelTag(id) && !sequential()) {
            reading.seen.verdicts[id] = 2;
            EXPECT_EQ(reading.parse(), 0);
            EXPECT_EQ(parallel.parse(), 0);
        } else {
            reading.seen.edit = throwing;
            EXPECT_THROW(reading.parse(), std::runtime_error) << id;
            EXPECT_THROW(parallel.parse(), std::runtime_error) << id;
        }
        EXPECT_EQ(ordered(parallel.seen.events), ordered(reading.seen.events)) << id;
        EXPECT_TRUE(onlyThreads(threads)) << "a worker is left";
        parallel.seen.edit = nullptr;
        parallel.seen.events.clear();
        ASSERT_EQ(parallel.parse(), 0);
        EXPECT_EQ(ordered(parallel.seen.events), ordered(sample.events));
    }
}

// Both readers make the same reads. Each fails in turn: what came before it is delivered.
TEST_P(MTReader, DeliversWhatCameBeforeAFailedRead) {
    const Sample sample = wideSample(false);
    int code = -1;
    int nth = 1;
    for (; code != 0; ++nth) {
        Reading reading(sample.bytes);
        Parallel parallel(sample.bytes, GetParam());
        reading.stream.failAt(Call::kRead, nth, Fault::kErrorNothing, true);
        parallel.stream.failAt(Call::kRead, nth, Fault::kErrorNothing, true);
        code = reading.parse();
        // At the end of the stream the sequential reader, and only that one, takes a failure for the end.
        const bool streams = code == 0 || code == -4 || code == -13;
        const int own = streams ? FaultStream::kError : code == -2 ? -107 : code;
        EXPECT_EQ(parallel.parse(), sequential() ? code : own) << nth;
        EXPECT_EQ(ordered(parallel.seen.events), ordered(reading.seen.events)) << nth;
    }
    EXPECT_GT(nth, 2 * sample.tagCount());
    Parallel parallel(sample.bytes, GetParam());
    parallel.stream.failAt(Call::kSeek, 2);
    EXPECT_EQ(parallel.parse(), sequential() ? -5 : FaultStream::kError);
}

// Tags of `bytes` each, uncompressed.
Bytes plainTags(int tags, int bytes) {
    Bytes file;
    file.fileHeader(0);
    file[20] = 0;
    for (int i = 0; i < tags; ++i)
        file.tag(TAG_CHAN_FLOAT, static_cast<std::uint32_t>(bytes), {1, 0, 0, bytes / 4, 1, 0, 0, i})
            .zeros(static_cast<std::size_t>(bytes));
    return file;
}

// Counts what was read and not delivered, and gives the reader time to run ahead.
struct AheadStream : FaultStream {
    using FaultStream::FaultStream;
    int Read(void* data, int size, int& got) override {
        const int code = FaultStream::Read(data, size, got);
        read += got;
        return code;
    }
    std::atomic<std::int64_t> read{0};
};

struct AheadCallback final : AcceptingCallback {
    explicit AheadCallback(const AheadStream& from) : stream(from) {}
    bool setImageData(const MBVTable& table, int count, int, int, int, int, int, int, int) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        const std::lock_guard<std::mutex> lock(mutex);
        most = std::max(most, stream.read - delivered);
        delivered += std::int64_t{count} * table.itemSize + kTagHeaderBytes;
        return true;
    }
    const AheadStream& stream;
    std::mutex mutex;  // guards what follows
    std::int64_t delivered = kFileHeaderBytes;
    std::int64_t most = 0;
};

// What is read and not delivered is bounded in bytes; small tags are read further ahead than large ones.
TEST(MTReaderMemory, HoldsAPayloadForEachThreadAndOneMore) {
    const struct {
        int threads, tags, bytes;
        std::int64_t payloads;  // the most that are held at a time
    } cases[] = {{2, 60, 300'000, 3},
                 {4, 80, 200'000, 5},
                 {2, 500, 4000, 3 * std::int64_t{RIFileMT::kBatchBytes} / 4000}};
    for (const auto& c : cases) {
        AheadStream stream(plainTags(c.tags, c.bytes));
        stream.Open();
        RIFileMT file(nullptr, c.threads);
        ASSERT_TRUE(file.Open(nullptr, &stream).empty());
        AheadCallback callback(stream);
        ASSERT_EQ(file.ParseFile(callback), 0);
        EXPECT_EQ(callback.delivered, stream.size());
        // And the header of the next one.
        EXPECT_LE(callback.most, c.payloads * (c.bytes + kTagHeaderBytes) + kTagHeaderBytes) << c.bytes;
        EXPECT_GT(callback.most, c.bytes) << "the reader waits for each tag";
    }
}

// Records that a read has reached the end.
struct EndingStream : FaultStream {
    using FaultStream::FaultStream;
    int Read(void* data, int size, int& got) override {
        const int code = FaultStream::Read(data, size, got);
        ended = ended || got == 0;
        return code;
    }
    std::atomic<bool> ended{false};
};

// Every call waits until the file has been read to its end and each of the threads is in a call.
struct TogetherCallback final : AcceptingCallback {
    TogetherCallback(const EndingStream& from, int threadCount) : stream(from), threads(threadCount) {}
    bool setImageData(const MBVTable&, int, int, int, int, int, int, int, int) override {
        std::unique_lock<std::mutex> lock(mutex);
        const int lastOfRound = (calls++ / threads + 1) * threads;
        arrived.notify_all();
        const auto together = [&] { return calls >= lastOfRound && stream.ended; };
        for (int tries = 0; !together() && !alone; ++tries) {
            arrived.wait_for(lock, std::chrono::milliseconds(10));
            alone = tries == 1000;
        }
        return true;
    }
    const EndingStream& stream;
    const int threads;
    std::mutex mutex;  // guards what follows
    std::condition_variable arrived;
    int calls = 0;
    bool alone = false;
};

// Tags with tiny payloads may have slow callbacks.
TEST(MTReaderJob, TagsThatAreLeftAtTheEndGoToAllThreads) {
    for (const int threads : {2, 4}) {
        const int tags = 5 * threads;
        EndingStream stream(plainTags(tags, 64));
        stream.Open();
        RIFileMT file(nullptr, threads);
        ASSERT_TRUE(file.Open(nullptr, &stream).empty());
        TogetherCallback callback(stream, threads);
        ASSERT_EQ(file.ParseFile(callback), 0);
        EXPECT_EQ(callback.calls, tags);
        EXPECT_FALSE(callback.alone) << threads;
    }
}

// The results of the jobs, which no one sees.
TEST(MTReaderJob, TellsWhatBecameOfItsTag) {
    const struct {
        int at;  // of the word of the only tag that is spoilt
        std::int32_t value;
        int verdict;
        const char* refused;
        int code;
    } cases[] = {
        {0, 270, 1, "", 0},    {0, 270, 2, "", 0},
        {0, 270, 0, "", -101}, {40, 0, 1, "", -102},
        {20, 25, 1, "", -103}, {20, 1 << 22, 1, "", -103},
        {20, -1, 1, "", -102}, {0, 270, 1, "setImageData", -105},
    };
    Sample sample = bucketSample(true);
    const auto first = sample.bytes.begin() + 32;
    sample.bytes.erase(first, sample.bytes.begin() + sample.offset(sample.find(TAG_CHAN_FLOAT4)));
    sample.bytes.resize(32 + decodeTag(sample.bytes.data() + 32).size);
    sample.offsets = {32};
    for (const auto& c : cases) {
        Parallel parallel(spoilt(sample, c.at, c.value), 2);
        parallel.seen.verdicts[TAG_CHAN_FLOAT4] = c.verdict;
        parallel.seen.refused = {c.refused};
        EXPECT_EQ(parallel.parse(), 0);
        EXPECT_EQ(parallel.file.ParsePixelsTagMT(0, 0), c.code) << c.at << ' ' << c.value;
    }
    sample.bytes[20] = 0;  // not compressed, so far too short
    Parallel raw(sample.bytes, 2);
    EXPECT_EQ(raw.parse(), 0);
    EXPECT_EQ(raw.file.ParsePixelsTagMT(0, 0), -104);
}

}  // namespace
