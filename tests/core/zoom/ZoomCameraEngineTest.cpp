#include "core/zoom/ZoomCameraEngine.h"

#include "core/zoom/ZoomEasing.h"
#include "core/zoom/ZoomTransform.h"

#include <gtest/gtest.h>

#include <random>

namespace {

const Size render{1000.0, 1000.0};

ZoomSegment segment(double start, double end, double level,
                    std::optional<Point> focus = std::nullopt, bool follow = false,
                    double easeIn = 0.8, double easeOut = 0.8) {
    ZoomSegment s;
    s.id = QUuid::createUuid();
    s.startTime = start;
    s.endTime = end;
    s.zoomLevel = level;
    s.easeIn = easeIn;
    s.easeOut = easeOut;
    s.focusPoint = focus;
    s.followCursor = follow;
    return s;
}

std::vector<CursorPosition> path(std::initializer_list<std::pair<double, Point>> samples) {
    std::vector<CursorPosition> result;
    for (const auto& [t, p] : samples) {
        result.push_back({QUuid::createUuid(), t, p});
    }
    return result;
}

void expectNear(Point actual, Point expected, double tolerance = 1e-9) {
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
}

TEST(ZoomCameraEngineTest, StrengthEasesInAndOut) {
    const ZoomSegment s = segment(2.0, 4.0, 2.0, std::nullopt, false, 1.0, 1.0);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 0.9), 0.0);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 1.0), 0.0);
    EXPECT_DOUBLE_EQ(ZoomCameraEngine::segmentStrength(s, 1.25), 0.015625); // 16 * 0.25^5
    EXPECT_DOUBLE_EQ(ZoomCameraEngine::segmentStrength(s, 1.5), 0.5);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 2.0), 1.0);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 4.0), 1.0);
    EXPECT_DOUBLE_EQ(ZoomCameraEngine::segmentStrength(s, 4.5), 0.5);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 5.0), 0.0);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(s, 5.01), 0.0);
    // An ease cut off by time 0 is not compressed; it jumps at the start:
    // (0.29 - 0) / 0.8 = 0.3625, and 16 * 0.3625^5 = 0.100152.
    const ZoomSegment early = segment(0.3, 2.0, 2.0, std::nullopt, false, 0.8, 0.8);
    EXPECT_NEAR(ZoomCameraEngine::segmentStrength(early, 0.29), 0.100152, 1e-6);
    EXPECT_EQ(ZoomCameraEngine::segmentStrength(early, 0.3), 1.0);
}

TEST(ZoomCameraEngineTest, NoSegmentsGiveIdentityAndForgetFollowing) {
    ZoomCameraEngine engine;
    const auto cursor = path({{0.0, {0.9, 0.9}}});
    const std::vector<ZoomSegment> follow = {segment(0.0, 5.0, 2.0, std::nullopt, true)};
    engine.evaluate(1.0, follow, cursor, render, ZoomCameraOptions::preview());
    EXPECT_TRUE(engine.followState().initialized);
    EXPECT_EQ(engine.evaluate(2.0, {}, cursor, render, ZoomCameraOptions::preview()),
              ZoomCameraFrame::identity());
    EXPECT_EQ(engine.followState(), ZoomCameraEngine::FollowState{});
}

TEST(ZoomCameraEngineTest, FocusIsClampedForTheZoomLevel) {
    ZoomCameraEngine engine;
    const auto frame = engine.evaluate(1.0, {segment(0.5, 2.0, 2.0, Point{0.0, 0.0})}, {}, render,
                                       ZoomCameraOptions::preview());
    expectNear(frame.center, {0.25, 0.25});
    EXPECT_EQ(frame.scale, 2.0);
    // The focus pixel (250, 250) lands in the middle: tx = 500 - 250 * 2.
    EXPECT_EQ(frame.transform, (AffineTransform{2.0, 0.0, 0.0, 2.0, 0.0, 0.0}));
    const auto flat = engine.evaluate(1.0, {segment(0.5, 2.0, 1.0, Point{0.0, 0.0})}, {}, render,
                                      ZoomCameraOptions::preview());
    expectNear(flat.center, {0.5, 0.5});
    // Without a fixed focus the cursor at the segment's start decides, and with no zoom
    // window (empty render size) the transform is the identity.
    const auto cursor = path({{0.0, {0.3, 0.4}}, {2.0, {0.3, 0.4}}, {3.0, {0.6, 0.6}}});
    const std::vector<ZoomSegment> free = {segment(2.0, 4.0, 2.0)};
    const auto options = ZoomCameraOptions::preview();
    expectNear(engine.evaluate(2.5, free, cursor, render, options).center, {0.3, 0.4});
    const auto empty = engine.evaluate(2.5, free, cursor, {0.0, 0.0}, options);
    EXPECT_TRUE(empty.transform.isIdentity());
    EXPECT_EQ(empty.center, (Point{0.5, 0.5}));
}

