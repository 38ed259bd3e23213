#include "core/geometry/AffineTransform.h"

#include <gtest/gtest.h>

namespace {

// The order of concatenation decides whether a translation is scaled too.
TEST(AffineTransformTest, ConcatenationAppliesLeftFirst) {
    const auto scale = AffineTransform::scaling(2.0, 3.0);
    const auto move = AffineTransform::translation(10.0, -5.0);
    // (1, 1) scaled to (2, 3), then moved to (12, -2).
    EXPECT_EQ(scale.concatenating(move).apply({1.0, 1.0}), (Point{12.0, -2.0}));
    // (1, 1) moved to (11, -4), then scaled to (22, -12).
    EXPECT_EQ(move.concatenating(scale).apply({1.0, 1.0}), (Point{22.0, -12.0}));
    // b and c: a quarter turn (a 0, b 1, c -1, d 0) takes (1, 0) to (0, 1).
    const AffineTransform turn{0.0, 1.0, -1.0, 0.0, 0.0, 0.0};
    EXPECT_EQ(turn.apply({1.0, 0.0}), (Point{0.0, 1.0}));
    EXPECT_EQ(turn.concatenating(turn).apply({1.0, 0.0}), (Point{-1.0, 0.0}));
}

TEST(AffineTransformTest, InterpolationBlendsEveryComponent) {
    const AffineTransform from{1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
    const AffineTransform to{3.0, 2.0, -2.0, 5.0, 100.0, -40.0};
    EXPECT_EQ(AffineTransform::interpolate(from, to, 0.0), from);
    EXPECT_EQ(AffineTransform::interpolate(from, to, 1.0), to);
    EXPECT_EQ(AffineTransform::interpolate(from, to, 0.5),
              (AffineTransform{2.0, 1.0, -1.0, 3.0, 50.0, -20.0}));
    EXPECT_TRUE(AffineTransform::identity().isIdentity());
    EXPECT_FALSE(to.isIdentity());
}

} // namespace
