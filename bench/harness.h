#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

// Comparisons in interleaved rounds: every round times our code and the plain library calls one after the
// other, in turns which of them goes first, and gives one ratio; the row is the median of the rounds. A
// machine whose speed drifts drifts for both.

namespace bench {

// What a row is held against. A time is ours over plain, a speed plain over ours, so that a faster module has
// a smaller time and a larger speed. kNone is for the record.
struct Goal {
    enum Kind { kNone, kTimeAtMost, kSpeedAtLeast, kBytesAtMost };
    Kind kind = kNone;
    double value = 0;
};

struct Comparison {
    std::string name;
    std::string against;
    Goal goal;
    // Both do the whole job once and throw when it fails.
    std::function<void()> ours = {};
    std::function<void()> plain = {};
    // Called after both have run once, before anything is timed: throws when the results differ.
    std::function<void()> check = {};
    // Called before each timed run of either, untimed; may be empty.
    std::function<void()> prepare = {};
    // Processors that the plain side keeps busy throughout; 0 when it waits for the disk.
    int busy = 1;
};

struct Result {
    std::string name;
    std::string against;
    Goal goal;
    // Of the rounds; a peak of memory is bytes over bytes and has neither quartiles nor processor time.
    double ratio = 0;
    double lowerQuartile = 0;
    double upperQuartile = 0;
    // The same ratio of the processor time of all threads, which other programs disturb less.
    double processorRatio = 0;
    // Processor time over time: how many processors each side had.
    double oursProcessors = 0;
    double plainProcessors = 0;
    int busy = 0;     // as Comparison has it
    double ours = 0;  // median seconds, or bytes
    double plain = 0;
    int rounds = 0;
    std::string failure;  // not empty: the row could not be measured or its result was wrong

    bool met() const;
    // Other programs took processors away from the plain side, and so, more or less, from ours: the ratio of
    // times says nothing.
    bool disturbed() const { return plainProcessors < 0.9 * busy; }
};

class Session {
  public:
    // At least 9 rounds.
    explicit Session(int rounds) : rounds_(rounds) {}

    // Both report the row on stderr when it is done and never throw on behalf of the code that they run.
    void compare(const Comparison& comparison);
    // Measured elsewhere: `ours` bytes where `base` bytes are there anyway and `allowed` are the goal.
    void bytes(const std::string& name, const std::string& against, double base, double allowed,
               const std::function<double()>& ours);

    const std::vector<Result>& results() const { return results_; }

  private:
    void add(const Result& result);

    int rounds_;
    std::vector<Result> results_;
};

// Throws std::runtime_error with `what` unless `good`.
void require(bool good, const char* what);

// Where a measurement took place.
struct Machine {
    std::string processor;
    int processors = 0;
    std::string kernel;
    std::string compiler;
    std::string buildType;
    std::string decompressor;
    double loadBefore = 0;  // processes ready to run, average of the last minute
    double loadAfter = 0;
};
Machine thisMachine();
double loadAverage();

std::string asText(const Machine& machine, const std::vector<Result>& results);
std::string asJson(const Machine& machine, const std::vector<Result>& results);

}  // namespace bench
