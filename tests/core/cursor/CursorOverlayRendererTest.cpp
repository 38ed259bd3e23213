#include "core/cursor/CursorOverlayRenderer.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::vector<CursorPosition> samples(const std::vector<std::pair<double, Point>>& list) {
    std::vector<CursorPosition> result;
    for (const auto& [t, p] : list) {
        result.push_back({QUuid::createUuid(), t, p});
    }
    return result;
}

CursorClick click(double t, Point p) {
    return {QUuid::createUuid(), t, p, ClickType::leftClick};
}

CursorOverlaySettings withSmoothing(double smoothing) {
    CursorOverlaySettings settings;
    settings.smoothing = smoothing;
    return settings;
}

TEST(CursorOverlayRendererTest, NoSamplesMeansNoCursor) {
    const CursorOverlayRenderer renderer({}, {}, {});
    EXPECT_EQ(renderer.cursorState(1.0), CursorState::hidden());
    EXPECT_FALSE(renderer.cursorState(1.0).isVisible);
}

// Without smoothing the state follows the samples, interpolated, in whatever order they came.
TEST(CursorOverlayRendererTest, UnsmoothedFollowsTheSamples) {
    const CursorOverlayRenderer renderer(
        withSmoothing(0.0), samples({{2.0, {0.8, 0.2}}, {0.0, {0.2, 0.4}}, {1.0, {0.6, 0.6}}}), {});
    EXPECT_EQ(renderer.cursorState(-1.0).position, (Point{0.2, 0.4}));
    EXPECT_EQ(renderer.cursorState(1.0).position, (Point{0.6, 0.6}));
    const Point mid = renderer.cursorState(1.5).position;
    EXPECT_NEAR(mid.x, 0.7, 1e-12);
    EXPECT_NEAR(mid.y, 0.4, 1e-12);
    EXPECT_EQ(renderer.cursorState(5.0).position, (Point{0.8, 0.2}));
    // The edge of the frame still counts as inside; beyond it the cursor is hidden.
    const CursorOverlayRenderer outside(withSmoothing(0.0),
                                        samples({{0.0, {1.0, 0.5}}, {1.0, {1.2, 0.5}}}), {});
    EXPECT_TRUE(outside.cursorState(0.0).isVisible);
    EXPECT_FALSE(outside.cursorState(1.0).isVisible);
    EXPECT_EQ(renderer.cursorState(1.0).scale, 1.5); // the settings' scale, no click
    // Velocity is the central difference over 1/30 s: (0.4, 0.2) a second between the samples.
    EXPECT_NEAR(renderer.cursorState(0.5).velocity.x, 0.4, 1e-9);
    EXPECT_NEAR(renderer.cursorState(0.5).velocity.y, 0.2, 1e-9);
}

TEST(CursorOverlayRendererTest, MotionBlurGrowsAboveTheThreshold) {
    CursorOverlaySettings settings; // threshold 0.49, intensity 0.25
    const CursorOverlayRenderer renderer(settings, samples({{0.0, {0.5, 0.5}}}), {});
    EXPECT_EQ(renderer.calculateMotionBlurAmount({0.49, 0.0}), 0.0);
    // Three times the threshold is the full intensity; twice is (1/2)^2 of it.
    EXPECT_NEAR(renderer.calculateMotionBlurAmount({0.0, 3 * 0.49}), 0.25, 1e-12);
    EXPECT_NEAR(renderer.calculateMotionBlurAmount({2 * 0.49, 0.0}), 0.0625, 1e-12);
    EXPECT_NEAR(renderer.calculateMotionBlurAmount({30.0, 0.0}), 0.25, 1e-12);
    settings.motionBlurEnabled = false;
    const CursorOverlayRenderer off(settings, samples({{0.0, {0.5, 0.5}}}), {});
    EXPECT_EQ(off.calculateMotionBlurAmount({30.0, 0.0}), 0.0);
}

TEST(CursorOverlayRendererTest, ClickShrinksTheCursorBriefly) {
    EXPECT_EQ(CursorOverlayRenderer::smoothShrinkEase(0.0), 0.0);
    EXPECT_DOUBLE_EQ(CursorOverlayRenderer::smoothShrinkEase(0.15), 0.75); // q 0.5: 0.5 * 1.5
    EXPECT_EQ(CursorOverlayRenderer::smoothShrinkEase(0.3), 1.0);
    EXPECT_EQ(CursorOverlayRenderer::smoothShrinkEase(1.0), 0.0);

    const CursorOverlayRenderer renderer(withSmoothing(0.0), samples({{0.0, {0.5, 0.5}}}),
                                         {click(2.0, {0.5, 0.5})});
    EXPECT_EQ(renderer.clickAnimationScale(1.9), 1.0);
    EXPECT_EQ(renderer.clickAnimationScale(2.0), 1.0); // elapsed 0: not yet pressed
    // 0.25 s in: p 0.5, q = 0.2 / 0.7, ease 1 - q^2 = 0.918367; factor 1 - 0.25 * 0.918367.
    EXPECT_NEAR(renderer.clickAnimationScale(2.25), 0.770408, 1e-6);
    EXPECT_NEAR(renderer.cursorState(2.25).scale, 1.5 * 0.770408, 1e-6);
    EXPECT_EQ(renderer.clickAnimationScale(2.5), 1.0);
}

