#include "core/timeline/TimelineScrollEvent.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TimelineScrollEvent scroll(double dx, double dy, TimelineModifier flags = TimelineModifier::none,
                           double x = 0.0) {
    return {x, dx, dy, flags};
}

// Tiny trackpad deltas are taken so that the page does not scroll, and move nothing.
TEST(TimelineScrollEventTest, SmallDeltaIsTakenWithoutEffect) {
    TimelineViewport v(10.0, 2.0, 4.0);
    const TimelineViewport before = v;
    EXPECT_TRUE(handleTimelineScroll(scroll(0.0, 0.05, TimelineModifier::command), v, 100.0));
    EXPECT_EQ(v, before);
    EXPECT_TRUE(handleTimelineScroll(scroll(0.05, 0.0), v, 100.0));
    EXPECT_EQ(v, before);
}

TEST(TimelineScrollEventTest, PlainVerticalScrollIsLeftToTheParent) {
    TimelineViewport v(10.0, 2.0, 4.0);
    EXPECT_FALSE(handleTimelineScroll(scroll(0.0, 5.0), v, 100.0));
    EXPECT_EQ(v.visibleStart, 2.0);
}

TEST(TimelineScrollEventTest, HorizontalAndShiftScrollPan) {
    // dx 10 over 100 points of a 2 s window pans by -(10 / 100) * 2 = -0.2 s.
    TimelineViewport v(10.0, 2.0, 4.0);
    EXPECT_TRUE(handleTimelineScroll(scroll(10.0, 1.0), v, 100.0));
    EXPECT_DOUBLE_EQ(v.visibleStart, 1.8);
    // With Shift a vertical delta pans as well: -(-25 / 100) * 2 = +0.5 s.
    EXPECT_TRUE(handleTimelineScroll(scroll(0.0, -25.0, TimelineModifier::shift), v, 100.0));
    EXPECT_DOUBLE_EQ(v.visibleStart, 2.3);
}

TEST(TimelineScrollEventTest, CommandOrOptionZoomsAtThePointer) {
    // dy 50: factor exp(0.5) = 1.6487; span 10 / 1.6487 = 6.0653. The pointer at x 30 of 100
    // is 3 s, ratio 0.3, so the start is 3 - 6.0653 * 0.3 = 1.1804.
    TimelineViewport v(10.0);
    EXPECT_TRUE(handleTimelineScroll(scroll(0.0, 50.0, TimelineModifier::command, 30.0), v, 100.0));
    EXPECT_NEAR(v.visibleEnd - v.visibleStart, 10.0 / std::exp(0.5), 1e-9);
    EXPECT_NEAR(v.visibleStart, 3.0 - 0.3 * 10.0 / std::exp(0.5), 1e-9);

    // A huge delta is limited to a factor of 2; a horizontal one zooms out (value = -dx).
    TimelineViewport w(10.0);
    EXPECT_TRUE(
        handleTimelineScroll(scroll(0.0, 1000.0, TimelineModifier::option, 50.0), w, 100.0));
    EXPECT_DOUBLE_EQ(w.visibleStart, 2.5);
    EXPECT_DOUBLE_EQ(w.visibleEnd, 7.5);
    EXPECT_TRUE(
        handleTimelineScroll(scroll(1000.0, 0.0, TimelineModifier::option, 50.0), w, 100.0));
    EXPECT_TRUE(w.isShowingFullDuration());
}

} // namespace
