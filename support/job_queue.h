#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "../rawimage/export.h"

namespace MUtils {

// Processors that this process may use, at least 1.
RAWIMAGE_EXPORT int getNumProcessors();

// What a thread runs.
class RAWIMAGE_EXPORT ThreadProc {
  public:
    virtual void proc(void* argument) = 0;
    // Shown by debuggers, when it has at most 15 characters.
    virtual const char* getThreadName() { return "rawimage"; }

  protected:
    ~ThreadProc() = default;
};

// Starts threads and joins them. It may serve several queues; its operations may be called from any thread.
// It must outlive what it started: the destructor joins every thread that is left.
class RAWIMAGE_EXPORT ThreadManager {
  public:
    ThreadManager();
    ~ThreadManager();
    ThreadManager(const ThreadManager&) = delete;
    ThreadManager& operator=(const ThreadManager&) = delete;

    // Runs procedure.proc(argument) on a new thread. Returns its handle, or -1 when the system gives no more
    // threads.
    int startThread(ThreadProc& procedure, void* argument);
    // Waits for the thread to end. A handle is joined once; others are ignored.
    void joinThread(int handle);

  private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

// A group of jobs that can be waited for. Belongs to the thread that enqueues.
struct JobsHandle {
    int pending = 0;
};

// Runs jobs on worker threads, a bounded number at a time. One thread, the owner, starts, fills and waits;
// the workers only run jobs. Whoever fills a job's data before enqueueJob() may rely on the worker seeing it,
// and on seeing the job's results after waitJobs().
class RAWIMAGE_EXPORT JobQueue : public ThreadProc {
  public:
    static constexpr int kMaxThreads = 1024;
    static constexpr int kMaxSlots = 8192;

    JobQueue() = default;
    // Derived classes call releaseThreads() in their own destructor, while their jobProc still exists.
    ~JobQueue();
    JobQueue(const JobQueue&) = delete;
    JobQueue& operator=(const JobQueue&) = delete;

    // Whose threads the queue uses; null for threads of its own. Not while threads are running.
    void setThreadManager(ThreadManager* manager) { manager_ = manager; }

    // Starts `threads` workers, 1 to kMaxThreads, for `slots` jobs at a time, 1 to kMaxSlots; requests are
    // clamped. When the system gives fewer threads those do; when it gives none, enqueueJob runs the job
    // itself, as it does after releaseThreads().
    void startThreads(int threads, int slots);
    int numThreads() const { return numThreads_; }
    // False when enqueueJob runs the jobs itself.
    bool hasThreads() const { return !workers_.empty(); }
    int numSlots() const { return numSlots_; }

    // Takes a free slot, 0 to numSlots() - 1; waits until there is one. To wake the owner for each short job
    // costs as much as the job: make a job of several. Needs startThreads() first; an owner that holds every
    // slot itself waits for ever.
    int acquireJobIndex();
    // Jobs that are enqueued and not finished. Fewer than numThreads() of them leave a worker idle.
    int pendingJobs();
    // Has jobProc(worker, jobIndex, data) run on some worker, then frees the slot. Jobs start in the order
    // they come in.
    void enqueueJob(JobsHandle* handle, int jobIndex, void* data);
    // Frees a slot that was acquired and not enqueued.
    void cancelJob(int jobIndex);
    // Returns when every enqueued job of the handle has finished; null waits for all jobs.
    void waitJobs(JobsHandle* handle);
    // Lets the enqueued jobs finish, then ends and joins the workers.
    void releaseThreads();

    void proc(void* argument) override;

    // One job, on worker 0 to numThreads() - 1. The result is dropped, and so is an exception: whoever must
    // know of a failure records it.
    virtual int jobProc(int threadIndex, int jobIndex, void* data) = 0;

  private:
    struct Job {
        JobsHandle* handle;
        int index;
        void* data;
    };
    struct Worker {
        int index = 0;
        int thread = -1;
    };

    void runJob(int threadIndex, const Job& job);

    ThreadManager* manager_ = nullptr;
    std::unique_ptr<ThreadManager> ownManager_;
    std::vector<Worker> workers_;
    int numThreads_ = 0;
    int numSlots_ = 0;

    std::mutex mutex_;  // guards what follows
    std::condition_variable jobReady_;
    std::condition_variable slotFree_;
    std::condition_variable jobsDone_;
    std::vector<Job> jobs_;  // in the order they came; room for one in each slot
    std::vector<int> freeSlots_;
    int pending_ = 0;  // enqueued and not finished
    bool stopping_ = false;
};

}  // namespace MUtils

using MUtils::JobQueue;
using MUtils::JobsHandle;
using MUtils::ThreadManager;
