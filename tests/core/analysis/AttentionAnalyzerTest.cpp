#include "core/analysis/AttentionAnalyzer.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

CursorClick click(double t, Point p, ClickType type = ClickType::rightClick) {
    return CursorClick{.timestamp = t, .position = p, .clickType = type};
}

CursorPosition sample(double t, Point p) {
    return CursorPosition{.timestamp = t, .position = p};
}

std::vector<NormalizedSample> normalized(std::initializer_list<std::pair<double, Point>> values) {
    std::vector<NormalizedSample> result;
    for (auto [t, p] : values)
        result.push_back({t, p});
    return result;
}

AttentionAnalyzerResult analyze(double duration, std::vector<CursorClick> clicks,
                                std::vector<CursorPosition> positions = {},
                                std::vector<ZoomEvent> events = {},
                                std::vector<ZoomSegment> manual = {}) {
    return AttentionAnalyzer::analyze({.duration = duration,
                                       .zoomEvents = std::move(events),
                                       .cursorClicks = std::move(clicks),
                                       .cursorPositions = std::move(positions),
                                       .manualSegments = std::move(manual)});
}

// Six equal right clicks 5 s apart in a 30 s recording, at the given places.
AttentionAnalyzerResult sixClicks(const std::vector<Point>& places) {
    std::vector<CursorClick> clicks;
    for (int i = 0; i < 6; ++i)
        clicks.push_back(click(2.5 + 5 * i, places[size_t(i)]));
    return analyze(30, clicks);
}

std::vector<double> clusterStarts(const AttentionAnalyzerResult& result) {
    std::vector<double> starts;
    for (const AttentionCluster& c : result.clusters)
        starts.push_back(c.startTime);
    return starts;
}

// A left click at 1.0 from (0.5, 0.5), with a sample exactly there so that the origin is that
// point, followed by four samples at 1.2 ... 1.8 that each move by `step`.
std::vector<NormalizedSample> pathAfterClick(Point step) {
    auto samples = normalized({{0.0, {0.5, 0.5}}, {1.0, {0.5, 0.5}}});
    for (int i = 1; i <= 4; ++i)
        samples.push_back({1.0 + 0.2 * i, {0.5 + step.x * i, 0.5 + step.y * i}});
    return samples;
}

AttentionKind classifyLeft(const std::vector<NormalizedSample>& samples) {
    return AttentionAnalyzer::classifyClick(ClickType::leftClick, 1.0, {0.5, 0.5}, samples);
}

} // namespace

TEST(AttentionAnalyzerTest, NoDurationOrNothingUsableGivesNothing) {
    const auto zero = analyze(0, {click(1, {0.5, 0.5})});
    EXPECT_TRUE(zero.moments.empty());
    EXPECT_TRUE(zero.clusters.empty());
    EXPECT_TRUE(zero.zoomSegments.empty());
    EXPECT_TRUE(analyze(-5, {click(1, {0.5, 0.5})}).zoomSegments.empty());
    // Non-finite clicks are dropped, leaving no moment.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(analyze(10, {click(nan, {0.5, 0.5}), click(1, {nan, 0.5})}).zoomSegments.empty());
}

// A plain left click without samples: textFieldClick (fewer than 3 samples after it), 1.35.
// Segment: 5 - 0.55 = 4.45 to 5 + 0.75 = 5.75; one moment, so the default level 1.5.
TEST(AttentionAnalyzerTest, LoneLeftClickBecomesOneAutoSegment) {
    const auto result = analyze(10, {click(5, {0.3, 0.4}, ClickType::leftClick)});
    ASSERT_EQ(result.moments.size(), 1u);
    EXPECT_EQ(result.moments[0].kind, AttentionKind::textFieldClick);
    EXPECT_DOUBLE_EQ(result.moments[0].confidence, 1.35);
    EXPECT_EQ(result.moments[0].durationHint, 1.0);
    ASSERT_EQ(result.zoomSegments.size(), 1u);
    const ZoomSegment& s = result.zoomSegments[0];
    EXPECT_DOUBLE_EQ(s.startTime, 4.45);
    EXPECT_DOUBLE_EQ(s.endTime, 5.75);
    EXPECT_EQ(s.zoomLevel, 1.5);
    EXPECT_EQ(s.mode, ZoomSegmentMode::auto_);
    EXPECT_EQ(s.focusPoint, (Point{0.3, 0.4}));
}

