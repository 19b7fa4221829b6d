#include "support/rd_preview.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/preview_drawing.h"

namespace MUtils {

namespace {

constexpr int kColourBytes = 3 * sizeof(float);

// The pixels of one axis that an output pixel averages: first .. first + count - 1, counted from the bucket's
// edge. The weights add up to 1; as floats they would make even areas uneven. All but the outermost are the
// same: a bucket may be as wide as a file can claim, so they are not listed.
struct Footprint {
    int first = 0;
    int count = 0;
    double firstWeight = 0;
    double innerWeight = 0;
    double lastWeight = 0;

    double weight(int i) const { return i == 0 ? firstWeight : i == count - 1 ? lastWeight : innerWeight; }
};

// How one axis of the bucket lands in the output.
struct Axis {
    int firstOut = 0;  // the first output pixel whose centre lies in the bucket
    std::vector<Footprint> footprints;
};

// Products of two pixel positions and a scale can leave 64 bits when a file claims a large enough frame.
__extension__ using Wide = __int128;

// Output pixel o covers [o, o + 1) * canvas / out on the canvas. In units of 1 / (2 * out) all borders and
// centres are integers, so a pixel on the border of two buckets goes to exactly one of them.
Axis mapAxis(int canvas, int out, int start, int size) {
    const Wide unit = Wide{2} * out;
    const Wide edge = Wide{start} * unit;
    const Wide length = Wide{size} * unit;
    // The first output pixel whose centre, (2 o + 1) * canvas, is at or after `position`.
    const auto firstFrom = [canvas, out](Wide position) {
        const Wide steps = position - canvas;
        const Wide first = steps <= 0 ? 0 : (steps + Wide{2} * canvas - 1) / (Wide{2} * canvas);
        return static_cast<int>(std::min(first, Wide{out}));
    };
    Axis axis;
    axis.firstOut = firstFrom(edge);
    const int end = firstFrom(edge + length);
    for (int o = axis.firstOut; o < end; ++o) {
        const Wide low = std::max(Wide{2} * o * canvas - edge, Wide{0});
        const Wide high = std::min(Wide{2} * (Wide{o} + 1) * canvas - edge, length);
        const Wide last = (high - 1) / unit;
        const auto weight = [low, high, unit](Wide pixel) {
            const Wide covered = std::min(high, (pixel + 1) * unit) - std::max(low, pixel * unit);
            return static_cast<double>(covered) / static_cast<double>(high - low);
        };
        Footprint footprint;
        footprint.first = static_cast<int>(low / unit);
        footprint.count = static_cast<int>(last) - footprint.first + 1;
        footprint.firstWeight = weight(low / unit);
        footprint.innerWeight = static_cast<double>(unit) / static_cast<double>(high - low);
        footprint.lastWeight = weight(last);
        axis.footprints.push_back(footprint);
    }
    return axis;
}

// NaN counts as nothing; infinities of either sign show as white, so they must not cancel each other out.
float sanitized(float value) {
    return std::isnan(value) ? 0.0f : std::isinf(value) ? std::fabs(value) : value;
}

RGB24 displayed(const double* sums, ColCor* corrector) {
    float rgb[3] = {static_cast<float>(sums[0]), static_cast<float>(sums[1]), static_cast<float>(sums[2])};
    if (corrector != nullptr) {
        corrector->correct(rgb);
    } else {
        for (int i = 0; i < 3; ++i)
            rgb[i] = srgbFromLinear(rgb[i]);
    }
    return {byteFromDisplay(rgb[0]), byteFromDisplay(rgb[1]), byteFromDisplay(rgb[2])};
}

// The colours of a source, a few at a time.
class PixelWindow {
  public:
    explicit PixelWindow(const PixelSource& source) : source_(source) {}

    // The colour of pixel `index` of a row that ends before pixel `end`.
    const float* at(std::int64_t index, std::int64_t end) {
        if (index < first_ || index >= first_ + count_) {
            first_ = index;
            count_ = static_cast<int>(std::min<std::int64_t>(kPixels, end - index));
            source_.colours(first_, count_, rgb_);
        }
        return rgb_ + 3 * (index - first_);
    }

