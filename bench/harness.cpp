#include "bench/harness.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace bench {

namespace {

constexpr double kShortestRun = 0.02;  // seconds: shorter jobs are repeated within a round
constexpr int kMostRepeats = 1000;

struct Seconds {
    double wall = 0;
    double processor = 0;
};

double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

Seconds timeOf(const Comparison& comparison, const std::function<void()>& job, int repeats) {
    Seconds seconds;
    for (int i = 0; i < repeats; ++i) {
        if (comparison.prepare) comparison.prepare();
        const double processor = processorSeconds();
        const auto start = std::chrono::steady_clock::now();
        job();
        seconds.wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        seconds.processor += processorSeconds() - processor;
    }
    return {seconds.wall / repeats, seconds.processor / repeats};
}

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    const double place = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    const double fraction = place - static_cast<double>(below);
    return values[below] * (1 - fraction) + values[above] * fraction;
}

// Both once for the check, and again for how long they take when everything is in the caches.
int warmUp(const Comparison& comparison) {
    if (comparison.prepare) comparison.prepare();
    comparison.plain();
    comparison.ours();
    comparison.check();
    const double longest =
        std::max(timeOf(comparison, comparison.ours, 1).wall, timeOf(comparison, comparison.plain, 1).wall);
    return std::clamp(static_cast<int>(kShortestRun / std::max(longest, 1e-9)) + 1, 1, kMostRepeats);
}

void measure(const Comparison& comparison, int rounds, Result& result) {
    const int repeats = warmUp(comparison);
    const bool speed = comparison.goal.kind == Goal::kSpeedAtLeast;
    std::vector<double> ratios, processorRatios, ours, plain, oursProcessors, plainProcessors;
    for (int round = 0; round < rounds; ++round) {
        Seconds us, them;
        if (round % 2 != 0) them = timeOf(comparison, comparison.plain, repeats);
        us = timeOf(comparison, comparison.ours, repeats);
        if (round % 2 == 0) them = timeOf(comparison, comparison.plain, repeats);
        ratios.push_back(speed ? them.wall / us.wall : us.wall / them.wall);
        processorRatios.push_back(speed ? them.processor / us.processor : us.processor / them.processor);
        ours.push_back(us.wall);
        plain.push_back(them.wall);
        oursProcessors.push_back(us.processor / us.wall);
        plainProcessors.push_back(them.processor / them.wall);
    }
    result.rounds = rounds;
    result.ratio = quantile(ratios, 0.5);
    result.lowerQuartile = quantile(ratios, 0.25);
    result.upperQuartile = quantile(ratios, 0.75);
    result.processorRatio = quantile(processorRatios, 0.5);
    result.ours = quantile(ours, 0.5);
    result.plain = quantile(plain, 0.5);
    result.oursProcessors = quantile(oursProcessors, 0.5);
    result.plainProcessors = quantile(plainProcessors, 0.5);
    result.busy = comparison.busy;
}

}  // namespace

void require(bool good, const char* what) {
    if (!good) throw std::runtime_error(what);
}

bool Result::met() const {
    if (!failure.empty()) return false;
    switch (goal.kind) {
        case Goal::kTimeAtMost: return ratio <= goal.value;
        case Goal::kSpeedAtLeast: return ratio >= goal.value;
        case Goal::kBytesAtMost: return ours <= goal.value;
        case Goal::kNone: break;
    }
    return true;
}

void Session::compare(const Comparison& comparison) {
    Result result;
    result.name = comparison.name;
    result.against = comparison.against;
    result.goal = comparison.goal;
    try {
        measure(comparison, rounds_, result);
    } catch (const std::exception& error) {
        result.failure = error.what();
    }
    add(result);
}

void Session::bytes(const std::string& name, const std::string& against, double base, double allowed,
                    const std::function<double()>& ours) {
    Result result;
    result.name = name;
    result.against = against;
    result.goal = {Goal::kBytesAtMost, allowed};
    result.plain = base;
    try {
        result.ours = ours();
        result.ratio = result.ours / base;
        result.rounds = 1;
    } catch (const std::exception& error) {
        result.failure = error.what();
    }
    add(result);
}

void Session::add(const Result& result) {
    if (result.failure.empty()) {
        std::fprintf(stderr, "%-46s %7.3f, cpu %7.3f%s\n", result.name.c_str(), result.ratio,
                     result.processorRatio, result.disturbed() ? " (disturbed)" : "");
    } else {
        std::fprintf(stderr, "%-46s failed: %s\n", result.name.c_str(), result.failure.c_str());
    }
    results_.push_back(result);
}

}  // namespace bench
