#include "cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "cli/safe_text.h"

namespace rimg {

namespace {

constexpr std::chrono::milliseconds kFirstDraw{500};
constexpr std::chrono::milliseconds kBetweenDraws{100};
constexpr int kBarCells = 30;

}  // namespace

Progress::Progress(const std::string& task, std::int64_t total)
    : task_(safeText(task)),
      total_(std::max<std::int64_t>(total, 1)),
      terminal_(::isatty(STDERR_FILENO) != 0),
      next_(Clock::now() + kFirstDraw) {}

Progress::~Progress() {
    if (drawn_) std::fputs("\r\33[K", stderr);
}

void Progress::advance(std::int64_t steps) {
    done_ += steps;
    if (!terminal_) return;
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + kBetweenDraws;
    draw();
}

void Progress::draw() {
    const double part = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
    std::string bar(static_cast<std::size_t>(part * kBarCells), '#');
    bar.resize(kBarCells, '.');
    std::fprintf(stderr, "\r%s [%s] %3d %%\33[K", task_.c_str(), bar.c_str(), static_cast<int>(part * 100));
    drawn_ = true;
}

}  // namespace rimg
