#include "core/time/MediaTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

// Arithmetic across timescales must stay exact: a recording adds hundreds of offsets.
TEST(MediaTime, AdditionAcrossTimescalesIsExactAtTheCommonTimescale) {
    MediaTime sum = MediaTime::make(1, 3) + MediaTime::make(1, 600); // 200/600 + 1/600
    EXPECT_EQ(sum.value, 201);
    EXPECT_EQ(sum.timescale, 600);
    EXPECT_EQ(MediaTime::make(3, 2) - MediaTime::make(1, 4), MediaTime::make(5, 4));
    // 30000 × 1/30000 s added one at a time is exactly one second; doubles would drift.
    MediaTime total = MediaTime::zero();
    for (int i = 0; i < 30000; ++i)
        total = total + MediaTime::make(1, 30000);
    EXPECT_EQ(total, MediaTime::make(1, 1));
    EXPECT_FALSE(total.flags & MediaTime::hasBeenRounded);
}

TEST(MediaTime, TimescalesWhoseCommonMultipleOverflowRoundToTheLargerOne) {
    // lcm(1e9, 999999937) exceeds 32 bits: the result is at 1e9 and marked rounded.
    MediaTime sum = MediaTime::make(1000000000, 1000000000) + MediaTime::make(1, 999999937);
    EXPECT_EQ(sum.timescale, 1000000000);
    EXPECT_EQ(sum.value, 1000000001);
    EXPECT_TRUE(sum.flags & MediaTime::hasBeenRounded);
}

TEST(MediaTime, ComparisonFollowsTheDescribedOrder) {
    EXPECT_EQ(MediaTime::make(1, 2), MediaTime::make(2, 4));
    EXPECT_LT(MediaTime::make(599, 600), MediaTime::make(1, 1));
    EXPECT_LT(MediaTime::negativeInfinityTime(), MediaTime::make(-1000000, 1));
    EXPECT_LT(MediaTime::make(1000000, 1), MediaTime::positiveInfinityTime());
    EXPECT_LT(MediaTime::positiveInfinityTime(), MediaTime::invalid());
    EXPECT_EQ(MediaTime::invalid(), MediaTime::invalid());
    MediaTime later = MediaTime::make(0, 1);
    later.epoch = 1;
    EXPECT_GT(later, MediaTime::make(5, 1));
}

TEST(MediaTime, InvalidAndInfiniteOperandsPropagate) {
    EXPECT_FALSE((MediaTime::invalid() + MediaTime::make(1, 1)).isValid());
    EXPECT_TRUE((MediaTime::positiveInfinityTime() + MediaTime::make(1, 1)).isPositiveInfinity());
    EXPECT_FALSE((MediaTime::positiveInfinityTime() + MediaTime::negativeInfinityTime()).isValid());
    EXPECT_TRUE((MediaTime::make(1, 1) - MediaTime::positiveInfinityTime()).isNegativeInfinity());
    MediaTime otherEpoch = MediaTime::make(1, 1);
    otherEpoch.epoch = 2;
    EXPECT_FALSE((otherEpoch + MediaTime::make(1, 1)).isValid());
    EXPECT_FALSE(MediaTime::make(1, 0).isValid());
    // A sum past 64 bits saturates to infinity instead of wrapping around.
    EXPECT_TRUE((MediaTime::make(std::numeric_limits<int64_t>::max(), 1) + MediaTime::make(1, 1))
                    .isPositiveInfinity());
}

TEST(MediaTime, SecondsConvertBothWays) {
    MediaTime third = MediaTime::fromSeconds(1.0 / 3, 600);
    EXPECT_EQ(third.value, 200);
    EXPECT_EQ(third.timescale, 600);
    EXPECT_TRUE(MediaTime::fromSeconds(0.0011, 600).flags & MediaTime::hasBeenRounded);
    EXPECT_FALSE(MediaTime::fromSeconds(std::nan(""), 600).isValid());
    EXPECT_TRUE(MediaTime::fromSeconds(INFINITY, 600).isPositiveInfinity());
    EXPECT_DOUBLE_EQ(MediaTime::make(-3, 4).seconds(), -0.75);
    // Nanosecond host times of a machine up for a year keep sub-microsecond precision.
    MediaTime host = MediaTime::make(31536000LL * 1000000000LL + 123, 1000000000);
    EXPECT_NEAR(host.seconds() - 31536000.0, 123e-9, 1e-9);
    // A value too large for the preferred timescale lowers the timescale.
    MediaTime huge = MediaTime::fromSeconds(1e15, 1000000000);
    EXPECT_LT(huge.timescale, 1000000000);
    EXPECT_NEAR(huge.seconds(), 1e15, 1e3);
}

TEST(MediaTime, TimeBasesAtTheBoundaryRoundToTheNearestTick) {
    // 1/30 s in 1/90000 is 3000 ticks; 1/7 s is 12857.14 → 12857; -1/7 → -12857.
    EXPECT_EQ(MediaTime::make(1, 30).inTimeBase(1, 90000), 3000);
    EXPECT_EQ(MediaTime::make(1, 7).inTimeBase(1, 90000), 12857);
    EXPECT_EQ(MediaTime::make(-1, 7).inTimeBase(1, 90000), -12857);
    EXPECT_EQ(MediaTime::make(1, 1).inTimeBase(1001, 30000), 30); // 29.97 ticks → 30
    EXPECT_EQ(MediaTime::fromTimeBase(3003, 1001, 30000), MediaTime::make(3003 * 1001, 30000));
    EXPECT_EQ(MediaTime::make(1, 3).convertScale(600).value, 200);
    EXPECT_EQ(MediaTime::make(1, 7).convertScale(600).value, 86); // 85.71 → 86
}

TEST(MediaTime, HostClockAdvances) {
    MediaTime first = MediaTime::hostTimeNow();
    MediaTime second = MediaTime::hostTimeNow();
    EXPECT_EQ(first.timescale, 1000000000);
    EXPECT_LE(first, second);
}
