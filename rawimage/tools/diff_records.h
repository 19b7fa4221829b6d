#pragma once

#include "rawimage/tools/diff.h"

namespace MUtils {
inline namespace v1 {

// Lists the records that differ, of those that OpenEXR files carry with `throughExr`, else of all. False when
// one cannot be read: state, side and damage of the report are set.
bool compareRecords(const std::array<const RawFrame*, 2>& frames, bool throughExr, DiffReport& report);

}  // namespace v1
}  // namespace MUtils
