#include "rawimage/region_packer.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "support/scratch_buffer.h"

// Packing of regions on several threads. Every thread takes the next channel off the sequence under the
// mutex, packs it with memory of its own while the mutex is free, marks it as done, and goes on. A thread
// that finds the sequence used up pulls the next region off the feed, whose channels become the sequence, the
// most expensive first, by what the channel at each place has cost of late. One thread at a time pulls; while
// it waits for the feed, those that are left without work wait for it.
//
// The writer asks for the channels in the order of the file. take() returns as soon as the one asked for is
// done; while it is not, the writer's thread packs others, or pulls a region that is there, and waits only
// when there is neither. It waits for the feed only while no region is under way.
//
// How far the other threads may be ahead of the writer is bounded by the packed bytes that wait for it.

namespace MUtils {
inline namespace v1 {

namespace {

// Regions that a channel's cost is averaged over: a single one may have nothing in it.
constexpr std::int64_t kCostMemory = 32;

// Packed bytes that may always wait for the writer.
constexpr std::int64_t kWaitingBytes = 4 << 20;

}  // namespace

RegionPacker::RegionPacker(ThreadManager* manager, int threads) {
    setThreadManager(manager);
    startThreads(threads - 1, threads - 1);
    tools_ = std::vector<Tools>(static_cast<std::size_t>(numThreads()) + 1);
    for (Tools& tools : tools_)
        tools.memStream.Open();
}

RegionPacker::~RegionPacker() {
    finish();
    releaseThreads();
}

void RegionPacker::start(RegionFeed& feed, const CompressionSetting& setting, int threads) {
    finish();
    feed_ = &feed;
    setting_ = setting;
    threads_ = std::min(threads, numThreads() + 1);
    ended_ = false;
    // No other thread has begun, so that the writer finds the first region on its own: a feed of one is
    // packed without waiting for anybody.
    Lock lock(mutex_);
    pull(lock, true);
    lock.unlock();
    for (int i = 1; i < threads_; ++i)
        enqueueJob(nullptr, acquireJobIndex(), nullptr);
}

const std::vector<ChannelTag>* RegionPacker::nextRegion() {
    Lock lock(mutex_);
    if (std::exchange(taken_, false)) {
        letGo(std::move(regions_.front()));
        regions_.erase(regions_.begin());
        changed_.notify_all();
    }
    while (regions_.empty() && !ended_) {
        if (pulling_) {
            changed_.wait(lock);
        } else {
            pull(lock, true);
        }
    }
    if (regions_.empty() && failure_ != nullptr) std::rethrow_exception(std::exchange(failure_, nullptr));
    if (regions_.empty()) return nullptr;
    taken_ = true;
    return &regions_.front()->channels;
}

const char* RegionPacker::take(std::size_t index, const unsigned char*& bytes, std::size_t& size) {
    Lock lock(mutex_);
    const Packed& packed = regions_.front()->packed[index];
    bool feedIsEmpty = false;
    while (!packed.done) {
        if (next_ < sequence_.size()) {
            packNext(lock, tools_.back());
        } else if (!feedIsEmpty && mayPull()) {
            feedIsEmpty = !pull(lock, false);
        } else {
            changed_.wait(lock);
            feedIsEmpty = false;
        }
    }
    bytes = packed.bytes.data();
    size = packed.size;
    return packed.failure;
}

void RegionPacker::finish() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
        next_ = sequence_.size();
    }
    changed_.notify_all();
    if (feed_ != nullptr) feed_->end();
    waitJobs(nullptr);
    feed_ = nullptr;
    taken_ = false;
    failure_ = nullptr;
    for (std::unique_ptr<Region>& region : regions_)
        letGo(std::move(region));
    regions_.clear();
}

int RegionPacker::jobProc(int threadIndex, int /*jobIndex*/, void* /*data*/) {
    Lock lock(mutex_);
    for (;;) {
        if (next_ < sequence_.size()) {
            packNext(lock, tools_[static_cast<std::size_t>(threadIndex)]);
            changed_.notify_all();
        } else if (ended_) {
            return 0;
        } else if (mayPull()) {
            pull(lock, true);
        } else {
            changed_.wait(lock);
        }
    }
}

