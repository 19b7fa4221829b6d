#include "rawimage/tools/value_stats.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Values are summed up in this many sums side by side: always in the same order, and several at a time.
constexpr std::size_t kLanes = 8;
using Lanes = std::array<double, kLanes>;

constexpr std::uint32_t kExponent = 0x7F800000;
constexpr std::uint32_t kMantissa = 0x007FFFFF;
constexpr std::uint32_t kSign = 0x80000000;

// Calls each(lane, value) for all values.
template <class Each>
void overLanes(const std::vector<double>& values, std::size_t count, Each each) {
    const std::size_t blocks = count / kLanes * kLanes;
    for (std::size_t i = 0; i < blocks; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane)
            each(lane, values[i + lane]);
    }
    for (std::size_t i = blocks; i < count; ++i)
        each(i - blocks, values[i]);
}

double sumOf(const Lanes& lanes) {
    double sum = 0;
    for (const double lane : lanes)
        sum += lane;
    return sum;
}

void addFinite(const std::vector<double>& values, std::size_t count, ValueMoments& moments) {
    if (count == 0) return;
    // Of distances from a value of the row, whose sum of squares loses no digits that matter: when that value
    // is far from all others, so is the mean from most of them.
    const double origin = values[0];
    Lanes sums{}, squares{}, least, most, negative{}, zero{};
    least.fill(origin);
    most.fill(origin);
    overLanes(values, count, [&](std::size_t lane, double value) {
        const double distance = value - origin;
        sums[lane] += distance;
        squares[lane] += distance * distance;
        least[lane] = value < least[lane] ? value : least[lane];
        most[lane] = value > most[lane] ? value : most[lane];
        negative[lane] += value < 0 ? 1.0 : 0.0;
        zero[lane] += value == 0 ? 1.0 : 0.0;
    });
    const auto number = static_cast<double>(count);
    const double distances = sumOf(sums);
    moments.finite = static_cast<std::int64_t>(count);
    moments.sum = distances + origin * number;
    moments.squares = std::max(sumOf(squares) - distances * distances / number, 0.0);
    moments.min = *std::min_element(least.begin(), least.end());
    moments.max = *std::max_element(most.begin(), most.end());
    moments.negative.count = static_cast<std::int64_t>(sumOf(negative));
    moments.zero = static_cast<std::int64_t>(sumOf(zero));
}

void count(ValueCount& values, std::int64_t x, std::int64_t y) {
    if (values.count++ > 0) return;
    values.x = x;
    values.y = y;
}

// Calls visit(bits, x) for each value of the component; true ends it.
template <class Visit>
void eachBits(const FrameRow& row, int component, Visit visit) {
    for (const RowRun& run : row.runs) {
        const unsigned char* at = row.at(run.x0) + 4 * component;
        for (std::int64_t x = run.x0; x < run.x1; ++x, at += row.valueBytes) {
            if (visit(loadU32(at), x)) return;
        }
    }
}

void addOthers(const FrameRow& row, int component, ValueMoments& moments) {
    eachBits(row, component, [&](std::uint32_t bits, std::int64_t x) {
        if ((bits & kExponent) != kExponent) return false;
        if ((bits & kMantissa) != 0) {
            count(moments.nan, x, row.y);
        } else if ((bits & kSign) == 0) {
            count(moments.plusInf, x, row.y);
        } else {
            count(moments.minusInf, x, row.y);
        }
        return false;
    });
    moments.negative.count += moments.minusInf.count;
}

void findFirstNegative(const FrameRow& row, int component, bool isInteger, ValueMoments& moments) {
    if (moments.negative.count == 0) return;
    eachBits(row, component, [&](std::uint32_t bits, std::int64_t x) {
        const bool isNegative = isInteger ? (bits & kSign) != 0 : floatFromBits(bits) < 0;
        if (!isNegative) return false;
        moments.negative.x = x;
        moments.negative.y = row.y;
        return true;
    });
}

void join(ValueCount& values, const ValueCount& later) {
    if (values.count == 0) {
        values = later;
    } else {
        values.count += later.count;
    }
}

}  // namespace

void ValueMoments::add(const ValueMoments& later) {
    join(nan, later.nan);
    join(plusInf, later.plusInf);
    join(minusInf, later.minusInf);
    join(negative, later.negative);
    if (later.finite == 0) return;
    zero += later.zero;
    if (finite == 0) {
        finite = later.finite;
        min = later.min;
        max = later.max;
        sum = later.sum;
        squares = later.squares;
        return;
    }
    const auto ours = static_cast<double>(finite), theirs = static_cast<double>(later.finite);
    const double apart = later.sum / theirs - sum / ours;
    squares += later.squares + apart * apart * ours * theirs / (ours + theirs);
    sum += later.sum;
    finite += later.finite;
    min = std::min(min, later.min);
    max = std::max(max, later.max);
}

ValueStats ValueMoments::stats(const char* name) const {
    ValueStats stats;
    stats.name = name;
    stats.finite = finite;
    if (finite > 0) {
        const auto number = static_cast<double>(finite);
        stats.min = min;
        stats.max = max;
        stats.mean = sum / number;
        stats.deviation = std::sqrt(squares / number);
    }
    stats.nan = nan;
    stats.plusInf = plusInf;
    stats.minusInf = minusInf;
    stats.negative = negative;
    stats.zero = zero;
    return stats;
}

ValueMoments momentsOf(const FrameRow& row, int component, bool isInteger, std::vector<double>& room) {
    std::size_t all = 0;
    for (const RowRun& run : row.runs)
        all += static_cast<std::size_t>(run.x1 - run.x0);
    if (room.size() < all) room.resize(all);
    std::size_t kept = 0;
    // A value that is not finite is overwritten by the next one.
    eachBits(row, component, [&](std::uint32_t bits, std::int64_t) {
        const bool finite = isInteger || (bits & kExponent) != kExponent;
        const double value = isInteger ? static_cast<double>(static_cast<std::int32_t>(bits))
                                       : static_cast<double>(floatFromBits(bits));
        room[kept] = value;
        kept += finite ? 1 : 0;
        return false;
    });
    ValueMoments moments;
    addFinite(room, kept, moments);
    if (kept < all) addOthers(row, component, moments);
    findFirstNegative(row, component, isInteger, moments);
    return moments;
}

}  // namespace v1
}  // namespace MUtils