// Sums over the four samples, origin (0.5, 0.5): a step of 0.05 gives 0.05+0.1+0.15+0.2 = 0.5.
TEST(AttentionAnalyzerTest, ClassifiesLeftClicksByThePathThatFollows) {
    EXPECT_EQ(classifyLeft(pathAfterClick({0, 0.05})),
              AttentionKind::dropdownOpen);                                    // ends 0.2 lower
    EXPECT_EQ(classifyLeft(pathAfterClick({0, -0.05})), AttentionKind::click); // up: wrong sign
    EXPECT_EQ(classifyLeft(pathAfterClick({0.05, 0})), AttentionKind::textSelection);
    EXPECT_EQ(classifyLeft(pathAfterClick({0.004, 0})),
              AttentionKind::textFieldClick); // within 0.016
    // Diagonal: neither axis dominates, so a plain click.
    EXPECT_EQ(classifyLeft(pathAfterClick({0.05, 0.05})), AttentionKind::click);
    // Only two samples in (1.1, 3.0]: the cursor rested.
    EXPECT_EQ(classifyLeft(normalized(
                  {{1.0, {0.5, 0.5}}, {1.5, {0.9, 0.5}}, {2.9, {0.9, 0.9}}, {3.5, {0, 0}}})),
              AttentionKind::textFieldClick);
    // A sample at exactly +0.1 is outside the window, one at exactly +2.0 inside: with 1.1 and
    // 3.0 plus two between, three count and they move right.
    EXPECT_EQ(classifyLeft(normalized({{1.0, {0.5, 0.5}},
                                       {1.1, {0.5, 0.5}},
                                       {1.5, {0.6, 0.5}},
                                       {2.0, {0.7, 0.5}},
                                       {3.0, {0.8, 0.5}}})),
              AttentionKind::textSelection);
    const auto right = pathAfterClick({0.05, 0});
    EXPECT_EQ(AttentionAnalyzer::classifyClick(ClickType::rightClick, 1.0, {0.5, 0.5}, right),
              AttentionKind::rightClick);
    EXPECT_EQ(AttentionAnalyzer::classifyClick(ClickType::doubleClick, 1.0, {0.5, 0.5}, right),
              AttentionKind::doubleClick);
}

// A selection gets a longer hint and the emphasis zoom even alone.
TEST(AttentionAnalyzerTest, TextSelectionIsEmphasised) {
    std::vector<CursorPosition> positions;
    for (const NormalizedSample& s : pathAfterClick({0.05, 0}))
        positions.push_back(sample(s.timestamp, s.position));
    const auto result = analyze(10, {click(1.0, {0.5, 0.5}, ClickType::leftClick)}, positions);
    ASSERT_EQ(result.moments.size(), 1u);
    EXPECT_EQ(result.moments[0].kind, AttentionKind::textSelection);
    EXPECT_EQ(result.moments[0].durationHint, 1.3);
    ASSERT_EQ(result.zoomSegments.size(), 1u);
    EXPECT_EQ(result.zoomSegments[0].zoomLevel, 1.65);
}

TEST(AttentionAnalyzerTest, InterpolatesAndHoldsAtTheEnds) {
    const auto samples = normalized({{0, {0, 0}}, {1, {1, 0.5}}, {2, {0.2, 0.2}}});
    EXPECT_FALSE(AttentionAnalyzer::interpolatedCursorPosition(1, {}).has_value());
    EXPECT_EQ(AttentionAnalyzer::interpolatedCursorPosition(-1, samples), (Point{0, 0}));
    EXPECT_EQ(AttentionAnalyzer::interpolatedCursorPosition(0.25, samples), (Point{0.25, 0.125}));
    EXPECT_EQ(AttentionAnalyzer::interpolatedCursorPosition(1, samples), (Point{1, 0.5}));
    EXPECT_EQ(AttentionAnalyzer::interpolatedCursorPosition(9, samples), (Point{0.2, 0.2}));
}

// Runs break where neighbours are more than 0.02 apart; a slow drift of 0.01 per sample stays
// one run. Runs shorter than 0.45 s or longer than 2.6 s are not dwells.
TEST(AttentionAnalyzerTest, DetectsDwellsAsRunsOfSmallSteps) {
    std::vector<NormalizedSample> samples;
    for (int i = 0; i <= 10; ++i) // drift 2.0 ... 3.0 s, x 0.10 ... 0.20
        samples.push_back({2.0 + i * 0.1, {0.1 + i * 0.01, 0.5}});
    samples.push_back({3.1, {0.9, 0.9}}); // a jump ends the run; alone it is no run
    samples.push_back({3.2, {0.5, 0.1}});
    samples.push_back({3.5, {0.5, 0.1}}); // 0.3 s: too short
    const auto candidates =
        AttentionAnalyzer::detectDwellCandidates(samples, AttentionAnalyzerOptions::balanced);
    ASSERT_EQ(candidates.size(), 1u);
    EXPECT_DOUBLE_EQ(candidates[0].startTime, 2.0);
    EXPECT_DOUBLE_EQ(candidates[0].endTime, 3.0);
    EXPECT_DOUBLE_EQ(candidates[0].centerTime, 2.5);
    EXPECT_NEAR(candidates[0].focus.x, 0.15, 1e-12); // mean of 0.10 ... 0.20
    EXPECT_EQ(candidates[0].focus.y, 0.5);
}

