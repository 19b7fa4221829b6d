#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "rawimage/inspect/tag_check.h"
#include "support/bounded_read.h"
#include "support/job_queue.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Checks the payloads of many tags on several threads; the calling thread reads. Small ones are handed over
// several at a time. What is held is bounded by kMaxHeldBytes, or by a single payload that is larger.
class PayloadPool final : private JobQueue {
  public:
    static constexpr std::size_t kMaxHeldBytes = 64 << 20;

    // A tag that is not sound: its place in the list that was checked, and why.
    struct Bad {
        std::size_t index;
        const char* cause;
    };
    using Progress = std::function<bool(std::int64_t done, std::int64_t total)>;

    // `threads` below 1: one for each processor. 1 does everything on the calling thread.
    PayloadPool(PStream& stream, int threads, const TagRules& rules);
    ~PayloadPool();

    // Checks those of `tags` that `wanted` picks and fills `bad`, in the order of `tags`. False when
    // `progress`, which may be empty, stopped it. Throws std::bad_alloc, also for a worker that had no
    // memory.
    bool check(const std::vector<INFOTAG>& tags, const std::function<bool(const RIF_TAG&)>& wanted,
               const Progress& progress, std::vector<Bad>& bad);

  private:
    struct Item {
        RIF_TAG tag;
        std::size_t index = 0;
        std::size_t start = 0;  // of its payload in the slot's bytes
    };
    struct Slot {
        std::vector<Item> items;
        std::size_t used = 0;
        ByteBuffer bytes;
    };

    void begin(std::size_t tags);
    void add(const INFOTAG& tag, std::size_t index);
    Slot& slotFor(std::size_t size);
    bool read(const INFOTAG& tag, Slot& slot);
    void makeRoom(Slot& slot, std::size_t size);
    void handOver();
    void examine(PayloadCheck& check, const Slot& slot);
    void addBad(std::size_t index, const char* cause);
    int jobProc(int threadIndex, int jobIndex, void* data) override;

    PStream& stream_;
    const TagRules rules_;
    const int threads_;
    bool threaded_ = false;
    std::deque<PayloadCheck> checks_;  // by worker
    std::vector<Slot> slots_;
    int filling_ = -1;      // the slot that is not handed over yet
    std::size_t held_ = 0;  // capacity of all slots
    std::atomic<bool> outOfMemory_{false};
    std::mutex badMutex_;
    std::vector<Bad> bad_;
};

}  // namespace v1
}  // namespace MUtils
