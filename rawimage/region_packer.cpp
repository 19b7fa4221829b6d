#include "rawimage/region_packer.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "support/scratch_buffer.h"

// Packing of a region on several threads. start() puts the region's channels into a sequence, the most
// expensive first, by what the channel at each place has cost of late, and enqueues a job for every thread
// but the writer's. A job takes the next channel off the sequence under the mutex, packs it with memory of
// its thread while the mutex is free, marks it as done, and goes on until the sequence is at its end.
//
// The writer asks for the channels in the order of the file. take() returns as soon as the one asked for is
// done; while it is not, the writer's thread packs others from the sequence, and waits only when there are
// none. A channel that is done before its turn waits with its packed bytes, so the raw values in work are
// those of one channel for each thread.

namespace MUtils {
inline namespace v1 {

namespace {

// Regions that a channel's cost is averaged over: a single one may have nothing in it.
constexpr std::int64_t kCostMemory = 32;

}  // namespace

RegionPacker::RegionPacker(ThreadManager* manager, int threads) {
    setThreadManager(manager);
    startThreads(threads - 1, threads - 1);
    tools_ = std::vector<Tools>(static_cast<std::size_t>(numThreads()) + 1);
    for (Tools& tools : tools_)
        tools.memStream.Open();
}

RegionPacker::~RegionPacker() {
    abandon();
    releaseThreads();
}

void RegionPacker::start(const std::vector<Order>& orders, const CompressionSetting& setting) {
    abandon();
    setting_ = setting;
    if (packed_.size() < orders.size()) packed_ = std::vector<Packed>(orders.size());
    sequence_.clear();
    for (std::size_t i = 0; i < orders.size(); ++i) {
        Packed& packed = packed_[i];
        packed.order = orders[i];
        packed.done = false;
        if (!packed.timed) packed.cost = orders[i].size;
        if (orders[i].data != nullptr) sequence_.push_back(i);
    }
    // The dearest first, so that no thread is left with one at the end.
    std::stable_sort(sequence_.begin(), sequence_.end(),
                     [this](std::size_t a, std::size_t b) { return packed_[a].cost > packed_[b].cost; });
    next_ = 0;
    for (std::size_t i = 1; i < std::min(tools_.size(), sequence_.size()); ++i)
        enqueueJob(nullptr, acquireJobIndex(), nullptr);
}

const char* RegionPacker::take(std::size_t index, const unsigned char*& bytes, std::size_t& size) {
    std::unique_lock<std::mutex> lock(mutex_);
    const Packed& packed = packed_[index];
    while (!packed.done) {
        if (next_ < sequence_.size()) {
            packNext(lock, tools_.back());
        } else {
            done_.wait(lock);
        }
    }
    bytes = packed.bytes.data();
    size = packed.size;
    return packed.failure;
}

void RegionPacker::abandon() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        next_ = sequence_.size();
    }
    waitJobs(nullptr);
}

int RegionPacker::jobProc(int threadIndex, int /*jobIndex*/, void* /*data*/) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (next_ < sequence_.size()) {
        packNext(lock, tools_[static_cast<std::size_t>(threadIndex)]);
        done_.notify_one();
    }
    return 0;
}

void RegionPacker::packNext(std::unique_lock<std::mutex>& lock, Tools& tools) {
    Packed& packed = packed_[sequence_[next_++]];
    lock.unlock();
    pack(packed, setting_, tools);
    lock.lock();
    packed.done = true;
}

void RegionPacker::pack(Packed& packed, const CompressionSetting& setting, Tools& tools) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begun = Clock::now();
    const Order& order = packed.order;
    packed.failure = packChannel(*order.data, order.count, order.size, setting, tools.deflater,
                                 tools.memStream, tools.zipBuf, packed.size);
    if (packed.failure == nullptr && !tryReserve(packed.bytes, packed.size)) packed.failure = kNotPacked;
    if (packed.failure == nullptr) std::memcpy(packed.bytes.data(), tools.zipBuf.data(), packed.size);
    const std::int64_t cost = std::chrono::nanoseconds(Clock::now() - begun).count();
    packed.cost = packed.timed ? packed.cost + (cost - packed.cost) / kCostMemory : cost;
    packed.timed = true;
}

}  // namespace v1
}  // namespace MUtils