// Right clicks (1.15, no classification) with a rest around them. Boost = r * 0.35 + 0.25 with
// r = (length - 0.45) / 2.15: 0.25 at 0.45 s, 0.6 at 2.6 s; a 3 s rest is no dwell.
TEST(AttentionAnalyzerTest, DwellBoostGrowsWithTheLengthOfTheRest) {
    const Point here{0.5, 0.5};
    const Point away{0.9, 0.9};
    const auto shortest = analyze(
        20, {click(5, here)},
        {sample(4, away), sample(5, here), sample(5.2, here), sample(5.45, here), sample(6, away)});
    ASSERT_EQ(shortest.moments.size(), 1u);
    EXPECT_NEAR(shortest.moments[0].confidence, 1.4, 1e-9);
    EXPECT_EQ(shortest.moments[0].supportStart, 5.0);
    EXPECT_EQ(shortest.moments[0].supportEnd, 5.45);
    EXPECT_EQ(shortest.moments[0].reasons, (std::vector<QString>{"right click", "dwell"}));
    // The cluster spans the support, so the segment runs 5 - 0.55 to 5.45 + 0.75.
    ASSERT_EQ(shortest.zoomSegments.size(), 1u);
    EXPECT_DOUBLE_EQ(shortest.zoomSegments[0].endTime, 6.2);
    EXPECT_EQ(shortest.zoomSegments[0].autoReason, QStringLiteral("right click + dwell"));

    const auto longest = analyze(
        20, {click(6, here)},
        {sample(4, away), sample(5, here), sample(6, here), sample(7.6, here), sample(8, away)});
    EXPECT_NEAR(longest.moments.at(0).confidence, 1.75, 1e-9);

    const auto idle = analyze(
        20, {click(6.5, here)},
        {sample(4, away), sample(5, here), sample(6.5, here), sample(8, here), sample(9, away)});
    EXPECT_DOUBLE_EQ(idle.moments.at(0).confidence, 1.15);
    EXPECT_EQ(idle.moments.at(0).reasons.size(), 1u);

    // The click is where the rest was, but 6.6 - 5.225 = 1.375 s after its centre: too late.
    const auto late =
        analyze(20, {click(6.6, here)},
                {sample(4, away), sample(5, here), sample(5.2, here), sample(5.45, here),
                 sample(5.5, away), sample(6.6, here), sample(7, away)});
    EXPECT_DOUBLE_EQ(late.moments.at(0).confidence, 1.15);
}

// Right clicks without samples keep their own positions as focus.
TEST(AttentionAnalyzerTest, ClustersByTimeOrByTimeAndPlace) {
    // Same place, 2 s apart: one cluster. The second is a return, boosted to 1.4, so it
    // dominates; confidence 1.15 + 1.4.
    const auto same = analyze(60, {click(10, {0.3, 0.3}), click(12, {0.3, 0.3})});
    ASSERT_EQ(same.clusters.size(), 1u);
    EXPECT_NEAR(same.clusters[0].confidence, 2.55, 1e-12);
    EXPECT_EQ(same.clusters[0].reason, QStringLiteral("right click + repeated activity"));
    EXPECT_EQ(same.clusters[0].startTime, 10);
    EXPECT_EQ(same.clusters[0].endTime, 12);

    EXPECT_EQ(analyze(60, {click(10, {0.2, 0.2}), click(12, {0.7, 0.2})}).clusters.size(), 2u);
    EXPECT_EQ(analyze(60, {click(10, {0.0, 0.0}), click(10.9, {1, 1})}).clusters.size(), 1u);
    // Chained: each joins the group by its gap to the last one, 0.9 s at a time.
    EXPECT_EQ(analyze(60, {click(10, {0, 0}), click(10.9, {1, 1}), click(11.8, {0, 1}),
                           click(12.7, {1, 0})})
                  .clusters.size(),
              1u);
}

