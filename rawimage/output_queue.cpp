#include "rawimage/output_queue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "rawimage/region_copy.h"

using namespace MUtils;

// Callers put regions and operations into one line. The queue's thread takes them from its front: an
// operation it runs itself; for a region it calls the file's WTRegions and is the feed of it, which hands out
// regions until an operation is at the front. The caller of an operation waits for it, the caller of a region
// only for room.

class OutputQueue::Worker final : public ThreadProc, private RegionFeed {
  public:
    Worker(RIFileBase& file, ThreadManager* manager)
        : file_(file), manager_(manager != nullptr ? *manager : ownManager_) {
        thread_ = manager_.startThread(*this, nullptr);
        if (thread_ < 0) threadless_ = true;
    }

    ~Worker() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        arrived_.notify_all();
        manager_.joinThread(thread_);
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void setMaxPending(std::int64_t bytes) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            maxPending_ = bytes;
        }
        room_.notify_all();
    }

    int pending() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return pending_;
    }

    ErrorCode handOver(MRRegionData& region, int a, int b, int c) {
        Item item{nullptr, {nullptr, a, b, c}, nullptr};
        int failures = 0;
        try {
            if (ErrorCode error = acquire(RegionCopy::bytesOf(region), item.copy, failures); !error.empty())
                return error;
            item.copy->assign(region);
            item.call.region = item.copy.get();
            return enqueue(item, failures);
        } catch (const std::bad_alloc&) {
            release(std::move(item.copy));
            return ErrorCode("WTRegion", -1, "No memory for the copy of a region");
        }
    }

    // Runs the operation in its turn. After a failed region, only where `always` is true.
    ErrorCode run(const std::function<ErrorCode()>& function, bool always) {
        Operation operation{function, always};
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            line_.push_back({nullptr, {}, &operation});
        }
        arrived_.notify_all();
        if (threadless_) workNow();
        std::unique_lock<std::mutex> lock(mutex_);
        finished_.wait(lock, [&operation] { return operation.done; });
        if (operation.exception != nullptr) std::rethrow_exception(operation.exception);
        return std::move(operation.result);
    }

    // The first region's that failed.
    ErrorCode error() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return error_;
    }

    void forgetError() {
        const std::lock_guard<std::mutex> lock(mutex_);
        error_ = {};
    }

    const char* getThreadName() override { return "rawimage queue"; }

  private:
    struct Operation {
        const std::function<ErrorCode()>& function;
        const bool always;
        ErrorCode result = {};
        std::exception_ptr exception = nullptr;
        bool done = false;
    };
    // A region with its copy, or an operation.
    struct Item {
        std::unique_ptr<RegionCopy> copy;
        RegionFeed::Call call;
        Operation* operation = nullptr;
    };
    using Lock = std::unique_lock<std::mutex>;

    // Waits for room, in turn, and gives a copy to fill, and how many regions have failed so far.
    ErrorCode acquire(std::int64_t bytes, std::unique_ptr<RegionCopy>& copy, int& failures) {
        Lock lock(mutex_);
        if (!error_.empty()) return error_;
        failures = failures_;
        waiting_.push_back(&bytes);
        room_.wait(lock, [&] {
            const bool fits = pool_.givenBytes() == 0 || pool_.givenBytes() + bytes <= maxPending_;
            return failures_ != failures || (waiting_.front() == &bytes && fits);
        });
        waiting_.erase(std::find(waiting_.begin(), waiting_.end(), &bytes));
        if (!waiting_.empty()) room_.notify_all();
        if (failures_ != failures) return lateError();
        copy = pool_.take(bytes, maxPending_);
        return {};
    }

    // Takes the item, but not when it throws.
    ErrorCode enqueue(Item& item, int failures) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (failures_ != failures) {
                pool_.giveBack(std::move(item.copy));
                return lateError();
            }
            line_.push_back(std::move(item));
            ++pending_;
        }
        arrived_.notify_all();
        if (threadless_) workNow();
        return {};
    }

    // For a call during which a region has failed: meanwhile the file may be closed and the error forgotten.
    ErrorCode lateError() const {
        return !error_.empty() ? error_ : ErrorCode("WTRegion", -1, "An earlier region has failed");
    }

    void release(std::unique_ptr<RegionCopy> copy) {
        if (copy == nullptr) return;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            pool_.giveBack(std::move(copy));
        }
        room_.notify_all();
    }

    void proc(void* /*argument*/) override {
        Lock lock(mutex_);
        for (;;) {
            arrived_.wait(lock, [this] { return stopping_ || !line_.empty(); });
            if (line_.empty()) return;
            workOff(lock);
        }
    }

    // Without a thread, by the caller.
    void workNow() {
        const std::lock_guard<std::mutex> alone(workMutex_);
        Lock lock(mutex_);
        while (!line_.empty())
            workOff(lock);
    }

    // The operation at the front of the line, or the regions there.
    void workOff(Lock& lock) {
        if (Operation* operation = line_.front().operation; operation != nullptr) {
            line_.pop_front();
            if (error_.empty() || operation->always) {
                lock.unlock();
                try {
                    operation->result = operation->function();
                } catch (...) {
                    operation->exception = std::current_exception();
                }
                lock.lock();
            } else {
                operation->result = error_;
            }
            operation->done = true;
            finished_.notify_all();
            return;
        }
        ended_ = false;
        lock.unlock();
        ErrorCode failure = writeWaiting();
        lock.lock();
        if (!failure.empty()) noteFailure(std::move(failure));
    }

    ErrorCode writeWaiting() {
        try {
            return file_.WTRegions(*this);
        } catch (const std::exception& exception) {
            return ErrorCode("WTRegions", -1, "%s", exception.what());
        } catch (...) {
            return ErrorCode("WTRegions", -1, "The file threw something unknown");
        }
    }

    // Drops all regions in the line.
    void noteFailure(ErrorCode cause) {
        // Without a region in work the file has not come as far as to take the first one.
        const MRRegionData none;
        const MRRegionData* first = &none;
        if (!line_.empty() && line_.front().copy != nullptr) first = line_.front().copy.get();
        const MRRegionData& r = inWork_.empty() ? *first : *inWork_.front();
        ++failures_;
        error_ =
            ErrorCode("WTRegion", -1, "Error writing region ((%i, %i)-(%i, %i))", r.x0, r.y0, r.x1, r.y1);
        error_.setCause(std::move(cause));
        for (std::unique_ptr<RegionCopy>& copy : inWork_)
            pool_.giveBack(std::move(copy));
        inWork_.clear();
        for (Item& item : line_) {
            if (item.copy != nullptr) pool_.giveBack(std::move(item.copy));
        }
        line_.erase(std::remove_if(line_.begin(), line_.end(),
                                   [](const Item& item) { return item.operation == nullptr; }),
                    line_.end());
        pending_ = 0;
        room_.notify_all();
    }

    bool next(bool wait, Call& call) override {
        Lock lock(mutex_);
        if (wait && !threadless_)
            arrived_.wait(lock, [this] { return stopping_ || ended_ || !line_.empty(); });
        if (ended_ || line_.empty() || line_.front().operation != nullptr) return false;
        call = line_.front().call;
        inWork_.push_back(std::move(line_.front().copy));
        line_.pop_front();
        return true;
    }

    void written() override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            pool_.giveBack(std::move(inWork_.front()));
            inWork_.pop_front();
            --pending_;
        }
        room_.notify_all();
    }

    void end() override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ended_ = true;
        }
        arrived_.notify_all();
    }

    RIFileBase& file_;
    ThreadManager ownManager_;
    ThreadManager& manager_;
    std::mutex workMutex_;  // held by whoever does the work of a queue without a thread; the outer one

    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable arrived_;
    std::condition_variable finished_;
    std::condition_variable room_;
    std::int64_t maxPending_ = kMaxPending;
    std::deque<Item> line_;
    std::deque<std::unique_ptr<RegionCopy>> inWork_;  // taken by the file and not written
    RegionCopyPool pool_;
    int pending_ = 0;
    std::deque<const std::int64_t*> waiting_;  // callers who want room, by the bytes that they want
    ErrorCode error_;
    int failures_ = 0;    // errors so far
    bool ended_ = false;  // the file wants no more regions
    bool stopping_ = false;

    bool threadless_ = false;  // the system gave no thread
    int thread_ = -1;          // started last; the thread does not read it
};

