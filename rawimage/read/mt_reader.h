#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "../../support/job_queue.h"
#include "../export.h"
#include "../writer.h"

// A raw image file whose ParseFile decodes pixel tags on worker threads. One thread reads the whole file; see
// rawimage/read/callback.h for what is called where.
//
// A pixel tag that fails, is refused or stopped by its callback is dropped, and ParseFile's result does not
// show it: a callback that must know counts what it gets. That includes, on purpose, every payload that is
// larger than its values (noise, ids, buckets of a pixel or two), which the sequential reader delivers. Tools
// that must see every pixel do not use this reader.
//
// The payloads on their way take at most threads + 1 times the largest one, or kBatchBytes where that is
// more.
class RAWIMAGE_EXPORT RIFileMT : public RIFile {
  public:
    // `threads` below 1 means one for each processor. With exactly 1 everything is as in RIFile, the result
    // codes too. The manager provides the threads and outlives this object; null makes the reader provide its
    // own.
    RIFileMT(ThreadManager* manager, int threads);
    ~RIFileMT() override;

    // Starts the workers, walks the file once, joins the workers. 0; -106 not open; -107 no header; -108 not
    // such a file; -5 a tag size below the header's; a stream's code; else the code of ParseTag for a tag
    // that is not a pixel tag. An exception out of the callback on this thread passes through, the workers
    // joined.
    int ParseFile(RIFileCallback& callback) override;

    // What the workers run during ParseFile: decodes the pixel tag of record `jobIndex` with the buffers of
    // worker `threadIndex` and delivers it. 0; -101 stopped; -102 not inflatable; -103 wrong length; -104
    // uncompressed and shorter than the values; -105 refused.
    int ParsePixelsTagMT(int threadIndex, int jobIndex);

    // The reader's queue: a job is a batch of tags.
    class RIFileJobManager final : public JobQueue {
      public:
        ~RIFileJobManager();
        // `data` is the reader.
        int jobProc(int threadIndex, int jobIndex, void* data) override;
    };

    // Small tags go to a worker together: as many as these bytes of payload or of values, or this number,
    // hold. The last ones before a wait are shared among all workers.
    static constexpr std::size_t kBatchBytes = 1 << 16;
    static constexpr std::int64_t kBatchValueBytes = 1 << 20;
    static constexpr int kBatchTags = 64;

  private:
    struct ThreadBuffers;
    struct JobRecord;
    struct Batch;

    void matchQueue();
    int walk(RIFileCallback& callback);
    int enqueuePixels(const RIF_TAG& tag);
    Batch& batchFor(std::size_t payloadBytes);
    bool readInto(Batch& batch, std::int64_t size, int& status);
    void handOver();
    void handOverLast();
    int parseBatch(int threadIndex, int slot);
    int decodeJob(ThreadBuffers& buffers, const JobRecord& job, std::size_t payloadBytes);

    std::unique_ptr<RIFileJobManager> jobManager_;
    int threads_;
    std::vector<std::unique_ptr<ThreadBuffers>> threadBuffers_;
    std::vector<std::unique_ptr<JobRecord>> jobRecords_;
    std::vector<Batch> batches_;  // by slot
    int filling_ = -1;            // the batch that is not handed over yet
    RIFileCallback* callback_ = nullptr;
    std::atomic<int> error_{0};
};