TEST(ZoomCameraEngineTest, SafeZoneMovesFocusOnlyWhenTheCursorLeavesIt) {
    // At 2x around 0.5 the window is 0.25 ... 0.75 and the safe zone 0.375 ... 0.625.
    const Point focus{0.5, 0.5};
    expectNear(
        ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(focus, {0.6, 0.5}, 2.0, 0.25),
        focus);
    expectNear(
        ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(focus, {0.7, 0.5}, 2.0, 0.25),
        {0.7, 0.5});
    expectNear(
        ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(focus, {0.9, 0.5}, 2.0, 0.25),
        {0.75, 0.5});
    // Each axis on its own: y leaves the zone below (0.3 < 0.375), x stays.
    expectNear(
        ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(focus, {0.55, 0.3}, 2.0, 0.25),
        {0.5, 0.3});
    // A ratio beyond 0.49 is limited: the zone shrinks to 0.49 ... 0.51 and 0.52 leaves it.
    expectNear(
        ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(focus, {0.52, 0.5}, 2.0, 0.9),
        {0.52, 0.5});
}

// While zooming out after full zoom the camera holds still, wherever the cursor goes.
TEST(ZoomCameraEngineTest, FocusFreezesDuringZoomOut) {
    const std::vector<ZoomSegment> segments = {
        segment(2.0, 4.0, 2.0, Point{0.5, 0.5}, true, 0.5, 1.0)};
    const auto cursor = path({{0.0, {0.5, 0.5}},
                              {2.5, {0.5, 0.5}},
                              {2.6, {0.7, 0.5}},
                              {4.0, {0.7, 0.5}},
                              {4.2, {0.2, 0.5}},
                              {10.0, {0.2, 0.5}}});
    for (bool freeze : {true, false}) {
        ZoomCameraOptions options = ZoomCameraOptions::preview();
        options.freezeFocusDuringZoomOut = freeze;
        ZoomCameraEngine engine;
        expectNear(engine.evaluate(2.0, segments, cursor, render, options).center, {0.5, 0.5});
        expectNear(engine.evaluate(3.0, segments, cursor, render, options).center, {0.7, 0.5});
        // At 4.5 the strength is 1 - ease(0.5) = 0.5. Frozen, the focus stays at 0.7; following,
        // 0.2 leaves the zone 0.575 ... 0.825 and the focus goes to 0.2, clamped to 0.25.
        const auto out = engine.evaluate(4.5, segments, cursor, render, options);
        EXPECT_DOUBLE_EQ(out.strength, 0.5);
        const Point expected = freeze ? Point{0.7, 0.5} : Point{0.25, 0.5};
        EXPECT_EQ(out.transform, zoomTransform(expected, 2.0, 0.5, render)) << freeze;
        EXPECT_EQ(engine.followState().focus, expected);
    }
}

// Overlapping segments: the stronger wins, and at equal strength the later one.
TEST(ZoomCameraEngineTest, StrongestThenLatestSegmentWins) {
    ZoomCameraOptions options = ZoomCameraOptions::preview();
    options.connectZooms = false;
    const ZoomSegment early = segment(1.0, 6.0, 2.0, Point{0.3, 0.3});
    const ZoomSegment late = segment(2.0, 5.0, 3.0, Point{0.6, 0.6});
    ZoomCameraEngine engine;
    EXPECT_EQ(engine.evaluate(3.0, {late, early}, {}, render, options).activeSegmentID, late.id);
    // At 5.4 the later one eases out (strength 1 - ease(0.5) = 0.5) while the earlier is full.
    const auto frame = engine.evaluate(5.4, {late, early}, {}, render, options);
    EXPECT_EQ(frame.activeSegmentID, early.id);
    EXPECT_EQ(frame.scale, 2.0);
    EXPECT_FALSE(frame.isConnectedTransition);
}

