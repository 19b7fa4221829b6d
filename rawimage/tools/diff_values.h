#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/tools/diff.h"

namespace MUtils {
inline namespace v1 {

// The difference of two numbers: 0 of NaN and NaN, and of equal infinities; infinite of anything else that
// has one of them.
double signedDifference(float a, float b);

// Of the channel in each frame.
std::array<std::size_t, 2> bytesOfPixels(const ChannelDiff& pair);

// The values of a box in both frames, row after row without gaps.
struct ValuePair {
    PixelBox box;
    std::array<const unsigned char*, 2> values;
};

// Where a pixel of a band is beyond a limit in any channel.
class BandMarks {
  public:
    enum Mark : unsigned char { kCompared = 1, kWarned = 2, kFailed = 4 };

    explicit BandMarks(const PixelBox& band) : band_(band), marks_(static_cast<std::size_t>(band.area())) {}

    // `count` pixels from (x, y) to the right.
    void add(std::int64_t x, std::int64_t y, std::int64_t count, unsigned marks);
    // Adds the pixels of each kind to the report's.
    void countInto(DiffReport& report) const;

  private:
    const PixelBox band_;
    std::vector<unsigned char> marks_;
};

// Compares the values of a channel, box by box, and keeps the account of it.
class ChannelComparison {
  public:
    // `result` must outlive the object.
    ChannelComparison(ChannelDiff& result, const DiffOptions& options);

    void add(const ValuePair& pair, BandMarks& marks);
    void finish();

  private:
    bool isId(int component) const { return integer_ || (crypto_ && component % 2 == 0); }
    void addRow(std::int64_t y, const ValuePair& pair, const std::array<const unsigned char*, 2>& row,
                BandMarks& marks);
    // Returns the marks of the pixel.
    unsigned addPixel(std::int64_t x, std::int64_t y, const std::array<const unsigned char*, 2>& pixel);
    void offerLargest(double difference, const DiffPlace& place);

    ChannelDiff& result_;
    const DiffOptions& options_;
    const std::array<std::size_t, 2> pixelBytes_;
    const int components_;
    const bool integer_;
    const bool crypto_;
    int numbersPerPixel_ = 0;
    double maximum_ = 0, sum_ = 0, squares_ = 0;
    double rowSum_ = 0, rowSquares_ = 0;
    double largest_ = 0;  // of which result_.largest is the place; ids count as infinite
};

}  // namespace v1
}  // namespace MUtils
