#include "support/job_queue.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace MUtils {

int getNumProcessors() {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) return std::max(CPU_COUNT(&allowed), 1);
    return static_cast<int>(std::max(std::thread::hardware_concurrency(), 1u));
}

ThreadManager::ThreadManager() = default;

ThreadManager::~ThreadManager() {
    for (std::thread& thread : threads_) {
        if (thread.joinable()) thread.join();
    }
}

int ThreadManager::startThread(ThreadProc& procedure, void* argument) {
    const std::lock_guard<std::mutex> lock(mutex_);
    try {
        auto unused = std::find_if(threads_.begin(), threads_.end(),
                                   [](const std::thread& thread) { return !thread.joinable(); });
        if (unused == threads_.end()) unused = threads_.emplace(unused);
        *unused = std::thread([&procedure, argument] {
            pthread_setname_np(pthread_self(), procedure.getThreadName());
            procedure.proc(argument);
        });
        return static_cast<int>(unused - threads_.begin());
    } catch (const std::exception&) {  // no thread or no memory to be had
        return -1;
    }
}

void ThreadManager::joinThread(int handle) {
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (handle < 0 || handle >= static_cast<int>(threads_.size())) return;
        thread = std::move(threads_[static_cast<std::size_t>(handle)]);
    }
    if (thread.joinable()) thread.join();
}

JobQueue::~JobQueue() {
    releaseThreads();
}

void JobQueue::startThreads(int threads, int slots) {
    releaseThreads();
    const int wanted = std::clamp(threads, 1, kMaxThreads);
    numSlots_ = std::clamp(slots, 1, kMaxSlots);
    jobs_.reserve(static_cast<std::size_t>(numSlots_));
    freeSlots_.clear();
    for (int slot = numSlots_; slot-- > 0;)
        freeSlots_.push_back(slot);

    if (manager_ == nullptr && ownManager_ == nullptr) ownManager_ = std::make_unique<ThreadManager>();
    ThreadManager& manager = manager_ != nullptr ? *manager_ : *ownManager_;
    workers_.resize(static_cast<std::size_t>(wanted));
    std::size_t started = 0;
    for (; started < workers_.size(); ++started) {
        Worker& worker = workers_[started];
        worker.index = static_cast<int>(started);
        worker.thread = manager.startThread(*this, &worker);
        if (worker.thread < 0) break;
    }
    workers_.resize(started);
    numThreads_ = std::max(static_cast<int>(started), 1);
}

int JobQueue::acquireJobIndex() {
    std::unique_lock<std::mutex> lock(mutex_);
    slotFree_.wait(lock, [this] { return !freeSlots_.empty(); });
    const int slot = freeSlots_.back();
    freeSlots_.pop_back();
    return slot;
}

int JobQueue::pendingJobs() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return pending_;
}

void JobQueue::enqueueJob(JobsHandle* handle, int jobIndex, void* data) {
    const Job job{handle, jobIndex, data};
    const bool queued = !workers_.empty();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (queued) jobs_.push_back(job);
        ++pending_;
        if (handle != nullptr) ++handle->pending;
    }
    if (queued) {
        jobReady_.notify_one();
    } else {
        runJob(0, job);
    }
}

void JobQueue::cancelJob(int jobIndex) {
    const std::lock_guard<std::mutex> lock(mutex_);
    freeSlots_.push_back(jobIndex);
}

void JobQueue::waitJobs(JobsHandle* handle) {
    std::unique_lock<std::mutex> lock(mutex_);
    jobsDone_.wait(lock, [this, handle] { return (handle != nullptr ? handle->pending : pending_) == 0; });
}

void JobQueue::releaseThreads() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    jobReady_.notify_all();
    ThreadManager* manager = manager_ != nullptr ? manager_ : ownManager_.get();
    for (const Worker& worker : workers_)
        manager->joinThread(worker.thread);
    workers_.clear();
    stopping_ = false;
}

void JobQueue::proc(void* argument) {
    const int threadIndex = static_cast<const Worker*>(argument)->index;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        jobReady_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty()) return;
        const Job job = jobs_.front();
        jobs_.erase(jobs_.begin());
        lock.unlock();
        runJob(threadIndex, job);
        lock.lock();
    }
}

void JobQueue::runJob(int threadIndex, const Job& job) {
    try {
        jobProc(threadIndex, job.index, job.data);
    } catch (...) {
        // A throwing job has failed like one that returns an error; its slot must come free all the same.
    }
    bool waitOver = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const int leftOfGroup = job.handle != nullptr ? --job.handle->pending : 1;
        waitOver = --pending_ == 0 || leftOfGroup == 0;
        freeSlots_.push_back(job.index);
    }
    if (waitOver) jobsDone_.notify_one();
    slotFree_.notify_one();
}

}  // namespace MUtils
