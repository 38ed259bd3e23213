#include "core/metadata/ZoomSegment.h"

#include <gtest/gtest.h>

namespace {
ZoomSegment segment(double start, double end, double easeIn = 0.8, double easeOut = 0.8) {
    return ZoomSegment({.startTime = start, .endTime = end, .easeIn = easeIn, .easeOut = easeOut});
}
} // namespace

// The initialiser keeps an edited segment sensible; each limit is checked on both sides.
TEST(ZoomSegmentTest, InitialiserAppliesItsLimits) {
    const ZoomSegment tooShort = segment(10, 10.2);
    EXPECT_EQ(tooShort.startTime, 10);
    EXPECT_EQ(tooShort.endTime, 10.5);

    const ZoomSegment high({.startTime = 0,
                            .endTime = 1,
                            .zoomLevel = 5,
                            .easeIn = 3,
                            .easeOut = -1,
                            .panSmoothing = 1.5,
                            .deadZone = 0.5,
                            .focusPoint = Point{1.5, -0.2}});
    EXPECT_EQ(high.zoomLevel, 3.0);
    EXPECT_EQ(high.easeIn, 2.0);
    EXPECT_EQ(high.easeOut, 0.0);
    EXPECT_EQ(high.panSmoothing, 1.0);
    EXPECT_EQ(high.deadZone, 0.3);
    EXPECT_EQ(high.focusPoint, (Point{1, 0}));

    const ZoomSegment low(
        {.startTime = 0, .endTime = 1, .zoomLevel = 0.5, .panSmoothing = -1, .deadZone = -1});
    EXPECT_EQ(low.zoomLevel, 1.0);
    EXPECT_EQ(low.panSmoothing, 0.0);
    EXPECT_EQ(low.deadZone, 0.0);
    EXPECT_FALSE(low.focusPoint.has_value());
}

TEST(ZoomSegmentTest, AutoSegmentsAlwaysFollowTheCursor) {
    EXPECT_TRUE(
        ZoomSegment({.startTime = 0, .endTime = 1, .mode = ZoomSegmentMode::auto_}).followCursor);
    EXPECT_FALSE(ZoomSegment({.startTime = 0, .endTime = 1}).followCursor);
}

TEST(ZoomSegmentTest, RangesStopAtZeroBeforeTheStart) {
    // 0.3 - 0.8 is below 0, so the ease-in range starts at 0.
    EXPECT_EQ(segment(0.3, 2).easeInRange(), (TimeRange{0, 0.3}));
    EXPECT_EQ(segment(5, 7, 1.5, 0.5).easeInRange(), (TimeRange{3.5, 5}));
    EXPECT_EQ(segment(5, 7, 1.5, 0.5).easeOutRange(), (TimeRange{7, 7.5}));
}

// Only bodies overlap; touching segments do not, though both contain the shared instant.
TEST(ZoomSegmentTest, OverlapCountsBodiesOnly) {
    const ZoomSegment first = segment(1, 2);
    const ZoomSegment second = segment(2, 3);
    EXPECT_FALSE(first.overlaps(second));
    EXPECT_FALSE(second.overlaps(first));
    EXPECT_TRUE(first.contains(2.5));  // in its ease-out, 2 ... 2.8
    EXPECT_TRUE(second.contains(2.5)); // in its body
    EXPECT_TRUE(segment(1, 2.1).overlaps(second));
    EXPECT_TRUE(second.overlaps(segment(2.9, 4)));
}

TEST(ZoomSegmentTest, ContainsIncludesBothEnds) {
    const ZoomSegment s = segment(5, 7, 1, 0.5);
    EXPECT_TRUE(s.contains(4));
    EXPECT_TRUE(s.contains(7.5));
    EXPECT_FALSE(s.contains(3.999));
    EXPECT_FALSE(s.contains(7.501));
    EXPECT_TRUE(s.bodyContains(5));
    EXPECT_TRUE(s.bodyContains(7));
    EXPECT_FALSE(s.bodyContains(4.999));
    // A segment near 0 contains 0 through its clipped ease-in.
    EXPECT_TRUE(segment(0.3, 1).contains(0));
}