// Equal confidences: the later moment gives the kind, and the focus is their weighted mean.
TEST(AttentionAnalyzerTest, DominantKindAndFocusOfACluster) {
    const AttentionCluster cluster =
        AttentionAnalyzer::makeCluster({AttentionMoment{.timestamp = 2,
                                                        .focus = {0.2, 0.2},
                                                        .kind = AttentionKind::rightClick,
                                                        .confidence = 1.5,
                                                        .supportStart = 1.5,
                                                        .supportEnd = 2,
                                                        .reasons = {"right click", "dwell"}},
                                        AttentionMoment{.timestamp = 1,
                                                        .focus = {0.9, 0.9},
                                                        .kind = AttentionKind::click,
                                                        .confidence = 1.0,
                                                        .supportStart = 1,
                                                        .supportEnd = 1,
                                                        .reasons = {"click"}},
                                        AttentionMoment{.timestamp = 3,
                                                        .focus = {0.4, 0.6},
                                                        .kind = AttentionKind::dropdownOpen,
                                                        .confidence = 1.50005,
                                                        .supportStart = 3,
                                                        .supportEnd = 3.5,
                                                        .reasons = {"dropdown open", "dwell"}}});
    EXPECT_EQ(cluster.kind, AttentionKind::dropdownOpen);
    // Weights 1.5 and 1.50005: x = (0.2 * 1.5 + 0.4 * 1.50005) / 3.00005.
    EXPECT_NEAR(cluster.focus.x, (0.3 + 0.60002) / 3.00005, 1e-12);
    EXPECT_NEAR(cluster.focus.y, (0.3 + 0.90003) / 3.00005, 1e-12);
    EXPECT_EQ(cluster.startTime, 1);
    EXPECT_EQ(cluster.endTime, 3.5);
    EXPECT_EQ(cluster.moments.front().timestamp, 1);
    EXPECT_EQ(cluster.reason, QStringLiteral("click + right click + dwell + dropdown open"));
}

// 30 s: budget ceil(30 / 60 * 10) = 5. Six equal clusters 5 s apart at far places: the first
// (weakest, first of equals) has no mergeable neighbour and is dropped.
TEST(AttentionAnalyzerTest, DensityCapDropsTheWeakestLonelyCluster) {
    const auto result =
        sixClicks({{0.1, 0.1}, {0.9, 0.9}, {0.1, 0.9}, {0.9, 0.1}, {0.5, 0.5}, {0.1, 0.5}});
    EXPECT_EQ(clusterStarts(result), (std::vector<double>{7.5, 12.5, 17.5, 22.5, 27.5}));
    EXPECT_EQ(result.zoomSegments.size(), 5u);
}

// As above, but the third click lies 0.05 from the first: the weakest merges into it instead.
// The merged cluster spans 2.5 ... 12.5, longer than 6 s, so its segment is centred on 7.5:
// 4.5 ... 10.5. Its focus is the mean of both equal moments, (0.125, 0.1).
TEST(AttentionAnalyzerTest, DensityCapMergesIntoTheNearestNeighbour) {
    const auto result =
        sixClicks({{0.1, 0.1}, {0.9, 0.9}, {0.15, 0.1}, {0.9, 0.1}, {0.5, 0.5}, {0.1, 0.5}});
    EXPECT_EQ(clusterStarts(result), (std::vector<double>{2.5, 7.5, 17.5, 22.5, 27.5}));
    EXPECT_EQ(result.clusters[0].moments.size(), 2u);
    EXPECT_DOUBLE_EQ(result.clusters[0].confidence, 2.3);
    ASSERT_EQ(result.zoomSegments.size(), 5u);
    EXPECT_DOUBLE_EQ(result.zoomSegments[0].startTime, 4.5);
    EXPECT_DOUBLE_EQ(result.zoomSegments[0].endTime, 10.5);
    EXPECT_NEAR(result.zoomSegments[0].focusPoint->x, 0.125, 1e-12);
    EXPECT_NEAR(result.zoomSegments[0].focusPoint->y, 0.1, 1e-12);
}

// 5 s: budget ceil(0.83) = 1; the two clusters are 3.5 s and far apart, so the first goes.
// The one left at 4 ends at the recording's end: 3.45 ... min(5, 4.75).
TEST(AttentionAnalyzerTest, ShortRecordingKeepsOneCluster) {
    const auto result = analyze(5, {click(0.5, {0.1, 0.1}), click(4, {0.9, 0.9})});
    ASSERT_EQ(result.zoomSegments.size(), 1u);
    EXPECT_DOUBLE_EQ(result.zoomSegments[0].startTime, 3.45);
    EXPECT_DOUBLE_EQ(result.zoomSegments[0].endTime, 4.75);
}

