#include "rawimage/tools/diff_values.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

#include "rawimage/tools/channel_names.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();

// Whether the components of even numbers are ids. A channel of OpenEXR may have one of them only.
bool holdsIds(const FrameChannel& channel) {
    const int components = channel.components();
    if (components == 3 || !namesCryptoIds(channel.name)) return false;
    if (components > 1) return true;
    const std::string end = lowerCase(channel.name.substr(channel.name.rfind('.') + 1));
    return end == "r" || end == "b";
}

}  // namespace

std::array<std::size_t, 2> bytesOfPixels(const ChannelDiff& pair) {
    return {static_cast<std::size_t>(pair.channels[0].valueBytes()),
            static_cast<std::size_t>(pair.channels[1].valueBytes())};
}

double signedDifference(float a, float b) {
    if (a == b || (std::isnan(a) && std::isnan(b))) return 0;
    const double difference = static_cast<double>(a) - static_cast<double>(b);
    return std::isnan(difference) ? kInfinite : difference;
}

void BandMarks::add(std::int64_t x, std::int64_t y, std::int64_t count, unsigned marks) {
    unsigned char* mark = marks_.data() + (y - band_.y0) * band_.width() + (x - band_.x0);
    for (unsigned char* end = mark + count; mark != end; ++mark)
        *mark = static_cast<unsigned char>(*mark | marks);
}

void BandMarks::countInto(DiffReport& report) const {
    for (const unsigned char mark : marks_) {
        report.pixels += (mark & kCompared) != 0 ? 1 : 0;
        report.warnings += (mark & kWarned) != 0 ? 1 : 0;
        report.failures += (mark & kFailed) != 0 ? 1 : 0;
    }
}

ChannelComparison::ChannelComparison(ChannelDiff& result, const DiffOptions& options)
    : result_(result),
      options_(options),
      pixelBytes_(bytesOfPixels(result)),
      components_(std::min(result.channels[0].components(), result.channels[1].components())),
      integer_(result.channels[0].isInteger()),
      crypto_(holdsIds(result.channels[0])) {
    for (int i = 0; i < components_; ++i)
        numbersPerPixel_ += isId(i) ? 0 : 1;
}

void ChannelComparison::add(const ValuePair& pair, BandMarks& marks) {
    const auto width = static_cast<std::size_t>(pair.box.width());
    std::array<const unsigned char*, 2> row = pair.values;
    for (std::int64_t y = pair.box.y0; y < pair.box.y1; ++y) {
        const bool same =
            pixelBytes_[0] == pixelBytes_[1] && std::memcmp(row[0], row[1], width * pixelBytes_[0]) == 0;
        marks.add(pair.box.x0, y, pair.box.width(), BandMarks::kCompared);
        if (!same) addRow(y, pair, row, marks);
        for (std::size_t side = 0; side < 2; ++side)
            row[side] += width * pixelBytes_[side];
    }
    result_.pixels += pair.box.area();
}

// Sums of rows are added up on their own: long sums of small numbers lose little that way.
void ChannelComparison::addRow(std::int64_t y, const ValuePair& pair,
                               const std::array<const unsigned char*, 2>& row, BandMarks& marks) {
    rowSum_ = rowSquares_ = 0;
    std::array<const unsigned char*, 2> pixel = row;
    for (std::int64_t x = pair.box.x0; x < pair.box.x1; ++x) {
        const unsigned found = addPixel(x, y, pixel);
        if (found != 0) marks.add(x, y, 1, found);
        pixel[0] += pixelBytes_[0];
        pixel[1] += pixelBytes_[1];
    }
    sum_ += rowSum_;
    squares_ += rowSquares_;
}

unsigned ChannelComparison::addPixel(std::int64_t x, std::int64_t y,
                                     const std::array<const unsigned char*, 2>& pixel) {
    double top = 0;
    bool otherId = false;
    for (int i = 0; i < components_; ++i) {
        const unsigned char* a = pixel[0] + 4 * i;
        const unsigned char* b = pixel[1] + 4 * i;
        if (std::memcmp(a, b, 4) == 0) continue;
        if (isId(i)) {
            otherId = true;
            const auto id = [this](const unsigned char* at) {
                return integer_ ? static_cast<double>(loadI32(at)) : static_cast<double>(loadU32(at));
            };
            offerLargest(kInfinite, {x, y, i, {id(a), id(b)}});
            continue;
        }
        const float valueA = loadF32(a), valueB = loadF32(b);
        const double difference = std::fabs(signedDifference(valueA, valueB));
        rowSum_ += difference;
        rowSquares_ += difference * difference;
        top = std::max(top, difference);
        offerLargest(difference, {x, y, i, {static_cast<double>(valueA), static_cast<double>(valueB)}});
    }
    maximum_ = std::max(maximum_, top);
    if (otherId || top > 0) ++result_.differing;
    unsigned marks = 0;
    if (otherId || top > options_.warn.value) {
        ++result_.warnings;
        marks |= BandMarks::kWarned;
    }
    if (otherId || top > options_.fail.value) {
        ++result_.failures;
        marks |= BandMarks::kFailed;
    }
    return marks;
}

void ChannelComparison::offerLargest(double difference, const DiffPlace& place) {
    if (difference <= 0 || difference < largest_) return;
    const auto order = [](const DiffPlace& at) { return std::tie(at.y, at.x, at.component); };
    if (result_.largest && difference == largest_ && order(*result_.largest) <= order(place)) return;
    largest_ = difference;
    result_.largest = place;
}

void ChannelComparison::finish() {
    if (numbersPerPixel_ == 0 || result_.pixels == 0) return;
    const double count = static_cast<double>(result_.pixels) * numbersPerPixel_;
    DiffNumbers numbers;
    numbers.maximum = maximum_;
    numbers.mean = sum_ / count;
    numbers.rms = std::sqrt(squares_ / count);
    numbers.psnr = -20 * std::log10(numbers.rms);
    result_.numbers = numbers;
}

}  // namespace v1
}  // namespace MUtils
