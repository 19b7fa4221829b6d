#include "support/rd_preview.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace MUtils {

namespace {

constexpr int kColourBytes = 3 * sizeof(float);

// The pixels of one axis that an output pixel averages: first .. first + weights - 1, counted from the
// bucket's edge.
struct Footprint {
    int first = 0;
    std::size_t weightsAt = 0;  // into Axis::weights
    int count = 0;
};

// How one axis of the bucket lands in the output.
struct Axis {
    int firstOut = 0;  // the first output pixel whose centre lies in the bucket
    std::vector<Footprint> footprints;
    // Those of a footprint add up to 1; as floats they would make even areas uneven.
    std::vector<double> weights;
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
        Footprint footprint;
        footprint.first = static_cast<int>(low / unit);
        footprint.weightsAt = axis.weights.size();
        for (Wide pixel = low / unit; pixel * unit < high; ++pixel) {
            const Wide covered = std::min(high, (pixel + 1) * unit) - std::max(low, pixel * unit);
            axis.weights.push_back(static_cast<double>(covered) / static_cast<double>(high - low));
            ++footprint.count;
        }
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

// Adds a row's pixels under each footprint, weighted, to the sums of the output row.
void addRow(const MBVTable& data, std::int64_t rowStart, const Axis& columns, double rowWeight,
            double* sums) {
    const unsigned char* oneBlock = data.numBlocks == 1 ? data.blocks[0] : nullptr;
    for (const Footprint& footprint : columns.footprints) {
        for (int i = 0; i < footprint.count; ++i) {
            const std::int64_t index = rowStart + footprint.first + i;
            float rgb[3];
            std::memcpy(
                rgb,
                oneBlock != nullptr ? oneBlock + index * data.itemSize : data.item(static_cast<int>(index)),
                sizeof rgb);
            const double weight =
                rowWeight * columns.weights[footprint.weightsAt + static_cast<std::size_t>(i)];
            for (int c = 0; c < 3; ++c)
                sums[c] += weight * sanitized(rgb[c]);
        }
        sums += 3;
    }
}

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
    const bool sound =
        canvasWidth > 0 && canvasHeight > 0 && outWidth > 0 && outHeight > 0 && width > 0 && height > 0;
    if (!sound || out == nullptr || data.itemSize < kColourBytes) return true;
    if (std::int64_t{width} * height > data.count) return true;
    if (hasCorrector == 0) corrector = nullptr;

    const Axis columns = mapAxis(canvasWidth, outWidth, x, width);
    if (columns.footprints.empty()) return true;
    const Axis rows = mapAxis(canvasHeight, outHeight, y, height);
    if (rows.footprints.empty()) return true;
    std::vector<double> sums(columns.footprints.size() * 3);
    for (std::size_t row = 0; row < rows.footprints.size(); ++row) {
        std::fill(sums.begin(), sums.end(), 0.0);
        const Footprint& footprint = rows.footprints[row];
        for (int i = 0; i < footprint.count; ++i) {
            addRow(data, std::int64_t{width} * (footprint.first + i), columns,
                   rows.weights[footprint.weightsAt + static_cast<std::size_t>(i)], sums.data());
        }
        RGB24* target = out + (rows.firstOut + static_cast<std::int64_t>(row)) * outWidth + columns.firstOut;
        for (std::size_t column = 0; column < columns.footprints.size(); ++column) {
            target[column] = displayed(&sums[3 * column], corrector);
        }
    }
    return true;
}

}  // namespace MUtils
