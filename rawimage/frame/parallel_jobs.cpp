#include "rawimage/frame/parallel_jobs.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <vector>

namespace MUtils {
inline namespace v1 {

namespace {

// Runs jobs on threads of a manager and ends when all of them have ended.
class JobThreads final : private ThreadProc {
  public:
    JobThreads(ThreadManager& manager, const std::function<void(int)>& job) : manager_(manager), job_(job) {}
    ~JobThreads() {
        for (const int thread : threads_)
            manager_.joinThread(thread);
    }
    JobThreads(const JobThreads&) = delete;
    JobThreads& operator=(const JobThreads&) = delete;

    // Starts the jobs from 1 on, as many as there are threads for.
    void start(int count) {
        numbers_.resize(static_cast<std::size_t>(count));
        threads_.reserve(numbers_.size());
        for (int i = 1; i < count; ++i) {
            numbers_[static_cast<std::size_t>(i)] = i;
            const int thread = manager_.startThread(*this, &numbers_[static_cast<std::size_t>(i)]);
            if (thread < 0) return;
            threads_.push_back(thread);
        }
    }

  private:
    void proc(void* argument) override { job_(*static_cast<int*>(argument)); }

    ThreadManager& manager_;
    const std::function<void(int)>& job_;
    std::vector<int> numbers_;
    std::vector<int> threads_;
};

}  // namespace

int jobsFor(const FrameReadOptions& options, std::size_t work) {
    const int threads = options.threads < 1 ? getNumProcessors() : options.threads;
    const auto most = static_cast<std::size_t>(std::min(threads, JobQueue::kMaxThreads));
    return static_cast<int>(std::max<std::size_t>(std::min(work, most), 1));
}

void runJobs(int count, const FrameReadOptions& options, const std::function<void(int)>& job) {
    std::mutex mutex;
    std::exception_ptr failure;
    const std::function<void(int)> guarded = [&](int number) {
        try {
            job(number);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };
    if (options.executor) {
        options.executor(count, guarded);
    } else {
        ThreadManager own;
        JobThreads threads(options.manager != nullptr ? *options.manager : own, guarded);
        if (count > 1) threads.start(count);
        guarded(0);
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace v1
}  // namespace MUtils
