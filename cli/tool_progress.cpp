#include "cli/tool_progress.h"

#include <algorithm>

#include "cli/interrupt.h"

namespace rimg {

std::function<bool(std::int64_t done, std::int64_t total)> ToolProgress::callback() {
    return [this](std::int64_t done, std::int64_t total) {
        if (bar_ == nullptr && total > 0) bar_ = std::make_unique<Progress>(task_, total);
        if (bar_ != nullptr) bar_->advance(std::max<std::int64_t>(done - done_, 0));
        done_ = std::max(done, done_);
        return !stopRequested();
    };
}

}  // namespace rimg