  private:
    static constexpr int kPixels = 256;

    const PixelSource& source_;
    std::int64_t first_ = 0;
    int count_ = 0;
    float rgb_[3 * kPixels];
};

// Adds a row's pixels under each footprint, weighted, to the sums of the output row.
void addRow(PixelWindow& pixels, std::int64_t rowStart, int width, const Axis& columns, double rowWeight,
            double* sums) {
    for (const Footprint& footprint : columns.footprints) {
        for (int i = 0; i < footprint.count; ++i) {
            const float* rgb = pixels.at(rowStart + footprint.first + i, rowStart + width);
            const double weight = rowWeight * footprint.weight(i);
            for (int c = 0; c < 3; ++c)
                sums[c] += weight * sanitized(rgb[c]);
        }
        sums += 3;
    }
}

// The first three floats of each value.
class TableColours final : public PixelSource {
  public:
    explicit TableColours(const MBVTable& data) : data_(data) {}

    void colours(std::int64_t first, int count, float* rgb) const override {
        const unsigned char* oneBlock = data_.numBlocks == 1 ? data_.blocks[0] : nullptr;
        for (int i = 0; i < count; ++i, rgb += 3) {
            std::memcpy(rgb,
                        oneBlock != nullptr ? oneBlock + (first + i) * data_.itemSize
                                            : data_.item(static_cast<int>(first + i)),
                        kColourBytes);
        }
    }

  private:
    const MBVTable& data_;
};

}  // namespace

ColCor::~ColCor() = default;

unsigned char byteFromDisplay(float value) {
    if (!(value > 0.0f)) return 0;
    return static_cast<unsigned char>(std::floor(std::min(value * 256.0f, 255.0f)));
}

float srgbFromLinear(float value) {
    return value <= 0.0031308f ? 12.92f * value : 1.055f * std::pow(value, 1.0f / 2.4f) - 0.055f;
}

bool CreateRDPreview(int /*mode*/, int /*reserved*/, int /*valueType*/, int /*alias*/, const MBVTable& data,
                     const MBVTable* /*second*/, int canvasWidth, int canvasHeight, int x, int y, int width,
                     int height, RGB24* out, int outWidth, int outHeight, RGB24 /*background*/,
                     int /*filter*/, ColCor* corrector, int hasCorrector, int /*reservedLast*/) {
    if (out == nullptr || data.itemSize < kColourBytes) return true;
    if (std::int64_t{width} * height > data.count) return true;
    drawBucket(TableColours(data), {x, y, width, height},
               {canvasWidth, canvasHeight, out, outWidth, outHeight},
               hasCorrector != 0 ? corrector : nullptr);
    return true;
}

inline namespace v1 {

void drawBucket(const PixelSource& source, const PreviewBox& box, const PreviewTarget& target,
                ColCor* corrector) {
    const bool sound = target.canvasWidth > 0 && target.canvasHeight > 0 && target.width > 0 &&
                       target.height > 0 && box.width > 0 && box.height > 0;
    if (!sound) return;
    const Axis columns = mapAxis(target.canvasWidth, target.width, box.x, box.width);
    if (columns.footprints.empty()) return;
    const Axis rows = mapAxis(target.canvasHeight, target.height, box.y, box.height);
    if (rows.footprints.empty()) return;
    PixelWindow pixels(source);
    std::vector<double> sums(columns.footprints.size() * 3);
    for (std::size_t row = 0; row < rows.footprints.size(); ++row) {
        std::fill(sums.begin(), sums.end(), 0.0);
        const Footprint& footprint = rows.footprints[row];
        for (int i = 0; i < footprint.count; ++i) {
            addRow(pixels, std::int64_t{box.width} * (footprint.first + i), box.width, columns,
                   footprint.weight(i), sums.data());
        }
        RGB24* line = target.pixels + (rows.firstOut + static_cast<std::int64_t>(row)) * target.width +
                      columns.firstOut;
        for (std::size_t column = 0; column < columns.footprints.size(); ++column)
            line[column] = displayed(&sums[3 * column], corrector);
    }
}

}  // namespace v1

}  // namespace MUtils
