#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "rawimage/tools/merge_input.h"
#include "support/job_queue.h"

namespace MUtils {
inline namespace v1 {

// Inspects the inputs of a merge, in their order. Small files, which may be many, are inspected on several
// threads ahead of their turn, a batch at a time.
class MergeReader final : private JobQueue {
  public:
    struct Found {
        FileStamp stamp;
        int code = 0;  // that opening the file gave
        Inspection file;
        MergeInput input;  // what is kept of the file, unless it is damaged or unreadable
        bool inspected = false;
    };

    // The names must outlive the object. Below 1 thread: one for each processor.
    MergeReader(const std::vector<std::string>& names, int threads);
    ~MergeReader();

    // The next input, of which there is one; valid until the next call. Throws std::bad_alloc.
    Found& next();

  private:
    struct Batch {
        std::size_t number = 0;
        std::deque<Found> found;  // without those that were taken
        JobsHandle jobs;
        bool outOfMemory = false;
    };

    Batch& batchOf(std::size_t number) { return batches_[number % batches_.size()]; }
    void begin(std::size_t number);
    void inspectAll(Batch& batch) const;
    int jobProc(int threadIndex, int jobIndex, void* data) override;

    const std::vector<std::string>& names_;
    std::vector<Batch> batches_;  // in turns
    std::size_t next_ = 0;        // of the names
};

}  // namespace v1
}  // namespace MUtils
