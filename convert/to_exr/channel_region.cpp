#include "convert/to_exr/channel_region.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstring>
#include <new>

namespace MUtils {
inline namespace v1 {

ZeroedTable::~ZeroedTable() {
    unmap();
}

void ZeroedTable::unmap() {
    if (pages_ != nullptr) ::munmap(pages_, bytes_);
    pages_ = nullptr;
    bytes_ = 0;
}

void ZeroedTable::setSize(int values) {
    const std::size_t needed = static_cast<std::size_t>(values) * static_cast<std::size_t>(itemSize);
    if (needed > bytes_) {
        unmap();
        void* mapped = ::mmap(nullptr, needed, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (mapped == MAP_FAILED) throw std::bad_alloc();
        pages_ = static_cast<unsigned char*>(mapped);
        bytes_ = needed;
    }
    show(pages_, values, itemSize);
}

void ZeroedTable::clear() {
    // Pages that are given back to the system read as zeros.
    if (pages_ != nullptr && ::madvise(pages_, bytes_, MADV_DONTNEED) != 0) std::memset(pages_, 0, bytes_);
}

ChannelRegion::ChannelRegion(const std::vector<ExrChannel>& list) {
    for (const ExrChannel& channel : list) {
        RegionChannel entry;
        entry.type = channel.type;
        entry.alias = channel.alias;
        entry.flags = channel.flags;
        std::snprintf(entry.name, sizeof entry.name, "%s", channel.name.c_str());
        tables_.push_back(channel.isWritten() ? std::make_unique<ZeroedTable>(channel.valueSize()) : nullptr);
        entry.data = tables_.back().get();
        channels.Add(entry);
    }
}

double ChannelRegion::bytesNeeded(const std::vector<ExrChannel>& channels, std::int64_t pixels) {
    double bytesOfPixel = 0;
    for (const ExrChannel& channel : channels)
        bytesOfPixel += channel.isWritten() ? channel.valueSize() : 0;
    return bytesOfPixel * static_cast<double>(pixels);
}

void ChannelRegion::setBox(const PixelBox& box) {
    x0 = static_cast<int>(box.x0);
    y0 = static_cast<int>(box.y0);
    x1 = static_cast<int>(box.x1);
    y1 = static_cast<int>(box.y1);
    width = static_cast<int>(box.width());
    height = static_cast<int>(box.height());
    for (const auto& table : tables_) {
        if (table != nullptr) table->setSize(static_cast<int>(box.area()));
    }
}

void ChannelRegion::clear() {
    for (const auto& table : tables_) {
        if (table != nullptr) table->clear();
    }
}

unsigned char* ChannelRegion::at(std::size_t channel, std::int64_t x, std::int64_t y) const {
    return tables_[channel]->item(static_cast<int>((y - y0) * width + (x - x0)));
}

RegionRows::RegionRows(const ChannelRegion& region, std::int64_t firstRow, std::int64_t endRow) {
    x0 = region.x0;
    x1 = region.x1;
    y0 = static_cast<int>(firstRow);
    y1 = static_cast<int>(endRow);
    width = region.width;
    height = y1 - y0;
    for (std::size_t i = 0; i < region.size(); ++i) {
        RegionChannel entry = region.channels[static_cast<int>(i)];
        if (const MBVTable* table = region.table(i); table != nullptr) {
            tables_.push_back(std::make_unique<TableView>());
            tables_.back()->show(region.at(i, x0, y0), width * height, table->itemSize);
            entry.data = tables_.back().get();
        }
        channels.Add(entry);
    }
}

}  // namespace v1
}  // namespace MUtils
