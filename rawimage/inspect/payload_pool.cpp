#include "rawimage/inspect/payload_pool.h"

#include <algorithm>
#include <new>

#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kTagsBetweenCalls = 64;  // of the progress
constexpr std::size_t kTagsForAThread = 8;     // fewer are done before another thread has begun
constexpr int kSlotsForAThread = 4;            // so that the reading thread is seldom waited for
// What is handed over at a time: to wake a worker for each payload of a few bytes costs more than its check.
constexpr std::size_t kSlotBytes = 1 << 15;
constexpr std::size_t kSlotTags = 64;

}  // namespace

PayloadPool::PayloadPool(PStream& stream, int threads, const TagRules& rules)
    : stream_(stream),
      rules_(rules),
      threads_(threads < 1 ? getNumProcessors() : std::min(threads, kMaxThreads)) {}

PayloadPool::~PayloadPool() {
    releaseThreads();
}

void PayloadPool::begin(std::size_t tags) {
    const auto useful = static_cast<int>(std::min<std::size_t>(1 + tags / kTagsForAThread, kMaxThreads));
    const int threads = std::min(threads_, useful);
    threaded_ = threads > 1;
    if (threaded_) startThreads(threads, kSlotsForAThread * (threads + 1));
    checks_.clear();
    for (int i = 0; i < (threaded_ ? numThreads() : 1); ++i)
        checks_.emplace_back(rules_);
    slots_ = std::vector<Slot>(threaded_ ? static_cast<std::size_t>(numSlots()) : 1);
    filling_ = -1;
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
        if (going && wanted(tags[i])) add(tags[i], i);
    }
    handOver();
    if (threaded_) waitJobs(nullptr);
    releaseThreads();
    if (outOfMemory_) throw std::bad_alloc();
    std::sort(bad_.begin(), bad_.end(), [](const Bad& a, const Bad& b) { return a.index < b.index; });
    bad.swap(bad_);
    return going;
}

void PayloadPool::add(const INFOTAG& tag, std::size_t index) {
    Slot& slot = slotFor(static_cast<std::size_t>(tag.payloadBytes()));
    if (read(tag, slot)) {
        slot.items.push_back({tag, index, slot.used});
        slot.used += static_cast<std::size_t>(tag.payloadBytes());
    } else {
        addBad(index, "payload cannot be read");
    }
}

// The slot that is being filled when it has room for `size` more bytes, else an empty one.
PayloadPool::Slot& PayloadPool::slotFor(std::size_t size) {
    if (filling_ >= 0) {
        Slot& slot = slots_[static_cast<std::size_t>(filling_)];
        if (slot.used + size <= kSlotBytes && slot.items.size() < kSlotTags) return slot;
        handOver();
    }
    filling_ = threaded_ ? acquireJobIndex() : 0;
    Slot& slot = slots_[static_cast<std::size_t>(filling_)];
    slot.items.clear();
    slot.used = 0;
    makeRoom(slot, std::max(size, kSlotBytes));
    return slot;
}

bool PayloadPool::read(const INFOTAG& tag, Slot& slot) {
    const auto offset = static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes;
    const std::int64_t size = tag.payloadBytes();
    if (slot.used == 0) return readPayloadAt(stream_, offset, size, slot.bytes);
    return stream_.Seek(static_cast<long>(offset)) == 0 &&
           readExactly(stream_, slot.bytes.data() + slot.used, static_cast<int>(size));
}

void PayloadPool::handOver() {
    if (filling_ < 0) return;
    const int slot = filling_;
    filling_ = -1;
    if (threaded_) {
        enqueueJob(nullptr, slot, nullptr);
    } else {
        examine(checks_[0], slots_[static_cast<std::size_t>(slot)]);
    }
}

// Once the slots hold too much together, all give it back, so that after a run of large payloads the small
// ones do not pay for them.
void PayloadPool::makeRoom(Slot& slot, std::size_t size) {
    if (size <= slot.bytes.capacity) return;
    if (held_ + size > kMaxHeldBytes) {
        if (threaded_) waitJobs(nullptr);
        for (Slot& other : slots_)
            release(other.bytes);
        held_ = 0;
    }
    held_ += size - slot.bytes.capacity;
    reserve(slot.bytes, size);
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
    for (const Item& item : slot.items) {
        const char* cause = check.fault(item.tag, slot.bytes.data() + item.start,
                                        static_cast<std::size_t>(item.tag.payloadBytes()));
        if (cause != nullptr) addBad(item.index, cause);
    }
}

void PayloadPool::addBad(std::size_t index, const char* cause) {
    const std::lock_guard<std::mutex> lock(badMutex_);
    bad_.push_back({index, cause});
}

}  // namespace v1
}  // namespace MUtils
