#include "core/zoom/CursorPathSmoothing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

std::vector<CursorPosition> samples(const std::vector<std::pair<double, Point>>& list) {
    std::vector<CursorPosition> result;
    for (const auto& [t, p] : list) {
        result.push_back({QUuid::createUuid(), t, p});
    }
    return result;
}

ZoomSegment followSegment(double panSmoothing, double deadZone) {
    ZoomSegment s;
    s.startTime = 0.0;
    s.endTime = 10.0;
    s.followCursor = true;
    s.panSmoothing = panSmoothing;
    s.deadZone = deadZone;
    return s;
}

TEST(CursorPathSmoothingTest, AlphaIsHalfPerHalfLife) {
    EXPECT_DOUBLE_EQ(smoothingAlpha(0.1, 0.1), 0.5);
    EXPECT_DOUBLE_EQ(smoothingAlpha(0.2, 0.1), 0.75);
    EXPECT_EQ(smoothingAlpha(-1.0, 0.1), 0.0);
    EXPECT_EQ(smoothingAlpha(0.05, 0.0), 1.0);
    // Two steps of dt leave as much distance as one of 2 dt: (1 - a)^2 = 1 - a(2 dt).
    const double a = smoothingAlpha(0.016, 0.06);
    EXPECT_NEAR((1.0 - a) * (1.0 - a), 1.0 - smoothingAlpha(0.032, 0.06), 1e-12);
}

TEST(CursorPathSmoothingTest, ClustersAreRunningMeans) {
    // (0, 0) and (0.01, 0) make (0.005, 0); (0.5, 0.5) is far; (0.02, 0) is 0.015 from the first
    // centre and joins it: mean of 0, 0.01 and 0.02 is 0.01.
    const auto positions =
        samples({{0.0, {0.0, 0.0}}, {0.1, {0.01, 0.0}}, {0.2, {0.5, 0.5}}, {0.3, {0.02, 0.0}}});
    const auto clusters = focusClusters(positions, 0.05);
    ASSERT_EQ(clusters.size(), 2u);
    EXPECT_NEAR(clusters[0].x, 0.01, 1e-12);
    EXPECT_EQ(clusters[0].y, 0.0);
    EXPECT_EQ(clusters[1], (Point{0.5, 0.5}));
    // Too few samples, or no radius: one cluster per sample. The nearest centre wins, the first
    // on a tie: (0.5, 0.5) is sqrt(0.49 + 0.25) from (0.01, 0) and 0 from the second.
    EXPECT_EQ(nearestClusterIndex({0.5, 0.5}, clusters), 1u);
    EXPECT_EQ(nearestClusterIndex({0.5, 0.5}, {{0.2, 0.5}, {0.8, 0.5}}), 0u);
    EXPECT_FALSE(nearestClusterIndex({0.5, 0.5}, {}));
    EXPECT_EQ(focusClusters(samples({{0.0, {0.0, 0.0}}, {0.1, {0.0, 0.0}}}), 0.05).size(), 2u);
    EXPECT_EQ(focusClusters(positions, 0.0).size(), 4u);
}

// Jitter inside the dead zone hardly moves the smoothed path: it stays within the jitter's own
// range and travels a fraction of the distance.
TEST(CursorPathSmoothingTest, JitterInsideTheDeadZoneIsDamped) {
    std::vector<std::pair<double, Point>> list;
    for (int i = 0; i < 180; ++i) {
        list.push_back({i / 60.0, {i % 2 == 0 ? 0.51 : 0.49, 0.5}});
    }
    const auto input = samples(list);
    const auto output = smoothCursorPositions(input, followSegment(0.75, 0.06));
    ASSERT_EQ(output.size(), input.size());
    double travelled = 0.0;
    for (std::size_t i = 1; i < output.size(); ++i) {
        EXPECT_EQ(output[i].timestamp, input[i].timestamp);
        EXPECT_NEAR(output[i].position.x, 0.5, 0.0100001);
        travelled += std::abs(output[i].position.x - output[i - 1].position.x);
    }
    // The input moves 0.02 on each of 179 steps, 3.58 in all.
    EXPECT_LT(travelled, 0.1);
}

// After a jump to another resting place the path settles there, within the dead zone.
TEST(CursorPathSmoothingTest, PathSettlesAtTheNewRestingPlace) {
    std::vector<std::pair<double, Point>> list;
    for (int i = 0; i < 240; ++i) {
        const double t = i / 60.0;
        list.push_back({t, t < 1.0 ? Point{0.2, 0.2} : Point{0.8, 0.7}});
    }
    const auto output = smoothCursorPositions(samples(list), followSegment(0.5, 0.06));
    EXPECT_EQ(output.front().position, (Point{0.2, 0.2}));
    EXPECT_EQ(output[59].position, (Point{0.2, 0.2})); // nothing moves while the cursor rests
    const Point last = output.back().position;
    EXPECT_LE(std::hypot(last.x - 0.8, last.y - 0.7), 0.06 + 1e-6);
    // It got there steadily: a chain of followers never moves faster than what it follows, and
    // the anchor at its head moves at most 0.45 of the dead zone per sample.
    for (std::size_t i = 1; i < output.size(); ++i) {
        const Point a = output[i - 1].position;
        const Point b = output[i].position;
        EXPECT_LE(std::hypot(b.x - a.x, b.y - a.y), 0.06 * 0.45 + 1e-9) << i;
    }
}

// Every step moves towards something inside the cloud of samples, so the path never leaves
// the samples' bounding box, whatever the settings.
TEST(CursorPathSmoothingTest, PathStaysInsideTheSamples) {
    std::mt19937 random(9);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int trial = 0; trial < 30; ++trial) {
        std::vector<std::pair<double, Point>> list;
        double t = 0.0;
        double lowX = 1.0, highX = 0.0, lowY = 1.0, highY = 0.0;
        for (int i = 0; i < 200; ++i) {
            t += unit(random) * 0.05;
            const Point p{0.2 + unit(random) * 0.5, 0.3 + unit(random) * 0.4};
            lowX = std::min(lowX, p.x), highX = std::max(highX, p.x);
            lowY = std::min(lowY, p.y), highY = std::max(highY, p.y);
            list.push_back({t, p});
        }
        const auto output =
            smoothCursorPositions(samples(list), followSegment(unit(random), unit(random) * 0.3));
        for (const auto& p : output) {
            ASSERT_GE(p.position.x, lowX - 1e-12);
            ASSERT_LE(p.position.x, highX + 1e-12);
            ASSERT_GE(p.position.y, lowY - 1e-12);
            ASSERT_LE(p.position.y, highY + 1e-12);
        }
    }
}

} // namespace
