// Writing and reading a raw image file against the plain zlib calls on the same payloads, in the same run.
// Each counter "ratio" is this module's time over the plain loop's; both are timed in turn, round by round,
// so that a machine whose speed drifts drifts for both.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "rawimage/read/callback.h"
#include "rawimage/read/mt_reader.h"
#include "rawimage/writer.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr int kBucket = 64;
constexpr int kBuckets = 12;
constexpr RegionChannelType kTypes[] = {RCT_COLOR,  RCT_COLOR, RCT_FLOAT, RCT_VECTOR,
                                        RCT_FLOAT2, RCT_INT,   RCT_FLOAT4};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int valueSize(RegionChannelType type) {
    return findChannelKind(type)->valueSize;
}

// Buckets of smooth values with noise in them, as a path tracer leaves them; ids come in runs.
struct Frame {
    std::vector<std::unique_ptr<MBVTable>> tables;
    std::vector<Bytes> raw;     // each channel of each bucket, as it is before compression
    std::vector<Bytes> zipped;  // and after
    std::size_t rawBytes = 0;

    Frame() {
        std::mt19937 random(7);
        std::normal_distribution<float> noise(0.0f, 0.01f);
        for (int bucket = 0; bucket < kBuckets; ++bucket) {
            for (const RegionChannelType type : kTypes)
                addChannel(bucket, type, [&] { return noise(random); });
        }
    }

    template <class Noise>
    void addChannel(int bucket, RegionChannelType type, Noise noise) {
        const int size = valueSize(type);
        Bytes bytes(static_cast<std::size_t>(kBucket * kBucket * size));
        for (std::size_t i = 0; i < bytes.size() / 4; ++i) {
            const float smooth = std::sin(static_cast<float>(i) * 0.001f + static_cast<float>(bucket)) + 1.5f;
            const float value = smooth + noise();
            const auto id = static_cast<std::int32_t>(smooth * 4);
            std::memcpy(&bytes[4 * i], type == RCT_INT ? static_cast<const void*>(&id) : &value, 4);
        }
        auto table = std::make_unique<MBVTable>(size, kBucket * kBucket * size);
        table->setCount(kBucket * kBucket);
        table->loadFromBuffer(bytes.data(), kBucket * kBucket);
        Bytes out(compressBound(static_cast<uLong>(bytes.size())));
        uLongf length = static_cast<uLongf>(out.size());
        compress2(out.data(), &length, bytes.data(), static_cast<uLong>(bytes.size()), kCompressionLevel);
        out.resize(length);
        rawBytes += bytes.size();
        tables.push_back(std::move(table));
        raw.push_back(std::move(bytes));
        zipped.push_back(std::move(out));
    }
};

const Frame& frame() {
    static const Frame made;
    return made;
}

bool writeFile(PStream& stream) {
    RIFile file;
    bool good = file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty();
    MRRegionData region;
    region.width = region.height = kBucket;
    std::size_t next = 0;
    for (int bucket = 0; bucket < kBuckets && good; ++bucket) {
        region.channels.setCount(0);
        for (const RegionChannelType type : kTypes) {
            region.channels.Add({type, "", RCA_NONE, frame().tables[next++].get(), 0});
        }
        good = file.WTRegion(&region, 0, 0, 0).empty();
    }
    return file.Close().empty() && good;
}

// The floor: nothing but the compression of the same payloads to a buffer that is there already.
bool plainCompress() {
    static Bytes out(compressBound(kBucket * kBucket * 16));
    bool good = true;
    for (const Bytes& bytes : frame().raw) {
        uLongf length = static_cast<uLongf>(out.size());
        good &= compress2(out.data(), &length, bytes.data(), static_cast<uLong>(bytes.size()),
                          kCompressionLevel) == Z_OK;
    }
    return good;
}

bool plainUncompress() {
    static Bytes out(kBucket * kBucket * 16);
    bool good = true;
    for (const Bytes& bytes : frame().zipped) {
        uLongf length = static_cast<uLongf>(out.size());
        good &= uncompress(out.data(), &length, bytes.data(), static_cast<uLong>(bytes.size())) == Z_OK;
    }
    return good;
}

class Counting final : public RIFileCallback {
  public:
    bool setResolution(int, int, float) override { return true; }
    bool setNumChannels(int) override { return true; }
    bool setChannel(int, RegionChannelType, RegionChannelAlias, const char*) override { return true; }
    bool setImageData(const MBVTable& data, int count, int, int, int, int, int, int, int) override {
        bytes += static_cast<std::size_t>(count) * static_cast<std::size_t>(data.itemSize);
        return true;
    }
    std::atomic<std::size_t> bytes{0};
};

template <class Ours, class Plain>
void compare(benchmark::State& state, Ours ours, Plain plain) {
    double oursTime = 0;
    double plainTime = 0;
    if (!ours() || !plain()) return state.SkipWithError("the result is wrong");
    for (auto _ : state) {
        auto start = Clock::now();
        const bool good = ours();
        const double seconds = secondsSince(start);
        start = Clock::now();
        if (!plain() || !good) return state.SkipWithError("the result is wrong");
        plainTime += secondsSince(start);
        oursTime += seconds;
        state.SetIterationTime(seconds);
    }
    state.counters["ratio"] = oursTime / plainTime;
    state.SetBytesProcessed(static_cast<std::int64_t>(frame().rawBytes) *
                            static_cast<std::int64_t>(state.iterations()));
}

void writing(benchmark::State& state) {
    PMemStream stream(1 << 24);
    compare(
        state, [&stream] { return stream.Open() == 0 && writeFile(stream); }, plainCompress);
}

// With 0 threads the sequential reader.
void reading(benchmark::State& state) {
    PMemStream stream(1 << 24);
    stream.Open();
    if (!writeFile(stream)) return state.SkipWithError("cannot write");
    ThreadManager threads;
    std::unique_ptr<RIFile> file = std::make_unique<RIFile>();
    if (state.range(0) > 0) file = std::make_unique<RIFileMT>(&threads, static_cast<int>(state.range(0)));
    compare(
        state,
        [&] {
            Counting counting;
            stream.Open();
            return file->Open(nullptr, &stream).empty() && file->ParseFile(counting) == 0 &&
                   counting.bytes == frame().rawBytes;
        },
        plainUncompress);
}

BENCHMARK(writing)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(reading)->ArgName("threads")->Arg(0)->Arg(1)->Arg(2)->UseManualTime()->Unit(
    benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (std::strcmp(RAWIMAGE_BUILD_TYPE, "Release") != 0) {
        std::fprintf(stderr, "warning: this is a %s build, its figures mean nothing\n", RAWIMAGE_BUILD_TYPE);
    }
    benchmark::AddCustomContext("rawimage build", RAWIMAGE_BUILD_TYPE);
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
