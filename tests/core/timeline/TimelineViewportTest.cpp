#include "core/timeline/TimelineViewport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// An empty recording still has a window to draw ruler and tracks in.
TEST(TimelineViewportTest, EmptyOrInvalidDurationShowsMinimumWindow) {
    for (double d : {0.0, -4.0, std::numeric_limits<double>::quiet_NaN(),
                     std::numeric_limits<double>::infinity()}) {
        TimelineViewport v(d);
        EXPECT_EQ(v.duration, 0.0);
        EXPECT_EQ(v.visibleStart, 0.0);
        EXPECT_EQ(v.visibleEnd, 0.3);
    }
}

// A recording shorter than the minimum span is shown whole, and zoom cannot narrow it.
TEST(TimelineViewportTest, ShortRecordingIsShownWholeAndDoesNotZoom) {
    TimelineViewport v(0.2);
    EXPECT_EQ(v.visibleStart, 0.0);
    EXPECT_EQ(v.visibleEnd, 0.2);
    v.zoom(4.0, 0.1);
    EXPECT_EQ(v.visibleStart, 0.0);
    EXPECT_EQ(v.visibleEnd, 0.2);
    EXPECT_TRUE(v.isShowingFullDuration());
}

// The constructor pulls a window back inside the recording, keeping its span.
TEST(TimelineViewportTest, InitialWindowIsNormalised) {
    // Span 4 asked at 8 ... 12 of 10 s: the start becomes min(10 - 4, 8) = 6.
    TimelineViewport late(10.0, 8.0, 12.0);
    EXPECT_EQ(late.visibleStart, 6.0);
    EXPECT_EQ(late.visibleEnd, 10.0);
    // An inverted window has no usable span and falls back to the whole duration.
    TimelineViewport inverted(10.0, 5.0, 2.0);
    EXPECT_EQ(inverted.visibleStart, 0.0);
    EXPECT_EQ(inverted.visibleEnd, 10.0);
    // A span of 0.1 is widened to 0.3 from the same start.
    TimelineViewport narrow(10.0, 2.0, 2.1);
    EXPECT_DOUBLE_EQ(narrow.visibleEnd - narrow.visibleStart, 0.3);
    EXPECT_EQ(narrow.visibleStart, 2.0);
    // A negative start is raised to 0.
    TimelineViewport early(10.0, -3.0, 1.0);
    EXPECT_EQ(early.visibleStart, 0.0);
    EXPECT_EQ(early.visibleEnd, 4.0);
}

TEST(TimelineViewportTest, ZoomKeepsTheAnchorInPlace) {
    // Factor 2 at the middle of 0 ... 10: span 5, ratio 0.5, start 5 - 2.5 = 2.5.
    TimelineViewport v(10.0);
    v.zoom(2.0, 5.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 2.5);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 7.5);
    // Anchor at 3.5 in 2.5 ... 7.5: ratio 0.2; zooming out by 0.5 gives span 10, start
    // 3.5 - 10 * 0.2 = 1.5, which normalisation pulls back to 0 since the span is everything.
    v.zoom(0.5, 3.5);
    EXPECT_EQ(v.visibleStart, 0.0);
    EXPECT_EQ(v.visibleEnd, 10.0);
    // The anchor's x stays put: at 8 in a 0 ... 10 window of 100 points it is at x 80, and
    // after zooming in by 4 (span 2.5, start 8 - 2.5 * 0.8 = 6) it is again at x 80.
    TimelineViewport w(10.0);
    const double before = w.timeToX(8.0, 100.0);
    w.zoom(4.0, 8.0);
    EXPECT_DOUBLE_EQ(w.visibleStart, 6.0);
    EXPECT_DOUBLE_EQ(w.timeToX(8.0, 100.0), before);
}

TEST(TimelineViewportTest, ZoomStopsAtMinimumSpan) {
    TimelineViewport v(10.0);
    for (int i = 0; i < 20; ++i) {
        v.zoom(2.0, 5.0);
    }
    EXPECT_NEAR(v.visibleEnd - v.visibleStart, 0.3, 1e-12);
    EXPECT_GE(v.visibleStart, 0.0);
    EXPECT_LE(v.visibleEnd, 10.0);
}

