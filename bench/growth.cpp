// How cost grows with the number of buckets, of channels and with the bucket size, and what each compression
// level gives. scripts/bench_report.py draws what --benchmark_out has.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <utility>

#include "bench/rows.h"

using namespace MUtils;

namespace {

using bench::Frame;

// A frame of `count` buckets of `side` x `side` pixels with `channels` channels of one float: smooth values
// with noise in them, as a path tracer leaves them.
Frame makeFrame(int count, int side, int channels) {
    std::mt19937 random(7);
    std::normal_distribution<float> noise(0.0f, 0.01f);
    Frame frame;
    const auto columns = static_cast<int>(std::ceil(std::sqrt(count)));
    frame.width = columns * side;
    frame.height = (count + columns - 1) / columns * side;
    for (int c = 0; c < channels; ++c)
        frame.channels.push_back(makeChannel(c, RCT_FLOAT, RCA_NONE, 0, ("c" + std::to_string(c)).c_str()));
    std::vector<float> values(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
    for (int i = 0; i < count; ++i) {
        bench::Bucket bucket;
        bucket.x = i % columns * side, bucket.y = i / columns * side, bucket.width = bucket.height = side;
        for (int c = 0; c < channels; ++c) {
            for (std::size_t v = 0; v < values.size(); ++v)
                values[v] =
                    std::sin(static_cast<float>(v) * 0.001f + static_cast<float>(i + c)) + noise(random);
            auto table = bench::makeTable(side * side, 4);
            table->loadFromBuffer(values.data(), side * side);
            bucket.values.push_back(std::move(table));
        }
        frame.buckets.push_back(std::move(bucket));
    }
    return frame;
}

enum Job { kWrite, kRead, kList, kScan };

// Arguments: buckets, side, channels.
void growth(benchmark::State& state, Job job) {
    static std::map<std::string, Frame> frames;
    const int count = static_cast<int>(state.range(0)), side = static_cast<int>(state.range(1)),
              channels = static_cast<int>(state.range(2));
    const std::string key =
        std::to_string(count) + '/' + std::to_string(side) + '/' + std::to_string(channels);
    auto found = frames.find(key);
    if (found == frames.end()) {
        frames.clear();
        found = frames.emplace(key, makeFrame(count, side, channels)).first;
    }
    const Frame& frame = found->second;
    PMemStream stream(static_cast<int>(frame.rawBytes() * 5 / 4 + (1 << 20)));
    bench::writeFrame(frame, &stream, "", 1, 1);
    if (job == kScan) {
        // As if it had never been closed.
        const unsigned char noTable[8] = {};
        int written = 0;
        stream.Open();
        stream.Seek(kTableOffsetPosition);
        stream.Write(noTable, sizeof noTable, written);
    }
    bench::DroppingCallback dropping;
    for (auto _ : state) {
        RIFile file;
        stream.Open();
        bool good = true;
        switch (job) {
            case kWrite: bench::writeFrame(frame, &stream, "", 1, 1); break;
            case kRead: good = file.Open(nullptr, &stream).empty() && file.ParseFile(dropping) == 0; break;
            default: good = file.Open(nullptr, &stream).empty() && file.ReadInfoTags(nullptr) == 0; break;
        }
        if (!good) return state.SkipWithError("the job failed");
    }
    state.counters["tags"] = static_cast<double>(count) * channels;
    state.counters["rawBytes"] = static_cast<double>(frame.rawBytes());
}

// All jobs on one frame, before the next one is made.
void registerJobs(int buckets, int side, int channels) {
    constexpr std::pair<const char*, Job> kJobs[] = {
        {"write", kWrite}, {"read", kRead}, {"table", kList}, {"scan", kScan}};
    for (const auto& [name, job] : kJobs) {
        benchmark::RegisterBenchmark(name, growth, job)
            ->ArgNames({"buckets", "side", "channels"})
            ->Args({buckets, side, channels})
            ->Unit(benchmark::kMillisecond);
    }
}

void registerGrowth() {
    for (const int thousands : {1, 4, 16, 64})
        registerJobs(thousands * 1024, 16, 1);
    for (const int channels : {4, 16, 64})
        registerJobs(64, 32, channels);
    for (const int side : {16, 32, 64, 128, 256})
        registerJobs(1024 * 1024 / (side * side), side, 2);
}

void level(benchmark::State& state, const char* name, std::size_t every) {
    static std::map<std::string, Frame> frames;
    const char* folder = std::getenv("RAWIMAGE_BENCH_DATA");
    const std::string path =
        std::string(folder != nullptr ? folder : "build/bench-data") + '/' + name + ".rimg";
    if (frames.count(name) == 0) {
        try {
            frames[name] = Frame::load(path, every);
        } catch (const std::exception&) {
            frames.erase(name);
            return state.SkipWithError("there is no such frame");
        }
    }
    const Frame& frame = frames[name];
    PMemStream stream(static_cast<int>(frame.rawBytes()));
    for (auto _ : state) {
        // What an earlier, larger file left must not count.
        stream.Open();
        stream.Truncate();
        bench::writeFrame(frame, &stream, "", 1, static_cast<int>(state.range(0)));
    }
    state.counters["rawBytes"] = static_cast<double>(frame.rawBytes());
    state.counters["fileBytes"] = static_cast<double>(stream.Length());
}

}  // namespace

int main(int argc, char** argv) {
    if (std::strcmp(RAWIMAGE_BUILD_TYPE, "Release") != 0) {
        std::fprintf(stderr,
                     "bench_growth: this is a %s build; figures of any but a Release build mean nothing\n",
                     RAWIMAGE_BUILD_TYPE);
        return 2;
    }
    benchmark::AddCustomContext("build", RAWIMAGE_BUILD_TYPE);
    benchmark::AddCustomContext("compiler", __VERSION__);
    registerGrowth();
    benchmark::RegisterBenchmark("level/demo", level, "demo", 8)
        ->DenseRange(1, 9)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("level/real", level, "real", 2)
        ->DenseRange(1, 9)
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
