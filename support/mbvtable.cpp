#include "support/mbvtable.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace MUtils {

namespace {

constexpr int kMinBlockBytes = 64;
constexpr int kPointerGrowStep = 100;

// The request as a table can hold it: 0 values when a size is out of range.
int soundCount(int count, int itemSize) {
    return count > 0 && itemSize > 0 ? count : 0;
}

// A block of at most `wanted` bytes is no larger than all the values.
int limitedBlock(int wanted, int count, int itemSize) {
    const std::int64_t all = count > 0 ? std::int64_t{count} * itemSize : 0;
    return static_cast<int>(std::min<std::int64_t>(wanted, all));
}

}  // namespace

MBVTable::MBVTable(int itemSize_, int blockBytes_) : blockGrowStep(kPointerGrowStep) {
    setGeometry(itemSize_, blockBytes_);
}

MBVTable::~MBVTable() {
    freeBlocks();
}

void MBVTable::setGeometry(int newItemSize, int newBlockBytes) {
    itemSize = newItemSize;
    blockBytes = std::max(newBlockBytes, kMinBlockBytes);
    if (itemSize > 1) {
        blockBytes -= blockBytes % itemSize;
        if (blockBytes == 0) blockBytes = itemSize;
    }
    itemsPerBlock = itemSize > 0 ? blockBytes / itemSize : 0;
}

void MBVTable::initNotResizable(int newCount, int newItemSize, int newBlockBytes) {
    const int values = soundCount(newCount, newItemSize);
    const int limited = limitedBlock(newBlockBytes, values, newItemSize);
    const bool near = std::int64_t{limited} <= std::int64_t{blockBytes} * 4 &&
                      std::int64_t{blockBytes} <= std::int64_t{limited} * 4;
    if (numBlocks > 0 && itemSize == newItemSize && near) {
        setCount(newCount);
        return;
    }
    freeBlocks();
    setGeometry(newItemSize, limited);
    if (values > 0) allocateFor(values);
}

void MBVTable::initReusing(int newCount, int newItemSize, int newBlockBytes) {
    const int values = soundCount(newCount, newItemSize);
    const int limited = limitedBlock(newBlockBytes, values, newItemSize);
    numBlocks = count = capacity = 0;
    setGeometry(newItemSize, limited);
    if (storedBlockBytes_ < blockBytes) freeBlocks();
    if (values > 0) allocateFor(values);
}

void MBVTable::setCount(int n) {
    if (n > capacity) {
        if (soundCount(n, itemSize) > 0) allocateFor(n);
    } else if (n > count) {
        count = n;
    }
}

void MBVTable::allocateFor(int n) {
    while ((n - 1) / itemsPerBlock >= numBlocks) {
        if (numBlocks == storedBlocks_) {
            growBlockArray();
            const int bytes = std::max(blockBytes, storedBlockBytes_);
            blocks[numBlocks] = new unsigned char[static_cast<std::size_t>(bytes)];
            storedBlockBytes_ = bytes;
            ++storedBlocks_;
        }
        ++numBlocks;
        // The last block of the largest tables has room for values that no index reaches.
        capacity = static_cast<int>(std::min<std::int64_t>(std::int64_t{itemsPerBlock} * numBlocks, INT_MAX));
    }
    count = n;
}

// Room for one more pointer. With a step the capacity goes to the step's next multiple above m, even when m
// is a multiple itself (100 -> 200): meant, code that sizes things by it depends on the steps.
void MBVTable::growBlockArray() {
    const int m = storedBlocks_ + 1;
    if (m <= blockArrayCapacity) return;
    std::int64_t larger = m;
    if (blockGrowStep >= 1) {
        larger += blockGrowStep - m % blockGrowStep;
    } else if (blockArrayCapacity >= 1) {
        for (larger = blockArrayCapacity; larger < m;)
            larger *= 2;
    }
    larger = std::min<std::int64_t>(larger, INT_MAX);
    auto** moved = new unsigned char*[static_cast<std::size_t>(larger)];
    std::copy(blocks, blocks + storedBlocks_, moved);
    delete[] blocks;
    blocks = moved;
    blockArrayCapacity = static_cast<int>(larger);
}

void MBVTable::freeBlocks() {
    while (storedBlocks_ > 0)
        delete[] blocks[--storedBlocks_];
    delete[] blocks;
    blocks = nullptr;
    numBlocks = blockArrayCapacity = count = capacity = 0;
    storedBlockBytes_ = 0;
}

int MBVTable::clamp(int start, int n) const {
    if (start < 0 || start >= capacity) return 0;
    return std::clamp(n, 0, capacity - start);
}

namespace {

// Moves `n` values from value `start` on, one stream call a piece: the rest of the first block, whole blocks,
// the remainder. While more than one block is asked for the last full block counts as the remainder. A call
// that returns 0 with a short count goes on with the next block, one that returns an error with all bytes
// moved does too; only an error with a short count stops. `moved` counts whole values.
template <class MoveBytes>
int moveValues(const MBVTable& table, int start, int n, int& moved, MoveBytes moveBytes) {
    moved = 0;
    if (n <= 0) return 0;
    int block = start / table.itemsPerBlock;
    int offset = start % table.itemsPerBlock;
    for (int asked = 0; asked < n; offset = 0, ++block) {
        const int values = std::min(n - asked, table.itemsPerBlock - offset);
        const int bytes = values * table.itemSize;
        int done = 0;
        const int code = moveBytes(table.blocks[block] + offset * table.itemSize, bytes, done);
        moved += done / table.itemSize;
        if (code != 0 && done != bytes) return code;
        asked += values;
    }
    return 0;
}

}  // namespace

int MBVTable::write(PStream* s, int start, int n, int& written) const {
    return moveValues(
        *this, start, clamp(start, n), written,
        [s](const unsigned char* bytes, int size, int& done) { return s->Write(bytes, size, done); });
}

int MBVTable::read(PStream* s, int start, int n, int& read) const {
    return moveValues(*this, start, clamp(start, n), read,
                      [s](unsigned char* bytes, int size, int& done) { return s->Read(bytes, size, done); });
}

void MBVTable::loadFromBuffer(const void* data, int n) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    int moved = 0;
    moveValues(*this, 0, clamp(0, n), moved, [&bytes](unsigned char* block, int size, int& done) {
        std::memcpy(block, bytes, static_cast<std::size_t>(size));
        bytes += size;
        done = size;
        return 0;
    });
}

int MBVTable::storeToBuffer(void* data, int start, int n) const {
    auto* bytes = static_cast<unsigned char*>(data);
    int moved = 0;
    moveValues(*this, start, clamp(start, n), moved,
               [&bytes](const unsigned char* block, int size, int& done) {
                   std::memcpy(bytes, block, static_cast<std::size_t>(size));
                   bytes += size;
                   done = size;
                   return 0;
               });
    return moved;
}

}  // namespace MUtils
