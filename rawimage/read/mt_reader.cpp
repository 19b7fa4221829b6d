#include "rawimage/read/mt_reader.h"

#include <algorithm>

#include "rawimage/read/callback.h"
#include "rawimage/read/tag_decoder.h"
#include "support/scratch_buffer.h"

using namespace MUtils;

// What a worker needs to decode a tag.
struct RIFileMT::ThreadBuffers {
    MUtils::Inflater inflater;
    MBVTable pixels{1, kMaxBlockBytes};
};

// A tag on its way to a worker.
struct RIFileMT::JobRecord {
    RIF_TAG tag;
    const unsigned char* payload = nullptr;  // in the bytes of its batch
};

// What a slot of the queue holds. Its records are kBatchTags from kBatchTags times the slot on.
struct RIFileMT::Batch {
    MUtils::ByteBuffer bytes;
    std::size_t used = 0;
    std::int64_t values = 0;  // bytes that the payloads inflate to, as the tags claim
    int tags = 0;
};

RIFileMT::RIFileJobManager::~RIFileJobManager() {
    releaseThreads();
}

// The result goes no further, and nothing ever sets the error that is tested here: deliberately, a failing
// tag costs that tag only.
int RIFileMT::RIFileJobManager::jobProc(int threadIndex, int jobIndex, void* data) {
    auto* reader = static_cast<RIFileMT*>(data);
    return reader->error_ != 0 ? 0 : reader->parseBatch(threadIndex, jobIndex);
}

RIFileMT::RIFileMT(ThreadManager* manager, int threads)
    : threads_(threads < 1 ? MUtils::getNumProcessors() : std::min(threads, JobQueue::kMaxThreads)) {
    if (threads_ == 1) return;
    jobManager_ = std::make_unique<RIFileJobManager>();
    jobManager_->setThreadManager(manager);
}

RIFileMT::~RIFileMT() {
    jobManager_.reset();
}

// One set of buffers for each worker, one batch for each slot; those of an earlier parse are kept while the
// counts are the same.
void RIFileMT::matchQueue() {
    const auto workers = static_cast<std::size_t>(jobManager_->numThreads());
    if (workers != threadBuffers_.size()) {
        threadBuffers_.clear();
        for (std::size_t i = 0; i < workers; ++i)
            threadBuffers_.push_back(std::make_unique<ThreadBuffers>());
    }
    const auto slots = static_cast<std::size_t>(jobManager_->numSlots());
    if (slots != batches_.size()) {
        batches_.clear();
        jobRecords_.clear();
        for (std::size_t i = 0; i < slots * kBatchTags; ++i)
            jobRecords_.push_back(std::make_unique<JobRecord>());
        batches_ = std::vector<Batch>(slots);
    }
    filling_ = -1;
}

int RIFileMT::ParseFile(RIFileCallback& callback) {
    if (threads_ == 1) return RIFile::ParseFile(callback);
    if (stream == nullptr || !stream->IsOpen()) return -106;

    struct Release {
        RIFileJobManager* queue;
        ~Release() { queue->releaseThreads(); }
    };
    jobManager_->startThreads(threads_, threads_ + 1);
    const Release release{jobManager_.get()};
    matchQueue();

    error_ = 0;
    bool complete = false;
    if (readHeader(complete) != 0 || !complete) return -107;
    if (header.magic != RIF_MAGIC) return -108;
    callback_ = &callback;
    return walk(callback);
}

int RIFileMT::walk(RIFileCallback& callback) {
    // Whatever ends the walk, an exception too: what was read before it is delivered.
    struct HandOver {
        RIFileMT* reader;
        ~HandOver() { reader->handOverLast(); }
    };
    const HandOver last{this};
    std::int64_t offset = kFileHeaderBytes;
    bool pending = false;
    int status = 0;
    for (;;) {
        RIF_TAG tag;
        int got = 0;
        status = readTagHeader(tag, got);
        if (status != 0 || got != kTagHeaderBytes) break;
        const bool walkable = tag.size >= kTagHeaderBytes;
        offset += tag.size;
        if (isPixelTag(tag.id)) {
            status = walkable ? enqueuePixels(tag) : -5;
            pending = true;
            if (status != 0) break;
            continue;
        }
        handOverLast();
        if (pending) jobManager_->waitJobs(nullptr);
        pending = false;
        if (error_ != 0) return error_;
        if (const int code = ParseTag(tag, &callback); code != 0) return code;
        // To where the tag ends in the file, even if the callback has edited the size.
        status = walkable ? stream->Seek(static_cast<long>(offset)) : -5;
        if (status != 0) break;
    }
    handOverLast();
    if (pending) jobManager_->waitJobs(nullptr);
    return status != 0 ? status : error_.load();
}

// Reads the payload for a worker, and hands it over when the batch is full or a worker has nothing to do. The
// result is the stream's; a payload that is cut short without an error drops the tag and is no error.
int RIFileMT::enqueuePixels(const RIF_TAG& tag) {
    const auto size = static_cast<std::size_t>(tag.payloadBytes());
    Batch& batch = batchFor(size);
    int status = 0;
    if (readInto(batch, tag.payloadBytes(), status)) {
        JobRecord& job = *jobRecords_[static_cast<std::size_t>(filling_ * kBatchTags + batch.tags)];
        job.tag = tag;
        job.payload = batch.bytes.data() + batch.used;
        batch.used += size;
        batch.values += std::max<std::int64_t>(pixelShape(tag).bytes, 0);
        ++batch.tags;
        const bool full =
            batch.used >= kBatchBytes || batch.values >= kBatchValueBytes || batch.tags == kBatchTags;
        if (full || jobManager_->pendingJobs() < jobManager_->numThreads()) handOver();
    }
    return status != 0 ? status : error_.load();
}

