#include "core/support/PerformanceProfiler.h"

#include <gtest/gtest.h>

// Times switch unit exactly at a millisecond and at a second.
TEST(PerformanceProfilerTest, timeFormatBoundaries) {
    EXPECT_EQ(PerformanceProfiler::formatTime(0.0009994), "999.40µs");
    EXPECT_EQ(PerformanceProfiler::formatTime(0.001), "1.00ms");
    EXPECT_EQ(PerformanceProfiler::formatTime(0.999), "999.00ms");
    EXPECT_EQ(PerformanceProfiler::formatTime(1.0), "1.00s");
}

// Only the last 100 times are kept for the recent average, while the count keeps going.
TEST(PerformanceProfilerTest, recentTimesKeepTheLastHundred) {
    PerformanceProfiler profiler;
    testing::internal::CaptureStdout();
    profiler.start();
    for (int i = 0; i < 101; ++i)
        profiler.record("frame", i == 0 ? 1.0 : 0.002);
    const auto metric = profiler.metrics().at("frame");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(metric.count, 101);
    EXPECT_EQ(metric.recentTimes.size(), 100u);
    EXPECT_DOUBLE_EQ(metric.recentAvg(), 0.002); // the 1.0 s outlier has left the window
    EXPECT_DOUBLE_EQ(metric.maxTime, 1.0);
    EXPECT_DOUBLE_EQ(metric.minTime, 0.002);
    EXPECT_DOUBLE_EQ(metric.totalTime, 1.0 + 100 * 0.002);
}

// Disabled, measure still runs the block but records nothing; enabled, it records.
TEST(PerformanceProfilerTest, measureRecordsOnlyWhenEnabled) {
    PerformanceProfiler profiler;
    EXPECT_EQ(profiler.measure("work", [] { return 42; }), 42);
    EXPECT_TRUE(profiler.metrics().empty());
    testing::internal::CaptureStdout();
    profiler.start();
    profiler.measure("work", [] {});
    profiler.increment("dropped");
    auto done = profiler.startTiming("timed");
    done();
    const auto metrics = profiler.metrics();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(metrics.at("work").count, 1);
    EXPECT_EQ(metrics.at("dropped").count, 1);
    EXPECT_EQ(metrics.at("dropped").totalTime, 0.0);
    EXPECT_EQ(metrics.at("timed").count, 1);
}
