#pragma once

#include <cstdint>

#include "../rawimage/export.h"
#include "pstream.h"

namespace MUtils {

// The values of one render channel of one region: fixed-size values in equally sized heap blocks, so that a
// large channel needs no huge allocation and growing never moves a value. Value i lives in block i /
// itemsPerBlock at byte (i % itemsPerBlock) * itemSize. Values are raw bytes here; what they are is the
// channel's business.
//
// Its serialised form is the values from first to last, itemSize bytes each, with nothing before, between or
// after them.
//
// It holds up to 2^31 - 1 values of any size; negative sizes count as an empty table. Blocks are not cleared,
// so those that nothing is written to cost no memory. Making room throws std::bad_alloc. Several threads may
// read one table at a time; changing it needs it alone.
class RAWIMAGE_EXPORT MBVTable {
  public:
    int numBlocks = 0;           // blocks in use
    int blockGrowStep = 100;     // growth step of the block pointer array
    int blockArrayCapacity = 0;  // slots in the block pointer array
    unsigned char** blocks = nullptr;
    int count = 0;     // values in use
    int capacity = 0;  // value slots: itemsPerBlock * numBlocks, at most 2^31 - 1
    int itemsPerBlock = 0;
    int blockBytes = 0;
    int itemSize = 0;

    // Sets the geometry and allocates nothing: blocks of the larger of `blockBytes` and 64 bytes, rounded
    // down to whole values, at least one value.
    MBVTable(int itemSize, int blockBytes);
    ~MBVTable();
    MBVTable(const MBVTable&) = delete;
    MBVTable& operator=(const MBVTable&) = delete;

    // Prepares blocks for exactly `count` values of `itemSize` bytes, in blocks of at most `blockBytes`
    // bytes. Blocks of the same value size within a factor of four of the new block size are kept, and then
    // only setCount() is called: the old block size stays, and so does a larger old count.
    void initNotResizable(int count, int itemSize, int blockBytes);

    // As initNotResizable() on a new table, but with the memory of earlier calls where it suffices, so that a
    // reader of many equal tags allocates once. The contents are undefined.
    void initReusing(int count, int itemSize, int blockBytes);

    // Makes room for `n` values. Never shrinks: a smaller `n` changes nothing.
    void setCount(int n);

    // Write or read the values start .. start + n - 1, block piece by block piece. The last argument receives
    // the number of whole values moved. Returns 0 or the stream's code; a request beyond the capacity is
    // clamped to it and answered with 0 and fewer values.
    int write(PStream* s, int start, int n, int& written) const;
    int read(PStream* s, int start, int n, int& read) const;

    // Copies `n` values from one contiguous buffer to the table's start; no more than the capacity.
    void loadFromBuffer(const void* data, int n);
    // The mirror: copies the values start .. start + n - 1 out, no more than there are; returns how many.
    int storeToBuffer(void* data, int start, int n) const;

    // The bytes of value `index`, 0 <= index < capacity.
    unsigned char* item(int index) { return itemAt(index); }
    const unsigned char* item(int index) const { return itemAt(index); }

  private:
    unsigned char* itemAt(int index) const {
        return blocks[index / itemsPerBlock] + static_cast<std::int64_t>(index % itemsPerBlock) * itemSize;
    }
    void setGeometry(int newItemSize, int newBlockBytes);
    void allocateFor(int n);
    void growBlockArray();
    void freeBlocks();
    int clamp(int start, int n) const;

    int storedBlocks_ = 0;      // blocks allocated, numBlocks of them in use
    int storedBlockBytes_ = 0;  // bytes each of them holds, at least blockBytes
};

}  // namespace MUtils

using MUtils::MBVTable;
