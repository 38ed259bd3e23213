#include "core/timeline/TimeRuler.h"

#include <gtest/gtest.h>

namespace {

TEST(TimeRulerTest, IntervalsFitTheLabels) {
    // 300 points hold 6 labels; 100 s needs 1 + floor(100 / c) <= 6, first at c = 30; minor 30 / 5.
    EXPECT_EQ(calculateIntervals(100.0, 300.0), (RulerIntervals{30.0, 6.0}));
    // 10 s in 1000 points: 20 labels, 1 s fits (11 labels); no minor ticks below 5.
    EXPECT_EQ(calculateIntervals(10.0, 1000.0), (RulerIntervals{1.0, 0.0}));
    // 20 s in 300 points: 6 labels; 5 gives 5 labels, minor 1.
    EXPECT_EQ(calculateIntervals(20.0, 300.0), (RulerIntervals{5.0, 1.0}));
    // One hour in 600 points: 12 labels; 300 s gives 13, 600 s gives 7; minor 600 / 6.
    EXPECT_EQ(calculateIntervals(3600.0, 600.0), (RulerIntervals{600.0, 100.0}));
    // 10 h in 200 points: 4 labels; 7200 s gives 6, 18000 s gives 3; minor 18000 / 4.
    EXPECT_EQ(calculateIntervals(36000.0, 200.0), (RulerIntervals{18000.0, 4500.0}));
}

// Narrow rulers still get one label, and absurd durations the largest interval.
TEST(TimeRulerTest, IntervalsAtTheLimits) {
    EXPECT_EQ(calculateIntervals(0.5, 10.0).major, 1.0);
    // maxLabels 1 needs floor(d / c) == 0, so 3 s in 10 points gives c = 5.
    EXPECT_EQ(calculateIntervals(3.0, 10.0).major, 5.0);
    EXPECT_EQ(calculateIntervals(36000.0 * 7, 300.0), (RulerIntervals{36000.0, 9000.0}));
}

TEST(TimeRulerTest, LabelsFollowTheInterval) {
    EXPECT_EQ(formatTimeAdaptive(45.7, 5.0), "45s");
    EXPECT_EQ(formatTimeAdaptive(65.0, 5.0), "1:05");
    EXPECT_EQ(formatTimeAdaptive(65.0, 60.0), "1:05");
    EXPECT_EQ(formatTimeAdaptive(3723.0, 60.0), "1:02:03");
    EXPECT_EQ(formatTimeAdaptive(3723.0, 5.0), "1:02:03");
    EXPECT_EQ(formatTimeAdaptive(8130.0, 3600.0), "2:15:00");
    EXPECT_EQ(formatTimeAdaptive(0.0, 1.0), "0s");
}

} // namespace
