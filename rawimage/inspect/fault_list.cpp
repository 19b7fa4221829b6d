#include "rawimage/inspect/fault_list.h"

#include <utility>

namespace MUtils {
inline namespace v1 {

void FaultList::add(std::int64_t offset, std::string cause, const RIF_TAG& tag) {
    lastIsListed_ = scan_.faults.size() < TagScan::kMaxFaults;
    if (lastIsListed_) {
        scan_.faults.push_back({offset, std::move(cause), tag});
    } else {
        ++scan_.furtherFaults;
    }
}

void FaultList::addLikeLast() {
    if (lastIsListed_) {
        ++scan_.faults.back().count;
    } else {
        ++scan_.furtherFaults;
    }
}

}  // namespace v1
}  // namespace MUtils
