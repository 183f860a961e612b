#include "geometry/TreemapLayout.h"

#include <gtest/gtest.h>
#include <random>

using namespace brenvo;
using TreemapLayout::displayWeights;
using TreemapLayout::squarify;

TEST(TreemapLayout, RowsAndColumnsFollowTheShapeOfWhatIsLeft) {
    EXPECT_EQ(squarify({5}, {1, 2, 30, 20}), (std::vector<Rect>{{1, 2, 30, 20}}));
    // Two equal halves of a 2:1 rectangle: two squares side by side.
    EXPECT_EQ(squarify({1, 1}, {0, 0, 200, 100}), (std::vector<Rect>{{0, 0, 100, 100}, {100, 0, 100, 100}}));
    // A tall rectangle fills rows along the top.
    auto tall = squarify({6, 2, 1, 1}, {0, 0, 10, 100});
    EXPECT_EQ(tall[0].y, 0);
    EXPECT_DOUBLE_EQ(tall[0].width * tall[0].height, 600);
    EXPECT_DOUBLE_EQ(tall[3].width * tall[3].height, 100);
}

TEST(TreemapLayout, NothingToDrawGivesEmptyRectanglesWithoutDividingByZero) {
    EXPECT_TRUE(squarify({}, {0, 0, 10, 10}).empty());
    EXPECT_EQ(squarify({0, 0}, {0, 0, 10, 10}), (std::vector<Rect>(2)));
    EXPECT_EQ(squarify({1, 2}, {0, 0, 0, 10}), (std::vector<Rect>(2)));
    auto withZero = squarify({4, 0, 1}, {0, 0, 10, 10});
    EXPECT_DOUBLE_EQ(withZero[1].width * withZero[1].height, 0);
    EXPECT_DOUBLE_EQ(withZero[0].width * withZero[0].height + withZero[2].width * withZero[2].height, 100);
}

TEST(TreemapLayout, AreasAreProportionalAndFillTheRectangle) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> weight(0.5, 1000);
    for (int round = 0; round < 50; ++round) {
        std::vector<double> weights(1 + round % 40);
        for (double& w : weights) w = weight(rng);
        std::sort(weights.rbegin(), weights.rend());
        const Rect area{3, 5, 640.0 + round, 360};
        auto rects = squarify(weights, area);
        ASSERT_EQ(rects.size(), weights.size());
        double sum = 0, total = 0;
        for (double w : weights) total += w;
        for (size_t i = 0; i < rects.size(); ++i) {
            const Rect& r = rects[i];
            sum += r.width * r.height;
            EXPECT_NEAR(r.width * r.height, weights[i] / total * area.width * area.height, 1e-6);
            EXPECT_GE(r.x, area.x - 1e-9);
            EXPECT_LE(r.x + r.width, area.x + area.width + 1e-6);
            EXPECT_LE(r.y + r.height, area.y + area.height + 1e-6);
        }
        EXPECT_NEAR(sum, area.width * area.height, 1e-6);
    }
}

TEST(TreemapLayout, DisplayWeightsKeepTheSmallVisible) {
    auto shown = displayWeights({100, 1}, 0.03);
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_DOUBLE_EQ(shown[0], 100);
    EXPECT_DOUBLE_EQ(shown[1], 3.03);
    EXPECT_TRUE(displayWeights({}, 0.03).empty());
}
