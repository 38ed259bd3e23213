#include "platform/pulse/DeliveryClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

// Deliveries late by up to 30 ms at random, as on a busy machine, give stamps that follow the
// samples without tearing: each block starts where the one before ended (or a hair later), no
// stamp is later than its reading, and the stamps stay near the true time. A stall restarts the
// count at the new reading.
TEST(DeliveryClock, StampsFollowTheSamplesNotTheWaits) {
    constexpr int rate = 44100, block = 882; // 20 ms
    DeliveryClock clock(rate);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> wait(0.0, 0.03);
    const double origin = 1000.0;
    double previousEnd = 0;
    double worst = 0;
    for (int i = 0; i < 3000; ++i) { // a minute
        const double truth = origin + double(i) * block / rate;
        const MediaTime reading = MediaTime::fromSeconds(truth + wait(random), 1'000'000'000);
        const double start = clock.stamp(reading, block).seconds();
        EXPECT_LE(start, reading.seconds() + 1e-9) << i;
        if (i > 0) {
            EXPECT_GT(start - previousEnd, -0.031) << i; // only an earlier reading pulls it back
            EXPECT_LT(start - previousEnd, 0.00011) << i;
        }
        if (i > 100)
            worst = std::max(worst, std::fabs(start - truth));
        previousEnd = start + double(block) / rate;
    }
    // Within a few milliseconds of the truth once settled: the earliest readings show it.
    EXPECT_LT(worst, 0.01);

    const MediaTime afterStall = MediaTime::fromSeconds(origin + 61.0 + 1.0, 1'000'000'000);
    EXPECT_EQ(clock.stamp(afterStall, block), afterStall);
}
