#include "convert/to_exr/channel_region.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstring>
#include <new>

namespace MUtils {
inline namespace v1 {

ZeroedTable::~ZeroedTable() {
    // So that the base class frees nothing.
    blocks = nullptr;
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
    blocks = &pages_;
    numBlocks = values > 0 ? 1 : 0;
    count = capacity = itemsPerBlock = values;
    blockBytes = static_cast<int>(needed);
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

void copyPixels(const ChannelRegion& from, const PixelBox& box, ChannelRegion& to) {
    to.setBox(box);
    for (std::size_t i = 0; i < from.size(); ++i) {
        if (from.table(i) == nullptr) continue;
        const auto rowBytes = static_cast<std::size_t>(box.width() * from.table(i)->itemSize);
        for (std::int64_t y = box.y0; y < box.y1; ++y)
            std::memcpy(to.at(i, box.x0, y), from.at(i, box.x0, y), rowBytes);
    }
}

}  // namespace v1
}  // namespace MUtils