// Factors that make no sense refit instead of leaving a broken window.
TEST(TimelineViewportTest, InvalidZoomFactorRefits) {
    for (double factor : {0.0, -1.0, std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()}) {
        TimelineViewport v(10.0, 2.0, 4.0);
        v.zoom(factor, 3.0);
        EXPECT_TRUE(v.isShowingFullDuration()) << factor;
    }
}

TEST(TimelineViewportTest, PanStopsAtTheEndsAndRefitsWhenAllIsShown) {
    TimelineViewport v(10.0, 2.0, 4.0);
    v.pan(100.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 8.0);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 10.0);
    v.pan(-100.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 0.0);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 2.0);
    v.pan(1.5);
    EXPECT_DOUBLE_EQ(v.visibleStart, 1.5);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 3.5);

    // A window that shows everything has nothing to pan over: it is refitted.
    TimelineViewport whole(10.0);
    whole.visibleStart = 0.5; // a stale window, as after a duration change
    whole.visibleEnd = 10.5;
    whole.pan(1.0);
    EXPECT_EQ(whole.visibleStart, 0.0);
    EXPECT_EQ(whole.visibleEnd, 10.0);
}

TEST(TimelineViewportTest, NormalizedAndFitFollowANewDuration) {
    TimelineViewport v(10.0, 6.0, 10.0);
    // Shrinking to 5 s keeps the 4 s span and pulls it back to 1 ... 5.
    const TimelineViewport shorter = v.normalized(5.0);
    EXPECT_DOUBLE_EQ(shorter.visibleStart, 1.0);
    EXPECT_DOUBLE_EQ(shorter.visibleEnd, 5.0);
    EXPECT_EQ(v.duration, 10.0); // the original is untouched
    v.fitToDuration(20.0);
    EXPECT_EQ(v.visibleStart, 0.0);
    EXPECT_EQ(v.visibleEnd, 20.0);
    v.fitToDuration(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(v.duration, 0.0);
    EXPECT_EQ(v.visibleEnd, 0.3);
}

TEST(TimelineViewportTest, TimeAndXMapBothWays) {
    TimelineViewport v(10.0, 2.0, 6.0);
    // 4 s over 200 points: 50 points a second from 2 s.
    EXPECT_DOUBLE_EQ(v.timeToX(3.0, 200.0), 50.0);
    EXPECT_DOUBLE_EQ(v.xToTime(50.0, 200.0), 3.0);
    // Times are clamped to the recording, not to the window: 12 s maps to (10 - 2) * 50.
    EXPECT_DOUBLE_EQ(v.timeToX(12.0, 200.0), 400.0);
    EXPECT_DOUBLE_EQ(v.timeToX(-1.0, 200.0), -100.0);
    // x is clamped to the view.
    EXPECT_DOUBLE_EQ(v.xToTime(-30.0, 200.0), 2.0);
    EXPECT_DOUBLE_EQ(v.xToTime(900.0, 200.0), 6.0);
    EXPECT_EQ(v.timeToX(3.0, 0.0), 0.0);
    EXPECT_EQ(v.xToTime(50.0, 0.0), 2.0);
}

TEST(TimelineViewportTest, VisibleIntersectionClipsToTheWindow) {
    TimelineViewport v(10.0, 2.0, 6.0);
    // 1 ... 3 is visible from 2 to 3: x 0, width 50 at 50 points per second.
    auto range = v.visibleIntersection(1.0, 3.0, 200.0);
    ASSERT_TRUE(range);
    EXPECT_DOUBLE_EQ(range->x, 0.0);
    EXPECT_DOUBLE_EQ(range->width, 50.0);
    range = v.visibleIntersection(5.0, 9.0, 200.0);
    ASSERT_TRUE(range);
    EXPECT_DOUBLE_EQ(range->x, 150.0);
    EXPECT_DOUBLE_EQ(range->width, 50.0);
    EXPECT_FALSE(v.visibleIntersection(7.0, 8.0, 200.0));
    EXPECT_FALSE(v.visibleIntersection(0.0, 1.0, 200.0));
    EXPECT_FALSE(v.visibleIntersection(3.0, 4.0, 0.0));
}

TEST(TimelineViewportTest, FullDurationToleratesRounding) {
    TimelineViewport v(10.0);
    EXPECT_TRUE(v.isShowingFullDuration());
    v.visibleEnd = 10.00005;
    EXPECT_TRUE(v.isShowingFullDuration());
    v.visibleEnd = 9.9;
    EXPECT_FALSE(v.isShowingFullDuration());
}

} // namespace
