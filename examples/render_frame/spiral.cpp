#include "examples/render_frame/spiral.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

namespace render_frame {

namespace {

// A bucket and where it lies on the spiral: which square ring around the start, and how far along it.
struct Stop {
    int ring;
    int step;
    Bucket bucket;
};

// Steps along ring `r` from just below its upper right corner: down the right side, along the bottom to
// the left, up the left side, along the top to the right. `dx`, `dy` are counted in buckets, dy down.
int stepOnRing(int dx, int dy, int r) {
    if (dx == r && dy > -r) return dy + r - 1;
    if (dy == r) return 2 * r + (r - 1 - dx);
    if (dx == -r) return 4 * r + (r - 1 - dy);
    return 6 * r + (dx + r - 1);
}

}  // namespace

std::vector<Bucket> spiralOrder(int frameWidth, int frameHeight, int bucketWidth, int bucketHeight) {
    const int columns = (frameWidth - 1) / bucketWidth + 1;
    const int rows = (frameHeight - 1) / bucketHeight + 1;
    std::vector<Stop> stops;
    stops.reserve(static_cast<size_t>(columns) * static_cast<size_t>(rows));
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const int dx = column - (columns - 1) / 2, dy = row - (rows - 1) / 2;
            const int ring = std::max(std::abs(dx), std::abs(dy));
            const int x = column * bucketWidth, y = row * bucketHeight;
            const Bucket bucket{x, x + std::min(bucketWidth, frameWidth - x), y,
                                y + std::min(bucketHeight, frameHeight - y)};
            stops.push_back({ring, stepOnRing(dx, dy, ring), bucket});
        }
    }
    std::sort(stops.begin(), stops.end(), [](const Stop& a, const Stop& b) {
        return std::tie(a.ring, a.step) < std::tie(b.ring, b.step);
    });
    std::vector<Bucket> order;
    order.reserve(stops.size());
    for (const Stop& stop : stops)
        order.push_back(stop.bucket);
    return order;
}

std::vector<Bucket> clipTo(const Bucket& region, const std::vector<Bucket>& buckets) {
    std::vector<Bucket> clipped;
    for (const Bucket& b : buckets) {
        const Bucket part{std::max(b.x0, region.x0), std::min(b.x1, region.x1), std::max(b.y0, region.y0),
                          std::min(b.y1, region.y1)};
        if (!part.empty()) clipped.push_back(part);
    }
    return clipped;
}

}  // namespace render_frame
