#pragma once

#include <functional>

#include "rawimage/frame/raw_frame.h"

namespace MUtils {
inline namespace v1 {

// The jobs that a read with these options runs at a time, at most `work` of them.
int jobsFor(const FrameReadOptions& options, std::size_t work);

// Runs job(0) to job(count - 1) at the same time, as the options have it: on the caller's executor, or on
// this thread and others. Where the system gives fewer threads, fewer jobs run: any of them must be able to
// do all of the work. An exception of a job comes out of here, the first one, when all have ended.
void runJobs(int count, const FrameReadOptions& options, const std::function<void(int)>& job);

}  // namespace v1
}  // namespace MUtils