OutputQueue::OutputQueue(RIFileBase& file, ThreadManager* manager)
    : file_(file), worker_(std::make_unique<Worker>(file, manager)) {}

OutputQueue::~OutputQueue() = default;

void OutputQueue::setMaxPending(std::int64_t bytes) {
    worker_->setMaxPending(bytes);
}

int OutputQueue::pending() const {
    return worker_->pending();
}

ErrorCode OutputQueue::run(const std::function<ErrorCode()>& operation) {
    return worker_->run(operation, false);
}

ErrorCode OutputQueue::WTRegion(MRRegionData* region, int a, int b, int c) {
    if (region != nullptr) return worker_->handOver(*region, a, b, c);
    return run([&] { return file_.WTRegion(nullptr, a, b, c); });
}

ErrorCode OutputQueue::flush() {
    return run([this] { return file_.flush(); });
}

ErrorCode OutputQueue::Close() {
    ErrorCode closing = worker_->run([this] { return file_.Close(); }, true);
    ErrorCode error = worker_->error();
    worker_->forgetError();
    return error.empty() ? std::move(closing) : std::move(error);
}

int OutputQueue::ParseFile(RIFileCallback& callback) {
    int code = -1;
    (void)run([&] {
        code = file_.ParseFile(callback);
        return ErrorCode();
    });
    return code;
}

ErrorCode OutputQueue::Create(const char* fileName, PStream* stream) {
    return run([&] { return file_.Create(fileName, stream); });
}

ErrorCode OutputQueue::Open(const char* fileName, PStream* stream) {
    return run([&] { return file_.Open(fileName, stream); });
}

ErrorCode OutputQueue::WriteHeader(int bitsPerChannel) {
    return run([&] { return file_.WriteHeader(bitsPerChannel); });
}

ErrorCode OutputQueue::WTResolution(int width, int height, float pixelAspect) {
    return run([&] { return file_.WTResolution(width, height, pixelAspect); });
}

ErrorCode OutputQueue::WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) {
    return run([&] { return file_.WTRegionsInfo(bucketWidth, bucketHeight, variableSize); });
}

ErrorCode OutputQueue::WTChannelInfo(MRRegionData* region) {
    return run([&] { return file_.WTChannelInfo(region); });
}

ErrorCode OutputQueue::WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) {
    return run([&] { return file_.WTChannelInfo(channels); });
}

ErrorCode OutputQueue::WTCameraInfo(const RICameraInfo& camera) {
    return run([&] { return file_.WTCameraInfo(camera); });
}

ErrorCode OutputQueue::WTRenderRegion(const RIRegionInfo& region) {
    return run([&] { return file_.WTRenderRegion(region); });
}

ErrorCode OutputQueue::WTExtraAttributes(const char* text) {
    return run([&] { return file_.WTExtraAttributes(text); });
}

ErrorCode OutputQueue::WTSceneInfo(RISceneInfo& scene) {
    return run([&] { return file_.WTSceneInfo(scene); });
}

ErrorCode OutputQueue::WTStampText(const char* text) {
    return run([&] { return file_.WTStampText(text); });
}
