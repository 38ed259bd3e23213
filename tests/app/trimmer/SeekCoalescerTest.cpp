#include "app/trimmer/SeekCoalescer.h"

#include <gtest/gtest.h>

#include <vector>

using namespace std::chrono_literals;

namespace {
// A scrubber dragged for a second with a position every millisecond, against a clock the test
// moves: the decoder sees at most 30 seeks, always the newest position, and the release exact.
TEST(SeekCoalescerTest, limitsADragToThirtySeeksASecondAndEndsExactly) {
    SeekCoalescer::Clock::time_point now{};
    SeekCoalescer coalescer([&now] { return now; });
    std::vector<double> seeks;
    double position = 0.0;
    for (int ms = 0; ms < 1000; ++ms) {
        now = SeekCoalescer::Clock::time_point{} + std::chrono::milliseconds(ms);
        position = ms / 100.0;
        if (const auto seek = coalescer.request(position))
            seeks.push_back(*seek);
        if (const auto due = coalescer.takeDue())
            seeks.push_back(*due);
    }
    EXPECT_LE(seeks.size(), 31u);
    EXPECT_GE(seeks.size(), 29u) << "the drag should still be followed about 30 times a second";
    // Every seek is to a position the drag had just reached, never a stale one.
    for (size_t i = 1; i < seeks.size(); ++i)
        EXPECT_GT(seeks[i], seeks[i - 1]);
    ASSERT_TRUE(coalescer.timeUntilDue().has_value()) << "the last positions wait their turn";
    EXPECT_EQ(coalescer.finish(4.321), 4.321);
    EXPECT_FALSE(coalescer.timeUntilDue().has_value()) << "the release drops what waited";
    EXPECT_FALSE(coalescer.takeDue().has_value());
}

// A held-back position comes due once the interval since the last seek has passed, and the
// newest one wins; after every 400 seeks the decoder is due for a rebuild.
TEST(SeekCoalescerTest, releasesTheNewestHeldPositionWhenDueAndAsksForRebuilds) {
    SeekCoalescer::Clock::time_point now{};
    SeekCoalescer coalescer([&now] { return now; });
    ASSERT_EQ(coalescer.request(1.0), 1.0);
    now += 5ms;
    EXPECT_FALSE(coalescer.request(2.0).has_value());
    EXPECT_FALSE(coalescer.request(3.0).has_value());
    EXPECT_FALSE(coalescer.takeDue().has_value());
    EXPECT_EQ(*coalescer.timeUntilDue(), SeekCoalescer::minimumInterval - 5ms);
    now += SeekCoalescer::minimumInterval;
    EXPECT_EQ(coalescer.takeDue(), 3.0);
    EXPECT_FALSE(coalescer.takeDue().has_value());

    int rebuilds = 0;
    while (coalescer.seekCount() < 800) {
        coalescer.finish(0.0);
        rebuilds += coalescer.rebuildDue() ? 1 : 0;
    }
    EXPECT_EQ(rebuilds, 2);
}
} // namespace
