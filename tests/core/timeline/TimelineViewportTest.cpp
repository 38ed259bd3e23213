#include "core/timeline/TimelineViewport.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

// An empty recording still has a window; one shorter than the minimum span is shown whole,
// and zoom cannot narrow it.
TEST(TimelineViewportTest, EmptyAndShortRecordings) {
    for (double d : {0.0, -4.0, nan, infinity}) {
        const TimelineViewport v(d);
        EXPECT_EQ(v, TimelineViewport(0.0, 0.0, 0.3)) << d;
        EXPECT_EQ(v.visibleEnd, 0.3) << d;
    }
    TimelineViewport v(0.2);
    v.zoom(4.0, 0.1);
    EXPECT_EQ(v.visibleStart, 0.0);
    EXPECT_EQ(v.visibleEnd, 0.2);
    // A window asked for past the end is pulled back, keeping its span: min(10 - 4, 8) = 6.
    EXPECT_EQ(TimelineViewport(10.0, 8.0, 12.0).visibleStart, 6.0);
}

TEST(TimelineViewportTest, ZoomKeepsTheAnchorAndTheMinimumSpan) {
    // Factor 2 at the middle of 0 ... 10: span 5, ratio 0.5, start 5 - 2.5 = 2.5.
    TimelineViewport v(10.0);
    v.zoom(2.0, 5.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 2.5);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 7.5);
    // Anchor 3.5 in 2.5 ... 7.5 (ratio 0.2), out by 0.5: span 10 from 3.5 - 2 = 1.5, which
    // normalisation pulls back to 0.
    v.zoom(0.5, 3.5);
    EXPECT_TRUE(v.isShowingFullDuration());
    for (int i = 0; i < 20; ++i) {
        v.zoom(2.0, 5.0);
    }
    EXPECT_NEAR(v.visibleEnd - v.visibleStart, 0.3, 1e-12);
    // Factors that make no sense refit instead of leaving a broken window.
    for (double factor : {0.0, -1.0, infinity, nan}) {
        TimelineViewport w(10.0, 2.0, 4.0);
        w.zoom(factor, 3.0);
        EXPECT_TRUE(w.isShowingFullDuration()) << factor;
    }
}

TEST(TimelineViewportTest, PanStopsAtTheEndsAndRefitsWhenAllIsShown) {
    TimelineViewport v(10.0, 2.0, 4.0);
    v.pan(100.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 8.0);
    EXPECT_DOUBLE_EQ(v.visibleEnd, 10.0);
    v.pan(-100.0);
    EXPECT_DOUBLE_EQ(v.visibleStart, 0.0);
    // A window that shows everything has nothing to pan over: it is refitted.
    TimelineViewport whole(10.0);
    whole.visibleStart = 0.5; // a stale window, as after a duration change
    whole.visibleEnd = 10.5;
    whole.pan(1.0);
    EXPECT_EQ(whole, TimelineViewport(10.0));
}

TEST(TimelineViewportTest, TimeAndXMapBothWays) {
    const TimelineViewport v(10.0, 2.0, 6.0);
    // 4 s over 200 points: 50 points a second from 2 s; times clamp to the recording, x to
    // the view.
    EXPECT_DOUBLE_EQ(v.timeToX(3.0, 200.0), 50.0);
    EXPECT_DOUBLE_EQ(v.xToTime(50.0, 200.0), 3.0);
    EXPECT_DOUBLE_EQ(v.timeToX(12.0, 200.0), 400.0);
    EXPECT_DOUBLE_EQ(v.xToTime(900.0, 200.0), 6.0);
    // 1 ... 3 shows from 2 to 3: x 0, width 50.
    EXPECT_EQ(v.visibleIntersection(1.0, 3.0, 200.0), (TimelineViewport::XRange{0.0, 50.0}));
    EXPECT_FALSE(v.visibleIntersection(7.0, 8.0, 200.0));
    EXPECT_FALSE(v.visibleIntersection(3.0, 4.0, 0.0));
}

} // namespace
