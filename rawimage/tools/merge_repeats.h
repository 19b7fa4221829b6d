#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rawimage/tools/merge.h"
#include "rawimage/tools/merge_input.h"

namespace MUtils {
inline namespace v1 {

// Finds the buckets that several inputs have in the same place, and leaves each out of all inputs but the one
// that counts.
class MergeRepeats {
  public:
    MergeRepeats(std::vector<MergeInput>& inputs, const MergeOptions& options, bool compressed)
        : inputs_(inputs), options_(options), compressed_(compressed) {}

    // False when an input cannot be listed again, or the progress has stopped it.
    bool settle();

    // Why settle() failed; without a cause it was stopped.
    const std::string& failedFile() const { return failedFile_; }
    const std::string& cause() const { return cause_; }
    // By loser and winner, in the order of the inputs.
    std::vector<MergeRepeat> repeats() const;

  private:
    struct Entry {
        BucketKey key;
        std::uint32_t input;
        bool damaged = false;
    };
    // The inputs of one bucket: entries from `first` to before `end`, of which `winner` counts.
    struct Group {
        std::size_t first, end, winner;
        bool settled;
    };

    bool list(std::size_t input, PFileStream& stream, std::vector<INFOTAG>& pixels);
    bool collect();
    void group();
    Group* groupOf(const BucketKey& key);
    bool chooseSound();
    bool checkInput(std::uint32_t input);
    bool leaveOut();

    std::vector<MergeInput>& inputs_;
    const MergeOptions& options_;
    const bool compressed_;
    std::vector<Entry> entries_;  // by key and input, of repeated buckets only once they are grouped
    std::vector<Group> groups_;   // by key
    std::string failedFile_;
    std::string cause_;
};

}  // namespace v1
}  // namespace MUtils
