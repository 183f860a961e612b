#pragma once

#include <vector>

namespace brenvo {

struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    bool operator==(const Rect&) const = default;
};

// Squarified treemaps: each rectangle's area is proportional to its weight, and rows are chosen to keep
// the rectangles near square. Pure arithmetic.
namespace TreemapLayout {

// One rectangle per weight, in the weights' order; the caller sorts them largest first.
std::vector<Rect> squarify(const std::vector<double>& weights, Rect in);
// Raises every weight to at least `minShare` of the total, so the smallest stay visible.
std::vector<double> displayWeights(const std::vector<double>& sizes, double minShare);

} // namespace TreemapLayout
} // namespace brenvo
