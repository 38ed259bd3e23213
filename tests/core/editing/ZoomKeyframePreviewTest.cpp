#include "core/editing/ZoomKeyframePreview.h"

#include <gtest/gtest.h>

namespace {

ZoomKeyframe keyframe(double time, Point center, double level, double easeIn = 1.0,
                      double easeOut = 1.0) {
    ZoomKeyframe k;
    k.time = time;
    k.center = center;
    k.level = level;
    k.easeIn = easeIn;
    k.easeOut = easeOut;
    return k;
}

void expectState(const ZoomPreviewState& actual, double scale, Point center) {
    EXPECT_NEAR(actual.scale, scale, 1e-12);
    EXPECT_NEAR(actual.center.x, center.x, 1e-12);
    EXPECT_NEAR(actual.center.y, center.y, 1e-12);
}

TEST(ZoomKeyframePreviewTest, NoKeyframesMeansNoZoom) {
    EXPECT_EQ(previewSegmentedKeyframeState(3.0, {}), (ZoomPreviewState{1.0, {0.5, 0.5}}));
}

TEST(ZoomKeyframePreviewTest, EasesIntoTheFirstAndOutOfTheLast) {
    const std::vector<ZoomKeyframe> one = {keyframe(4.0, {0.1, 0.9}, 3.0, 1.0, 2.0)};
    expectState(previewSegmentedKeyframeState(2.0, one), 1.0, {0.5, 0.5});
    // Half-way through the 1 s ease-in the curve is at 0.5: scale 2, centre half-way.
    expectState(previewSegmentedKeyframeState(3.5, one), 2.0, {0.3, 0.7});
    expectState(previewSegmentedKeyframeState(4.0, one), 3.0, {0.1, 0.9});
    // A quarter of the 2 s ease-out: the curve is at 16 * 0.25^5 = 1/64.
    expectState(previewSegmentedKeyframeState(4.5, one), 3.0 - 2.0 / 64.0,
                {0.1 + 0.4 / 64.0, 0.9 - 0.4 / 64.0});
    expectState(previewSegmentedKeyframeState(7.0, one), 1.0, {0.5, 0.5});
}

TEST(ZoomKeyframePreviewTest, HoldsBetweenWidelySpacedKeyframes) {
    const std::vector<ZoomKeyframe> two = {keyframe(10.0, {0.8, 0.8}, 2.0, 1.0),
                                           keyframe(2.0, {0.2, 0.2}, 3.0)};
    // Between 2 and 9 the first keyframe holds; the move takes the last second, the ease-in.
    expectState(previewSegmentedKeyframeState(5.0, two), 3.0, {0.2, 0.2});
    expectState(previewSegmentedKeyframeState(9.5, two), 2.5, {0.5, 0.5});
    // Keyframes closer than the ease-in share the whole gap: 2 ... 2.5 with an ease of 1.
    const std::vector<ZoomKeyframe> close = {keyframe(2.0, {0.2, 0.2}, 3.0),
                                             keyframe(2.5, {0.8, 0.8}, 2.0)};
    expectState(previewSegmentedKeyframeState(2.25, close), 2.5, {0.5, 0.5});
}

TEST(ZoomKeyframePreviewTest, BottomLeftPointsAreMirroredAndClamped) {
    EXPECT_EQ(convertBLToTLPreview({0.25, 0.75}), (Point{0.25, 0.25}));
    EXPECT_EQ(convertBLToTLPreview({1.5, 1.2}), (Point{1.0, 0.0}));
}

} // namespace