// False while another thread pulls, and while too much is packed that the writer has not taken: half of the
// raw bytes of a region, or for many threads as many as they may have in work.
bool RegionPacker::mayPull() const {
    if (ended_ || pulling_) return false;
    const std::int64_t region = regions_.empty() ? 0 : regions_.back()->rawBytes;
    return packedBytes_ <= std::max(kWaitingBytes, region / 4 * threads_);
}

// Takes the next region off the feed, which is asked without the mutex. False when there is none.
bool RegionPacker::pull(Lock& lock, bool wait) {
    std::unique_ptr<Region> region;
    if (!unused_.empty()) {
        region = std::move(unused_.back());
        unused_.pop_back();
    }
    pulling_ = true;
    lock.unlock();
    RegionFeed::Call call;
    bool got = false;
    std::exception_ptr failure;
    try {
        if (region == nullptr) region = std::make_unique<Region>();
        got = feed_->next(wait, call);
        if (got) listChannelTags(call, region->channels);
        if (got && region->packed.size() < region->channels.size())
            region->packed.resize(region->channels.size());
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    pulling_ = false;
    if (failure != nullptr) failure_ = failure;
    if (failure != nullptr || (wait && !got)) ended_ = true;
    const bool begun = got && !ended_;
    if (begun) {
        begin(std::move(region));
    } else if (region != nullptr) {
        unused_.push_back(std::move(region));
    }
    changed_.notify_all();
    return begun;
}

// Makes the region's channels the sequence.
void RegionPacker::begin(std::unique_ptr<Region> region) {
    region->rawBytes = 0;
    sequence_.clear();
    if (costs_.size() < region->channels.size()) costs_.resize(region->channels.size());
    for (std::size_t i = 0; i < region->channels.size(); ++i) {
        const std::int64_t bytes = region->channels[i].bytes();
        region->packed[i].done = false;
        if (bytes < 0 || region->channels[i].data->capacity == 0) continue;
        sequence_.push_back(i);
        region->rawBytes += bytes;
        if (!costs_[i].known) costs_[i].time = bytes;
    }
    // The dearest first, so that no thread is left with one at the end.
    std::stable_sort(sequence_.begin(), sequence_.end(),
                     [this](std::size_t a, std::size_t b) { return costs_[a].time > costs_[b].time; });
    next_ = 0;
    regions_.push_back(std::move(region));
}

void RegionPacker::packNext(Lock& lock, Tools& tools) {
    using Clock = std::chrono::steady_clock;
    const std::size_t index = sequence_[next_++];
    Region& region = *regions_.back();
    Packed& packed = region.packed[index];
    const CompressionSetting setting = setting_;
    lock.unlock();
    const Clock::time_point begun = Clock::now();
    pack(region.channels[index], packed, setting, tools);
    const std::int64_t time = std::chrono::nanoseconds(Clock::now() - begun).count();
    lock.lock();
    packed.done = true;
    if (packed.failure == nullptr) {
        region.packedBytes += static_cast<std::int64_t>(packed.size);
        packedBytes_ += static_cast<std::int64_t>(packed.size);
    }
    Cost& cost = costs_[index];
    cost.time = cost.known ? cost.time + (time - cost.time) / kCostMemory : time;
    cost.known = true;
}

void RegionPacker::pack(const ChannelTag& channel, Packed& packed, const CompressionSetting& setting,
                        Tools& tools) {
    const std::int64_t size = channel.bytes();
    const std::int64_t count = size / findChannelKind(channel.type)->valueSize;
    packed.failure = packChannel(*channel.data, static_cast<int>(count), static_cast<int>(size), setting,
                                 tools.deflater, tools.memStream, tools.zipBuf, packed.size);
    if (packed.failure == nullptr && !tryReserve(packed.bytes, packed.size)) packed.failure = kNotPacked;
    if (packed.failure == nullptr) std::memcpy(packed.bytes.data(), tools.zipBuf.data(), packed.size);
}

void RegionPacker::letGo(std::unique_ptr<Region> region) {
    packedBytes_ -= std::exchange(region->packedBytes, 0);
    unused_.push_back(std::move(region));
}

}  // namespace v1
}  // namespace MUtils
