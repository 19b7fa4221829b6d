#pragma once

#include <cstdint>
#include <vector>

#include "rawimage/tools/frame_rows.h"
#include "rawimage/tools/stats.h"

namespace MUtils {
inline namespace v1 {

// What a component's values are like, in a form that can be joined: mean and sum of squared distances from it
// instead of a sum of squares, in which the difference of two large numbers would lose the deviation.
struct ValueMoments {
    std::int64_t finite = 0;
    double min = 0.0, max = 0.0;
    double sum = 0.0;
    double squares = 0.0;  // of the distances from the mean
    ValueCount nan, plusInf, minusInf, negative;
    std::int64_t zero = 0;

    // Joins the values of pixels that come behind these. The result depends on the order only in its last
    // digits.
    void add(const ValueMoments& later);
    ValueStats stats(const char* name) const;
};

// One component of a row. `room` is working memory.
ValueMoments momentsOf(const FrameRow& row, int component, bool isInteger, std::vector<double>& room);

}  // namespace v1
}  // namespace MUtils
