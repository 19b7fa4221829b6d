#pragma once

#include <string>

#include "rawimage/inspect/tag_scan.h"

namespace MUtils {
inline namespace v1 {

// Adds faults to a scan within its bound.
class FaultList {
  public:
    explicit FaultList(TagScan& scan) : scan_(scan) {}

    void add(std::int64_t offset, std::string cause, const RIF_TAG& tag = {});
    // Counts one more fault like the last one that was added.
    void addLikeLast();

  private:
    TagScan& scan_;
    bool lastIsListed_ = false;
};

}  // namespace v1
}  // namespace MUtils