// The batch that is being filled when it has room, else an empty one.
RIFileMT::Batch& RIFileMT::batchFor(std::size_t payloadBytes) {
    if (filling_ >= 0 && batches_[static_cast<std::size_t>(filling_)].used + payloadBytes > kBatchBytes)
        handOver();
    if (filling_ < 0) {
        filling_ = jobManager_->acquireJobIndex();
        Batch& empty = batches_[static_cast<std::size_t>(filling_)];
        empty.used = 0;
        empty.values = 0;
        empty.tags = 0;
    }
    return batches_[static_cast<std::size_t>(filling_)];
}

// Behind what the batch holds; a larger payload than a batch has it alone.
bool RIFileMT::readInto(Batch& batch, std::int64_t size, int& status) {
    if (batch.used == 0 || size == 0) {
        reserve(batch.bytes, kBatchBytes);
        return readPayload(*stream, size, batch.bytes, status);
    }
    int got = 0;
    status = stream->Read(batch.bytes.data() + batch.used, static_cast<int>(size), got);
    return status == 0 && got == size;
}

void RIFileMT::handOver() {
    if (filling_ < 0) return;
    const int slot = filling_;
    filling_ = -1;
    if (batches_[static_cast<std::size_t>(slot)].tags > 0) {
        jobManager_->enqueueJob(nullptr, slot, this);
    } else {
        jobManager_->cancelJob(slot);
    }
}

// For the last batch before a wait for all jobs: splits it into one job for each worker, as no more tags come
// that would keep the others busy. The records of all these jobs point into the bytes of the batch, which are
// not used again before the wait is over.
void RIFileMT::handOverLast() {
    if (filling_ < 0) return;
    const auto recordsOf = [this](int slot) { return jobRecords_.begin() + slot * kBatchTags; };
    int& left = batches_[static_cast<std::size_t>(filling_)].tags;
    for (int shares = std::min(left, jobManager_->numThreads()); shares > 1; --shares) {
        const int slot = jobManager_->acquireJobIndex();
        const int tags = left / shares;
        left -= tags;
        for (int i = 0; i < tags; ++i)
            **(recordsOf(slot) + i) = **(recordsOf(filling_) + left + i);
        batches_[static_cast<std::size_t>(slot)].tags = tags;
        jobManager_->enqueueJob(nullptr, slot, this);
    }
    handOver();
}

// An exception costs the tag that it came from. The queue takes the first code, and drops it.
int RIFileMT::parseBatch(int threadIndex, int slot) {
    const int first = slot * kBatchTags;
    int result = 0;
    for (int i = 0; i < batches_[static_cast<std::size_t>(slot)].tags; ++i) {
        try {
            const int code = ParsePixelsTagMT(threadIndex, first + i);
            if (result == 0) result = code;
        } catch (...) {
            // Dropped, as one that fails.
        }
    }
    return result;
}

int RIFileMT::ParsePixelsTagMT(int threadIndex, int jobIndex) {
    JobRecord& job = *jobRecords_[static_cast<std::size_t>(jobIndex)];
    const auto payloadBytes = static_cast<std::size_t>(job.tag.payloadBytes());
    const int verdict = callback_->parseTag(job.tag);
    if (verdict == 0) return -101;
    if (verdict == 2) return 0;
    // The callback may have made it a tag without values.
    if (!isPixelTag(job.tag.id)) return 0;
    ThreadBuffers& buffers = *threadBuffers_[static_cast<std::size_t>(threadIndex)];
    if (const int code = decodeJob(buffers, job, payloadBytes); code != 0) return code;
    const RIF_TAG& tag = job.tag;
    return callback_->setImageData(buffers.pixels, buffers.pixels.count, tag.p8, tag.p2, tag.p3, tag.p4,
                                   tag.p5, tag.p6, tag.p7)
               ? 0
               : -105;
}

int RIFileMT::decodeJob(ThreadBuffers& buffers, const JobRecord& job, std::size_t payloadBytes) {
    const PixelShape shape = pixelShape(job.tag);
    if ((header.flags & RIF_COMPRESSED) == 0) {
        if (!shape.sound() || payloadBytes < static_cast<std::size_t>(shape.bytes)) return -104;
        buffers.pixels.initReusing(shape.count, shape.valueSize, kMaxBlockBytes);
        buffers.pixels.loadFromBuffer(job.payload, shape.count);
        return 0;
    }
    // The input is taken to be as long as the values are, deliberately: a payload that is larger fails.
    const std::size_t input =
        shape.sound() ? std::min(payloadBytes, static_cast<std::size_t>(shape.bytes)) : 0;
    switch (inflatePixels(shape, job.payload, input, buffers.inflater, buffers.pixels)) {
        case PixelFault::kNotInflatable: return -102;
        case PixelFault::kWrongLength: return -103;
        case PixelFault::kNone: break;
    }
    return 0;
}
