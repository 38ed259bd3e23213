#include "core/zoom/ZoomEasing.h"

#include <gtest/gtest.h>

namespace {

TEST(ZoomEasingTest, FifthPowerCurveValues) {
    // 16 * 0.25^5 = 16 / 1024; after the middle 1 - (2 - 1.5)^5 / 2 = 1 - 1/64.
    EXPECT_DOUBLE_EQ(zoomCubicEaseInOut(0.25), 0.015625);
    EXPECT_DOUBLE_EQ(zoomCubicEaseInOut(0.5), 0.5);
    EXPECT_DOUBLE_EQ(zoomCubicEaseInOut(0.75), 0.984375);
    EXPECT_EQ(zoomCubicEaseInOut(-3.0), 0.0);
    EXPECT_EQ(zoomCubicEaseInOut(7.0), 1.0);
}

// The curve is point-symmetric about the middle and never goes backwards.
TEST(ZoomEasingTest, FifthPowerCurveIsSymmetricAndMonotonic) {
    double previous = 0.0;
    for (int i = 0; i <= 200; ++i) {
        const double p = i / 200.0;
        EXPECT_NEAR(zoomCubicEaseInOut(p) + zoomCubicEaseInOut(1.0 - p), 1.0, 1e-12) << p;
        EXPECT_GE(zoomCubicEaseInOut(p), previous) << p;
        previous = zoomCubicEaseInOut(p);
    }
}

TEST(ZoomEasingTest, BezierSolvesForX) {
    // With x1 = 1/3 and x2 = 2/3 the curve's x equals its parameter, so y is the plain Bernstein
    // sum: at 0.25 with y1 0, y2 1 that is 3 * 0.75 * 0.25^2 + 0.25^3 = 0.15625.
    EXPECT_NEAR(cubicBezier(1.0 / 3.0, 0.0, 2.0 / 3.0, 1.0, 0.25), 0.15625, 1e-9);
    EXPECT_NEAR(cubicBezier(1.0 / 3.0, 0.0, 2.0 / 3.0, 1.0, 0.5), 0.5, 1e-9);
    // Equal control points on the diagonal give the identity curve, whatever x does.
    for (double t : {0.0, 0.1, 0.37, 0.5, 0.81, 1.0}) {
        EXPECT_NEAR(cubicBezier(0.1, 0.1, 0.9, 0.9, t), t, 1e-5) << t;
        // Flat ends (slope 0 at u = 0 and 1) must fall back to bisection, not divide by 0.
        EXPECT_NEAR(cubicBezier(0.0, 0.0, 1.0, 1.0, t), t, 1e-5) << t;
    }
    EXPECT_EQ(cubicBezier(0.1, 0.0, 0.2, 1.0, -1.0), 0.0);
    EXPECT_NEAR(cubicBezier(0.1, 0.0, 0.2, 1.0, 2.0), 1.0, 1e-12);
}

} // namespace