// Neighbours within the gap are joined by one pan at strength 1, from the focus of one to that
// of the next; the first pair whose pan contains the time wins.
TEST(ZoomCameraEngineTest, ConnectedTransitions) {
    auto at = [](double t, const std::vector<ZoomSegment>& segments,
                 ZoomCameraOptions options = ZoomCameraOptions::preview()) {
        return ZoomCameraEngine().evaluate(t, segments, {}, render, options);
    };
    // Gap 1.35: the pan runs 3 ... 4 from (0.25, 0.25) to (0.75, 0.75), then waits at b.
    const ZoomSegment a = segment(1.0, 3.0, 2.0, Point{0.25, 0.25});
    const ZoomSegment b = segment(4.35, 7.0, 2.0, Point{0.75, 0.75});
    const auto begin = at(3.0, {a, b});
    EXPECT_TRUE(begin.isConnectedTransition);
    EXPECT_EQ(begin.activeSegmentID, b.id);
    EXPECT_EQ(begin.strength, 1.0);
    expectNear(begin.center, {0.25, 0.25});
    EXPECT_GT(at(3.5, {a, b}).center.x, 0.25);
    expectNear(at(4.0, {a, b}).center, {0.75, 0.75}, 1e-6);
    EXPECT_TRUE(at(4.2, {a, b}).isConnectedTransition);
    expectNear(at(4.2, {a, b}).center, {0.75, 0.75});
    // Gap 1.36 is too wide: at 3.5 a eases out, 0.5 / 0.8 = 0.625 of the way, so its strength
    // is (2 - 1.25)^5 / 2 = 0.118652.
    const auto apart = at(3.5, {a, segment(4.36, 7.0, 2.0, Point{0.75, 0.75})});
    EXPECT_FALSE(apart.isConnectedTransition);
    EXPECT_NEAR(apart.strength, 0.11865234375, 1e-12);

    // Gap 0.5 and a 1 s pan: the pan runs half a second into c (3 ... 4), between the levels.
    const ZoomSegment c = segment(3.5, 6.0, 3.0, Point{0.5, 0.5});
    const auto past = at(3.75, {a, c});
    EXPECT_TRUE(past.isConnectedTransition);
    EXPECT_EQ(past.strength, 1.0);
    EXPECT_GT(past.scale, 2.0);
    EXPECT_LT(past.scale, 3.0);

    // Gap 2 with a largest gap of 3: the pan ends at 4 and the frame of d holds until 5.
    ZoomCameraOptions wide = ZoomCameraOptions::preview();
    wide.connectedZoomGap = 3.0;
    const ZoomSegment d = segment(5.0, 8.0, 2.5, Point{0.6, 0.6});
    EXPECT_EQ(at(4.5, {a, d}, wide).transform, zoomTransform({0.6, 0.6}, 2.5, 1.0, render));
    EXPECT_TRUE(at(4.5, {a, d}, wide).isConnectedTransition);

    // Overlapping bodies 1 ... 5 and 4 ... 8: the pan runs from max(1, 4 - 1) = 3 to 4.
    const ZoomSegment e = segment(1.0, 5.0, 2.0, Point{0.3, 0.3});
    const ZoomSegment f = segment(4.0, 8.0, 2.0, Point{0.7, 0.7});
    EXPECT_FALSE(at(2.9, {e, f}).isConnectedTransition);
    EXPECT_EQ(at(3.5, {e, f}).activeSegmentID, f.id);
}

TEST(ZoomCameraEngineTest, SpringsFollowAndJumpOnSeek) {
    const std::vector<ZoomSegment> segments = {
        segment(4.5, 8.0, 2.0, Point{0.5, 0.5}, false, 1.0, 1.0)};
    const auto options = ZoomCameraOptions::exportOptions();
    ZoomCameraEngine engine;
    EXPECT_EQ(engine.evaluate(3.0, segments, {}, render, options).scale, 1.0);
    // 2 s later the step is limited to 80 ms. The spring (mass 1, stiffness 100, z 1.05) from
    // rest covers 0.187435 of the distance in 80 ms: scale 1.187435, tx -500 * 0.187435.
    const auto sprung = engine.evaluate(5.0, segments, {}, render, options);
    EXPECT_NEAR(sprung.scale, 1.187435, 1e-4);
    EXPECT_NEAR(sprung.transform.tx, -500.0 * 0.187435, 0.05);
    EXPECT_EQ(sprung.strength, 1.0); // strength, id and flag come from the target unchanged
    expectNear(sprung.center, {0.5, 0.5});
    // Going back to 4 s lands on the target at once: strength ease(0.5) = 0.5, scale 1.5.
    const auto back = engine.evaluate(4.0, segments, {}, render, options);
    EXPECT_EQ(back,
              ZoomCameraEngine().evaluate(4.0, segments, {}, render, ZoomCameraOptions::preview()));
    EXPECT_DOUBLE_EQ(back.scale, 1.5);
}

