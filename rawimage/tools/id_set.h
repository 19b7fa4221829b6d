#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace MUtils {
inline namespace v1 {

// Distinct integers, up to a number of them: a table of open addresses, at most half full.
class IdSet {
  public:
    explicit IdSet(std::size_t most) : most_(most) {}

    // Ids beyond the number are not kept.
    void insert(std::int32_t id) {
        const auto key = static_cast<std::uint32_t>(id);
        if (key == kEmpty) {
            hasEmptyKey_ = true;
            return;
        }
        if (2 * (used_ + 1) > slots_.size()) enlarge();
        std::uint32_t& slot = find(key);
        if (slot == key) return;
        if (size() >= most_) {
            overflowed_ = true;
            return;
        }
        slot = key;
        ++used_;
    }

    std::size_t size() const { return used_ + (hasEmptyKey_ ? 1 : 0); }
    // There were more ids than were kept.
    bool overflowed() const { return overflowed_; }

  private:
    static constexpr std::uint32_t kEmpty = 0;

    // Its slot, or the one that it can have.
    std::uint32_t& find(std::uint32_t key) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t at = (key * std::uint64_t{0x9E3779B97F4A7C15} >> 32) & mask;
        while (slots_[at] != kEmpty && slots_[at] != key)
            at = (at + 1) & mask;
        return slots_[at];
    }

    void enlarge() {
        std::vector<std::uint32_t> old(slots_.empty() ? 64 : 2 * slots_.size(), kEmpty);
        old.swap(slots_);
        for (const std::uint32_t key : old) {
            if (key != kEmpty) find(key) = key;
        }
    }

    std::size_t most_;
    std::vector<std::uint32_t> slots_;  // a power of two
    std::size_t used_ = 0;
    bool hasEmptyKey_ = false;
    bool overflowed_ = false;
};

}  // namespace v1
}  // namespace MUtils