TEST(AttentionAnalyzerTest, SegmentsStayInsideTheRecordingAndLongEnough) {
    // At the start: 0 ... 0.75 (0 - 0.55 is clamped; 0.75 is long enough).
    const auto atStart = analyze(10, {click(0, {0.5, 0.5})});
    EXPECT_EQ(atStart.zoomSegments.at(0).startTime, 0);
    EXPECT_EQ(atStart.zoomSegments.at(0).endTime, 0.75);
    // At the end: 9.45 ... 10 is 0.55 long; the end cannot move, so the start does: 9.3.
    const auto atEnd = analyze(10, {click(10, {0.5, 0.5})});
    EXPECT_DOUBLE_EQ(atEnd.zoomSegments.at(0).startTime, 9.3);
    EXPECT_EQ(atEnd.zoomSegments.at(0).endTime, 10);
    // 0.5 s recording: 0 ... 0.5 cannot reach 0.7; the segment is the whole span, its minimum.
    const auto tiny = analyze(0.5, {click(0.2, {0.5, 0.5})});
    EXPECT_EQ(tiny.zoomSegments.at(0).startTime, 0);
    EXPECT_EQ(tiny.zoomSegments.at(0).endTime, 0.5);
    // Clicks beyond the recording are brought to its end.
    EXPECT_EQ(analyze(10, {click(50, {0.5, 0.5})}).moments.at(0).timestamp, 10);
}

// The span of a click at 5 is 4.45 ... 5.75. Only manual bodies that overlap it suppress it.
TEST(AttentionAnalyzerTest, ManualSegmentsWin) {
    const auto manual = [](double s, double e, ZoomSegmentMode mode) {
        return ZoomSegment({.startTime = s, .endTime = e, .mode = mode});
    };
    EXPECT_TRUE(
        analyze(10, {click(5, {0.5, 0.5})}, {}, {}, {manual(5.5, 8, ZoomSegmentMode::manual)})
            .zoomSegments.empty());
    EXPECT_EQ(analyze(10, {click(5, {0.5, 0.5})}, {}, {}, {manual(5.5, 8, ZoomSegmentMode::auto_)})
                  .zoomSegments.size(),
              1u);
    // Touching at 5.75 is no overlap.
    EXPECT_EQ(
        analyze(10, {click(5, {0.5, 0.5})}, {}, {}, {manual(5.75, 8, ZoomSegmentMode::manual)})
            .zoomSegments.size(),
        1u);
}

// Three returns to one place within 1 s: 1.15, 1.4, 1.4; spread 0, more than 2 moments: 1.65.
TEST(AttentionAnalyzerTest, SteadyWorkInOnePlaceGetsTheEmphasisZoom) {
    const auto steady =
        analyze(60, {click(1, {0.5, 0.5}), click(1.5, {0.5, 0.5}), click(2, {0.5, 0.5})});
    ASSERT_EQ(steady.zoomSegments.size(), 1u);
    EXPECT_EQ(steady.zoomSegments[0].zoomLevel, 1.65);
    // Two moments are not enough, however close.
    EXPECT_EQ(
        analyze(60, {click(1, {0.5, 0.5}), click(1.5, {0.5, 0.5})}).zoomSegments.at(0).zoomLevel,
        1.5);
    // Three spread 0.3 apart are too far.
    EXPECT_EQ(analyze(60, {click(1, {0.2, 0.5}), click(1.5, {0.5, 0.5}), click(2, {0.8, 0.5})})
                  .zoomSegments.at(0)
                  .zoomLevel,
              1.5);
}

// Events have their origin at the bottom left: (0.2, 0.8) is (0.2, 0.2) from the top. Hint:
// a 5 s ease is limited to 3, a 0.1 s ease raised to 0.5.
TEST(AttentionAnalyzerTest, LiveZoomEventsAreMirroredMoments) {
    const auto result =
        analyze(60, {}, {},
                {ZoomEvent{.timestamp = 10, .position = {0.2, 0.8}, .level = 2, .duration = 5},
                 ZoomEvent{.timestamp = 30, .position = {0.7, -0.5}, .level = 2, .duration = 0.1}});
    ASSERT_EQ(result.moments.size(), 2u);
    EXPECT_EQ(result.moments[0].kind, AttentionKind::legacyZoomEvent);
    EXPECT_DOUBLE_EQ(result.moments[0].confidence, 1.6);
    EXPECT_NEAR(result.moments[0].focus.y, 0.2, 1e-12);
    EXPECT_EQ(result.moments[0].durationHint, 3.0);
    EXPECT_EQ(result.moments[1].focus, (Point{0.7, 1.0})); // 1 - (-0.5) clamped
    EXPECT_EQ(result.moments[1].durationHint, 0.5);
}
