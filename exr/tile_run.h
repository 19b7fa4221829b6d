#pragma once

#include <memory>
#include <vector>

#include "rawimage/records.h"
#include "support/byte_buffer.h"
#include "support/table_view.h"

namespace MUtils {
inline namespace v1 {

// A rectangle of tiles, by their columns and rows; the last ones belong to it.
struct TileBox {
    int x0 = 0;
    int y0 = 0;
    int x1 = 0;
    int y1 = 0;

    bool isRow() const { return y0 == y1; }
    bool isColumn() const { return x0 == x1; }
};

// Tiles that lie beside each other in one row or in one column, as one region, so that OpenEXR can pack them
// at the same time.
class TileRun {
  public:
    // Begins a new run with one region, which is exactly one tile. Regions must stay as they are until the
    // next start().
    void start(MRRegionData& region, const TileBox& tile);
    // Makes the run longer by a region. False when its tile is not a neighbour, when it has other channels,
    // or when the values are as many as may be copied at a time; `threads` are to be kept busy with them.
    bool add(MRRegionData& region, const TileBox& tile, int threads);

    int size() const { return static_cast<int>(regions_.size()); }
    const TileBox& tiles() const { return tiles_; }
    // The first region itself while it is the only one, else a copy of all.
    MRRegionData& region();

  private:
    void copyChannel(int index);

    std::vector<MRRegionData*> regions_;
    TileBox tiles_;
    std::int64_t bytes_ = 0;  // of the values
    MRRegionData together_;
    std::vector<std::unique_ptr<TableView>> tables_;  // by channel
    std::vector<ByteBuffer> values_;
};

}  // namespace v1
}  // namespace MUtils
