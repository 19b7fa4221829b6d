#include "rawimage/region_packer.h"

#include <algorithm>

RegionPacker::RegionPacker(ThreadManager* manager, int threads) {
    setThreadManager(manager);
    startThreads(threads, threads + 1);
    for (int i = 0; i < numThreads(); ++i)
        deflaters_.push_back(std::make_unique<MUtils::Deflater>());
    for (int i = 0; i < numThreads() + 1; ++i) {
        packed_.push_back(std::make_unique<Packed>());
        packed_.back()->memStream.Open();
    }
}

RegionPacker::~RegionPacker() {
    releaseThreads();
}

void RegionPacker::start(const std::vector<Order>& orders, int level) {
    orders_ = &orders;
    level_ = level;
    next_ = 0;
    enqueueUpTo(packed_.size());
}

void RegionPacker::enqueueUpTo(std::size_t end) {
    for (; next_ < std::min(end, orders_->size()); ++next_) {
        Packed& packed = packedOf(next_);
        packed.order = (*orders_)[next_];
        if (packed.order.data == nullptr) continue;
        enqueueJob(&packed.handle, acquireJobIndex(), &packed);
    }
}

const char* RegionPacker::take(std::size_t index, const unsigned char*& bytes, std::size_t& size) {
    // Everything before this order has been written, so its places are free again.
    enqueueUpTo(index + packed_.size());
    Packed& packed = packedOf(index);
    waitJobs(&packed.handle);
    bytes = packed.zipBuf.data();
    size = packed.size;
    return packed.failure;
}

void RegionPacker::abandon() {
    waitJobs(nullptr);
}

int RegionPacker::jobProc(int threadIndex, int /*jobIndex*/, void* data) {
    Packed& packed = *static_cast<Packed*>(data);
    const Order& order = packed.order;
    packed.failure = packChannel(*order.data, order.count, order.size, level_,
                                 *deflaters_[static_cast<std::size_t>(threadIndex)], packed.memStream,
                                 packed.zipBuf, packed.size);
    return 0;
}
