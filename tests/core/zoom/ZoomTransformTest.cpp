#include "core/zoom/ZoomTransform.h"

#include <gtest/gtest.h>

#include <random>

namespace {

TEST(ZoomTransformTest, FocusIsClampedToKeepTheWindowInside) {
    // At 2x the window is half the frame, so its centre stays 0.25 from each edge.
    EXPECT_EQ(clampFocus({0.0, 0.0}, 2.0), (Point{0.25, 0.25}));
    EXPECT_EQ(clampFocus({1.0, 0.6}, 2.0), (Point{0.75, 0.6}));
    // At 1x (or below, which counts as 1x) the window is the frame: only the middle is allowed.
    EXPECT_EQ(clampFocus({0.0, 0.0}, 1.0), (Point{0.5, 0.5}));
    EXPECT_EQ(clampFocus({0.9, 0.1}, 0.5), (Point{0.5, 0.5}));
}

TEST(ZoomTransformTest, TransformPutsTheFocusInTheCentre) {
    // Focus (0.25, 0.25) at 2x on 1000x500: pixel (250, 125) times 2 lands on (500, 250).
    const AffineTransform full = zoomTransform({0.25, 0.25}, 2.0, 1.0, {1000.0, 500.0});
    EXPECT_EQ(full, (AffineTransform{2.0, 0.0, 0.0, 2.0, 0.0, 0.0}));
    // Half-way to 2x around the middle of 1000x1000: scale 1.5, translation (500 - 1000) / 2.
    const AffineTransform half = zoomTransform({0.5, 0.5}, 2.0, 0.5, {1000.0, 1000.0});
    EXPECT_EQ(half, (AffineTransform{1.5, 0.0, 0.0, 1.5, -250.0, -250.0}));
    // An out-of-range focus is clamped first: (0.9, 0.1) at 2x is (0.75, 0.25), so tx = 500 - 1500.
    const AffineTransform edge = zoomTransform({0.9, 0.1}, 2.0, 1.0, {1000.0, 1000.0});
    EXPECT_EQ(edge.tx, -1000.0);
    EXPECT_EQ(edge.ty, 0.0);
}

// Reading the focus back from a full-strength transform gives the clamped focus, for any focus,
// scale and frame shape; and the transform keeps the zoom window inside the output.
TEST(ZoomTransformTest, FocusRoundTripsAndWindowCoversTheOutput) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-0.5, 1.5);
    std::uniform_real_distribution<double> scale(1.0, 3.0);
    std::uniform_real_distribution<double> side(10.0, 4000.0);
    for (int i = 0; i < 500; ++i) {
        const Point focus{coordinate(random), coordinate(random)};
        const double s = scale(random);
        const Size size{side(random), side(random)};
        const AffineTransform t = zoomTransform(focus, s, 1.0, size);
        const Point back = focusFromTransform(t, s, size);
        const Point expected = clampFocus(focus, s);
        ASSERT_NEAR(back.x, expected.x, 1e-9);
        ASSERT_NEAR(back.y, expected.y, 1e-9);
        // The picture's corners must lie outside (or on) the output: no empty border shows.
        const Point low = t.apply({0.0, 0.0});
        const Point high = t.apply({size.width, size.height});
        ASSERT_LE(low.x, 1e-6);
        ASSERT_LE(low.y, 1e-6);
        ASSERT_GE(high.x, size.width - 1e-6);
        ASSERT_GE(high.y, size.height - 1e-6);
    }
}

} // namespace