// A random scene: segments with random times, levels, focus points (some outside the frame)
// and follow flags, and a wandering cursor.
struct Scene {
    std::vector<ZoomSegment> segments;
    std::vector<CursorPosition> cursor;
};

Scene randomScene(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Scene scene;
    const int count = 1 + static_cast<int>(unit(random) * 5);
    for (int i = 0; i < count; ++i) {
        const double start = unit(random) * 20.0;
        std::optional<Point> focus;
        if (unit(random) < 0.5) {
            focus = Point{unit(random) * 1.4 - 0.2, unit(random) * 1.4 - 0.2};
        }
        scene.segments.push_back(segment(start, start + 0.5 + unit(random) * 4.0,
                                         1.0 + unit(random) * 2.0, focus, unit(random) < 0.6,
                                         unit(random) * 2.0, unit(random) * 2.0));
    }
    Point p{0.5, 0.5};
    for (double t = 0.0; t < 26.0; t += 1.0 / 30.0) {
        p.x = std::clamp(p.x + (unit(random) - 0.5) * 0.08, 0.0, 1.0);
        p.y = std::clamp(p.y + (unit(random) - 0.5) * 0.08, 0.0, 1.0);
        scene.cursor.push_back({QUuid(), t, p});
    }
    return scene;
}

// Whatever the scene, the focus leaving the engine keeps the zoom window inside the picture;
// without springs the transform covers the whole output (no border ever shows), and the
// springs never carry the scale beyond the strongest zoom asked for, nor below none.
TEST(ZoomCameraEngineTest, EveryFocusLiesInsideTheClamp) {
    std::mt19937 random(11);
    const Size wide{1920.0, 1080.0};
    for (int trial = 0; trial < 40; ++trial) {
        const Scene scene = randomScene(random);
        for (const auto& options :
             {ZoomCameraOptions::preview(), ZoomCameraOptions::exportOptions()}) {
            ZoomCameraEngine engine;
            for (double t = 0.0; t < 26.0; t += 1.0 / 60.0) {
                const auto frame = engine.evaluate(t, scene.segments, scene.cursor, wide, options);
                const double half = 1.0 / (2.0 * std::max(1.0, frame.scale));
                ASSERT_GE(frame.center.x, half - 1e-9) << trial << " at " << t;
                ASSERT_LE(frame.center.x, 1.0 - half + 1e-9) << trial << " at " << t;
                ASSERT_GE(frame.center.y, half - 1e-9) << trial << " at " << t;
                ASSERT_LE(frame.center.y, 1.0 - half + 1e-9) << trial << " at " << t;
                if (!options.useSpringSmoothing) {
                    ASSERT_LE(frame.transform.tx, 1e-6) << trial << " at " << t;
                    ASSERT_LE(frame.transform.ty, 1e-6) << trial << " at " << t;
                    ASSERT_GE(frame.transform.tx + wide.width * frame.transform.a,
                              wide.width - 1e-6);
                    ASSERT_GE(frame.transform.ty + wide.height * frame.transform.d,
                              wide.height - 1e-6);
                }
            }
        }
    }
}

// After a seek to a moment before everything played so far, or into another segment, the
// answer is that of a fresh engine: no follow history leaks across a seek.
TEST(ZoomCameraEngineTest, SeekMatchesAFreshEngine) {
    std::mt19937 random(23);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int trial = 0; trial < 60; ++trial) {
        const Scene scene = randomScene(random);
        for (const auto& options :
             {ZoomCameraOptions::preview(), ZoomCameraOptions::exportOptions()}) {
            ZoomCameraEngine played;
            const double from = 2.0 + unit(random) * 20.0;
            for (double t = from; t < from + 3.0; t += 1.0 / 60.0) {
                played.evaluate(t, scene.segments, scene.cursor, render, options);
            }
            const double target = unit(random) * (from - 0.002);
            ZoomCameraEngine fresh;
            ASSERT_EQ(played.evaluate(target, scene.segments, scene.cursor, render, options),
                      fresh.evaluate(target, scene.segments, scene.cursor, render, options))
                << "trial " << trial << " seek from " << from << " to " << target;
        }
    }
}

} // namespace
