#pragma once

#include "support/mbvtable.h"

namespace MUtils {
inline namespace v1 {

// A table of values that somebody else owns, in one piece of memory. It owns nothing and must not grow.
class TableView : public MBVTable {
  public:
    TableView() : MBVTable(0, 0) {}
    // So that the base class frees nothing.
    ~TableView() { blocks = nullptr; }
    TableView(const TableView&) = delete;
    TableView& operator=(const TableView&) = delete;

    // Makes this the table of `values` values of `valueSize` bytes from `bytes` on, at most 2^31 - 1 bytes.
    void show(unsigned char* bytes, int values, int valueSize) {
        bytes_ = bytes;
        blocks = &bytes_;
        numBlocks = values > 0 ? 1 : 0;
        count = capacity = itemsPerBlock = values;
        itemSize = valueSize;
        blockBytes = values * valueSize;
    }

  private:
    unsigned char* bytes_ = nullptr;
};

}  // namespace v1
}  // namespace MUtils