TEST(CursorOverlayRendererTest, ClicksBecomeAnchors) {
    const auto positions = samples({{0.0, {0.1, 0.1}}, {1.0, {0.2, 0.2}}, {2.0, {0.3, 0.3}}});
    // Two clicks in the same microsecond and one at an existing sample's time.
    const CursorOverlayRenderer renderer(
        withSmoothing(0.5), positions,
        {click(1.5000001, {0.9, 0.9}), click(1.5000002, {0.8, 0.8}), click(2.0, {0.3, 0.3})});
    EXPECT_EQ(renderer.pinnedTimestampKeys(), (std::vector<std::int64_t>{1'500'000, 2'000'000}));
    ASSERT_EQ(renderer.cursorPositions().size(), 4u);
    EXPECT_EQ(renderer.cursorPositions()[2].timestamp, 1.5000001);
    EXPECT_EQ(renderer.cursorPositions()[2].position, (Point{0.9, 0.9}));
}

// The drawn cursor lands exactly on every click, whatever the smoothing and speed.
TEST(CursorOverlayRendererTest, SmoothedPathPassesThroughEveryClick) {
    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<std::pair<double, Point>> list;
        Point p{0.5, 0.5};
        for (int i = 0; i < 600; ++i) {
            p.x = std::clamp(p.x + (unit(random) - 0.5) * 0.1, 0.0, 1.0);
            p.y = std::clamp(p.y + (unit(random) - 0.5) * 0.1, 0.0, 1.0);
            list.push_back({i / 30.0, p});
        }
        std::vector<CursorClick> clicks;
        for (int c = 0; c < 15; ++c) {
            if (c % 3 == 0) { // on a sample, where the recorder puts most clicks
                const auto& [t, at] = list[static_cast<std::size_t>(unit(random) * 599)];
                clicks.push_back(click(t, at));
            } else {
                clicks.push_back(click(unit(random) * 20.0, {unit(random), unit(random)}));
            }
        }
        CursorOverlaySettings settings = withSmoothing(0.2 + unit(random) * 0.8);
        settings.animationSpeed =
            allCursorAnimationSpeeds[static_cast<std::size_t>(unit(random) * 4) % 4];
        const CursorOverlayRenderer renderer(settings, samples(list), clicks);
        for (const CursorClick& c : clicks) {
            ASSERT_EQ(renderer.cursorState(c.timestamp).position, c.position)
                << "trial " << trial << " click at " << c.timestamp;
        }
    }
}

// Running the filter both ways cancels its lag: a cursor moving at constant speed is drawn
// exactly where it is, away from the ends of the path.
TEST(CursorOverlayRendererTest, BidirectionalSmoothingHasNoLag) {
    std::vector<std::pair<double, Point>> list;
    for (int i = 0; i <= 600; ++i) {
        list.push_back({i / 60.0, {0.1 + 0.08 * (i / 60.0), 0.5}});
    }
    CursorOverlaySettings settings = withSmoothing(1.0);
    settings.animationSpeed = CursorAnimationSpeed::slow;
    const CursorOverlayRenderer renderer(settings, samples(list), {});
    EXPECT_NEAR(renderer.cursorState(5.0).position.x, 0.5, 1e-9);
    EXPECT_NEAR(renderer.cursorState(5.0).position.y, 0.5, 1e-12);
}

// Smoothing removes jitter, and lets go of it near a click.
TEST(CursorOverlayRendererTest, SmoothingDampsJitterExceptNearClicks) {
    std::vector<std::pair<double, Point>> list;
    for (int i = 0; i <= 300; ++i) {
        list.push_back({i / 60.0, {i % 2 == 0 ? 0.52 : 0.48, 0.5}});
    }
    CursorOverlaySettings settings = withSmoothing(1.0);
    settings.animationSpeed = CursorAnimationSpeed::slow; // half life 0.2 s, twelve samples
    const CursorOverlayRenderer smooth(settings, samples(list), {});
    // Far from a click the path barely trembles: sample 150 is at 0.52 raw.
    EXPECT_NEAR(smooth.cursorState(150 / 60.0).position.x, 0.5, 0.005);
    // One sample after a click at sample 150 the half life is down to about 0.2 * 0.33: the path
    // follows the jitter far more closely there.
    const CursorOverlayRenderer clicked(settings, samples(list), {click(150 / 60.0, {0.52, 0.5})});
    const double nearClick = std::abs(clicked.cursorState(151 / 60.0).position.x - 0.5);
    const double without = std::abs(smooth.cursorState(151 / 60.0).position.x - 0.5);
    EXPECT_GT(nearClick, 2.0 * without);
}

} // namespace
