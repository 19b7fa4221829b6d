#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "convert/to_exr/exr_channels.h"
#include "rawimage/area/pixel_box.h"
#include "rawimage/records.h"
#include "support/table_view.h"

namespace MUtils {
inline namespace v1 {

// Values in one piece that are 0 until they are written, and take no memory until then: a frame with few
// buckets costs little.
class ZeroedTable final : public TableView {
  public:
    explicit ZeroedTable(int valueSize) { itemSize = valueSize; }
    ~ZeroedTable();
    ZeroedTable(const ZeroedTable&) = delete;
    ZeroedTable& operator=(const ZeroedTable&) = delete;

    // Makes this a table of `values` undefined values, at most 2^31 - 1 bytes. Throws std::bad_alloc.
    void setSize(int values);
    // Sets all values to 0.
    void clear();

  private:
    void unmap();

    unsigned char* pages_ = nullptr;
    std::size_t bytes_ = 0;
};

// A region of some channels with memory of its own. It has an entry for each channel; those that are not
// written have no data.
class ChannelRegion final : public MRRegionData {
  public:
    // No pixels yet.
    explicit ChannelRegion(const std::vector<ExrChannel>& list);

    // The memory that so many pixels take, in bytes.
    static double bytesNeeded(const std::vector<ExrChannel>& channels, std::int64_t pixels);

    // Makes this a region of the pixels of `box`, with undefined values, each channel's in one piece. No
    // channel may need more than 2^31 - 1 bytes. Memory is kept from box to box.
    void setBox(const PixelBox& box);
    PixelBox box() const { return {x0, y0, x1, y1}; }
    // Sets all values to 0.
    void clear();

    // The memory of a written channel's value at (x, y) and of the values right of it.
    unsigned char* at(std::size_t channel, std::int64_t x, std::int64_t y) const;
    // Null for a channel that is not written.
    MBVTable* table(std::size_t channel) const { return tables_[channel].get(); }
    std::size_t size() const { return tables_.size(); }

  private:
    std::vector<std::unique_ptr<ZeroedTable>> tables_;
};

// Rows of a region, as a region of the same values.
class RegionRows final : public MRRegionData {
  public:
    // The rows y0 to y1 - 1 of `region`, which must live longer.
    RegionRows(const ChannelRegion& region, std::int64_t y0, std::int64_t y1);

  private:
    std::vector<std::unique_ptr<TableView>> tables_;
};

}  // namespace v1
}  // namespace MUtils
