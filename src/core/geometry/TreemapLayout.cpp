#include "geometry/TreemapLayout.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace brenvo::TreemapLayout {

std::vector<double> displayWeights(const std::vector<double>& sizes, double minShare) {
    if (sizes.empty()) return {};
    const double floor = minShare * std::accumulate(sizes.begin(), sizes.end(), 0.0);
    std::vector<double> out;
    out.reserve(sizes.size());
    for (double size : sizes) out.push_back(std::max(size, floor));
    return out;
}

namespace {

// How far the row's worst rectangle is from square; infinite when the row can't be measured.
double worstRatio(const std::vector<double>& areas, size_t start, size_t end, double side) {
    double sum = 0, smallest = std::numeric_limits<double>::infinity(), largest = 0;
    for (size_t i = start; i < end; ++i) {
        sum += areas[i];
        smallest = std::min(smallest, areas[i]);
        largest = std::max(largest, areas[i]);
    }
    if (!(smallest > 0 && sum > 0)) return std::numeric_limits<double>::infinity();
    const double side2 = side * side, sum2 = sum * sum;
    return std::max(side2 * largest / sum2, sum2 / (side2 * smallest));
}

} // namespace

std::vector<Rect> squarify(const std::vector<double>& weights, Rect in) {
    std::vector<Rect> result(weights.size());
    if (weights.empty()) return result;
    const double total = std::accumulate(weights.begin(), weights.end(), 0.0);
    if (!(total > 0) || !(in.width > 0) || !(in.height > 0)) return result;
    const double scale = in.width * in.height / total;
    std::vector<double> areas;
    areas.reserve(weights.size());
    for (double w : weights) areas.push_back(w > 0 ? scale * w : 0);

    Rect free = in;
    size_t start = 0;
    const size_t count = areas.size();
    while (free.width > 0 && free.height > 0) {
        const double side = std::min(free.width, free.height);
        size_t end = start + 1;
        // A tie extends the row, infinities included, so zero areas simply join it.
        while (end < count && worstRatio(areas, start, end + 1, side) <= worstRatio(areas, start, end, side)) ++end;
        double rowArea = 0;
        for (size_t i = start; i < end; ++i) rowArea += areas[i];
        if (free.height <= free.width) {
            const double thickness = rowArea / free.height;
            double y = free.y;
            for (size_t i = start; i < end; ++i) {
                const double height = thickness > 0 ? areas[i] / thickness : 0;
                result[i] = {free.x, y, thickness, height};
                y += height;
            }
            free.x += thickness;
            free.width -= thickness;
        } else {
            const double thickness = rowArea / free.width;
            double x = free.x;
            for (size_t i = start; i < end; ++i) {
                const double width = thickness > 0 ? areas[i] / thickness : 0;
                result[i] = {x, free.y, width, thickness};
                x += width;
            }
            free.y += thickness;
            free.height -= thickness;
        }
        start = end;
        if (start >= count) break;
    }
    return result;
}

} // namespace brenvo::TreemapLayout
