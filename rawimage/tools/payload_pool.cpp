#include "rawimage/tools/payload_pool.h"

#include <algorithm>
#include <new>

#include "rawimage/read/tag_decoder.h"

namespace MUtils {

namespace {

constexpr std::size_t kTagsBetweenCalls = 64;  // of the progress
constexpr std::size_t kTagsForAThread = 8;     // fewer are done before another thread has begun

}  // namespace

bool readPayloadAt(PStream& stream, std::int64_t offset, std::int64_t size, ScratchBuffer& buffer) {
    return stream.Seek(static_cast<long>(offset)) == 0 && readPayload(stream, size, buffer);
}

PayloadPool::PayloadPool(PStream& stream, int threads, bool compressed)
    : stream_(stream),
      compressed_(compressed),
      threads_(threads < 1 ? getNumProcessors() : std::min(threads, kMaxThreads)) {}

PayloadPool::~PayloadPool() {
    releaseThreads();
}

void PayloadPool::begin(std::size_t tags) {
    const auto useful = static_cast<int>(std::min<std::size_t>(1 + tags / kTagsForAThread, kMaxThreads));
    const int threads = std::min(threads_, useful);
    threaded_ = threads > 1;
    if (threaded_) startThreads(threads, threads + 1);
    checks_ = std::vector<PayloadCheck>(threaded_ ? static_cast<std::size_t>(numThreads()) : 1);
    slots_ = std::vector<Slot>(threaded_ ? static_cast<std::size_t>(numSlots()) : 1);
    held_ = 0;
    bad_.clear();
}

bool PayloadPool::check(const std::vector<INFOTAG>& tags, const std::function<bool(const RIF_TAG&)>& wanted,
                        const Progress& progress, std::vector<Bad>& bad) {
    begin(tags.size());
    const std::int64_t total = stream_.Length();
    bool going = true;
    for (std::size_t i = 0; i < tags.size() && going; ++i) {
        if (progress && i % kTagsBetweenCalls == 0)
            going = progress(static_cast<std::int64_t>(tags[i].offset), total);
        if (going && wanted(tags[i])) enqueue(tags[i], i);
    }
    if (threaded_) waitJobs(nullptr);
    releaseThreads();
    if (outOfMemory_) throw std::bad_alloc();
    std::sort(bad_.begin(), bad_.end(), [](const Bad& a, const Bad& b) { return a.index < b.index; });
    bad.swap(bad_);
    return going;
}

void PayloadPool::enqueue(const INFOTAG& tag, std::size_t index) {
    const int slotIndex = threaded_ ? acquireJobIndex() : 0;
    Slot& slot = slots_[static_cast<std::size_t>(slotIndex)];
    slot.tag = tag;
    slot.index = index;
    makeRoom(slot, static_cast<std::size_t>(tag.payloadBytes()));
    const auto offset = static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes;
    const bool read = readPayloadAt(stream_, offset, tag.payloadBytes(), slot.payload);
    if (!read) addBad(index, "payload cannot be read");
    if (!threaded_) {
        if (read) examine(checks_[0], slot);
    } else if (read) {
        enqueueJob(nullptr, slotIndex, nullptr);
    } else {
        cancelJob(slotIndex);
    }
}

// Once the slots hold too much together, all give it back, so that after a run of large payloads the small
// ones do not pay for them.
void PayloadPool::makeRoom(Slot& slot, std::size_t size) {
    if (size <= slot.payload.capacity()) return;
    if (held_ + size > kMaxHeldBytes) {
        if (threaded_) waitJobs(nullptr);
        for (Slot& other : slots_)
            other.payload.release();
        held_ = 0;
    }
    held_ += size - slot.payload.capacity();
    slot.payload.reserve(size);
}

int PayloadPool::jobProc(int threadIndex, int jobIndex, void* /*data*/) {
    // An exception would end in the queue, and the payload would pass for sound.
    try {
        examine(checks_[static_cast<std::size_t>(threadIndex)], slots_[static_cast<std::size_t>(jobIndex)]);
    } catch (const std::bad_alloc&) {
        outOfMemory_ = true;
    }
    return 0;
}

void PayloadPool::examine(PayloadCheck& check, const Slot& slot) {
    const char* cause = check.fault(slot.tag, slot.payload.data(),
                                    static_cast<std::size_t>(slot.tag.payloadBytes()), compressed_);
    if (cause != nullptr) addBad(slot.index, cause);
}

void PayloadPool::addBad(std::size_t index, const char* cause) {
    const std::lock_guard<std::mutex> lock(badMutex_);
    bad_.push_back({index, cause});
}

}  // namespace MUtils
