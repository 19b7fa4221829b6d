#include "cli/tool_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "cli/interrupt.h"
#include "cli/safe_text.h"

namespace rimg {

namespace {

constexpr std::chrono::milliseconds kFirstDraw{500};
constexpr std::chrono::milliseconds kBetweenDraws{100};
constexpr int kBarCells = 30;

}  // namespace

ToolProgress::ToolProgress(const std::string& task)
    : task_(safeText(task)), terminal_(::isatty(STDERR_FILENO) != 0), next_(Clock::now() + kFirstDraw) {}

std::function<bool(std::int64_t done, std::int64_t total)> ToolProgress::callback() {
    return [this](std::int64_t done, std::int64_t total) {
        if (terminal_ && total > 0) show(done, total);
        return !stopRequested();
    };
}

void ToolProgress::clear() {
    if (drawn_) std::fputs("\r\33[K", stderr);
    drawn_ = false;
}

void ToolProgress::show(std::int64_t done, std::int64_t total) {
    // The bar never goes back.
    done_ = std::max(done, done_);
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + kBetweenDraws;
    const double part = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total));
    std::string bar(static_cast<std::size_t>(part * kBarCells), '#');
    bar.resize(kBarCells, '.');
    std::fprintf(stderr, "\r%s [%s] %3d %%\33[K", task_.c_str(), bar.c_str(), static_cast<int>(part * 100));
    drawn_ = true;
}

}  // namespace rimg
