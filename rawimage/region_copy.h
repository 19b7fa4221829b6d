#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "rawimage/records.h"
#include "support/byte_buffer.h"
#include "support/table_view.h"

namespace MUtils {
inline namespace v1 {

// A region with values of its own, all in one piece of memory.
class RegionCopy final : public MRRegionData {
  public:
    // The views point here.
    RegionCopy(const RegionCopy&) = delete;
    RegionCopy& operator=(const RegionCopy&) = delete;

    // The memory that a copy of `region` takes.
    static std::int64_t bytesOf(const MRRegionData& region);

    // Allocates so much memory. Throws std::bad_alloc.
    explicit RegionCopy(std::int64_t bytes);

    // Makes this a copy of `region`, whose bytesOf() is no more than the capacity: of each channel as many
    // values as the region has pixels. What is wrong with a channel is wrong with its copy. Throws
    // std::bad_alloc.
    void assign(const MRRegionData& region);

    int numChannels() const override { return numChannels_; }
    // Of the memory.
    std::int64_t capacity() const { return static_cast<std::int64_t>(bytes_.capacity); }

  private:
    int numChannels_ = 0;
    ByteBuffer bytes_;
    std::vector<std::unique_ptr<TableView>> views_;
};

// Memory for copies of regions. It is kept for the next ones, so that in the long run none is asked of the
// system, which costs more than the copying. Not locked.
class RegionCopyPool {
  public:
    // A copy with memory for `bytes`. Memory that is kept is freed until it has, with all that is given out,
    // at most `limit` bytes. Throws std::bad_alloc.
    std::unique_ptr<RegionCopy> take(std::int64_t bytes, std::int64_t limit);
    void giveBack(std::unique_ptr<RegionCopy> copy);

    // Of the memory that is given out.
    std::int64_t givenBytes() const { return givenBytes_; }

  private:
    struct Kept {
        std::int64_t capacity;
        std::unique_ptr<RegionCopy> copy;
    };
    std::vector<Kept> kept_;  // the one used last at the end
    std::int64_t keptBytes_ = 0;
    std::int64_t givenBytes_ = 0;
};

}  // namespace v1
}  // namespace MUtils
