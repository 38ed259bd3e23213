#include "core/recording/SmartClickZoom.h"

#include "FakeRecordingEngines.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Samples at 30 per second from `from` to `to`, moving linearly between two points.
void addPath(SmartClickZoom& zoom, double from, double to, Point start, Point end) {
    const int steps = int(std::lround((to - from) * 30));
    for (int i = 0; i <= steps; ++i) {
        const double f = steps ? double(i) / steps : 0.0;
        zoom.recordSmartCursorSample(
            Point{start.x + (end.x - start.x) * f, start.y + (end.y - start.y) * f},
            from + (to - from) * f);
    }
}

struct Recorded {
    int zoomEvents = 0;
    Point lastAt;
    double lastLevel = 0;
    double lastDuration = 0;
};

class CountingMetadata final : public MetadataRecorderEngine {
public:
    explicit CountingMetadata(Recorded& recorded) : m_recorded(recorded) {}
    void startRecording(const QDateTime&) override {}
    void setTimeProvider(TimeProvider) override {}
    void recordCursorPosition(Point) override {}
    void recordCursorClick(Point, ClickType) override {}
    void recordZoomEvent(Point at, double level, double duration) override {
        ++m_recorded.zoomEvents;
        m_recorded.lastAt = at;
        m_recorded.lastLevel = level;
        m_recorded.lastDuration = duration;
    }
    MetadataCounts currentCounts() const override { return {}; }
    void stopRecording(double) override {}
    void saveMetadata(const QString&) override {}

private:
    Recorded& m_recorded;
};

SmartClickZoom::Targets targetsFor(MetadataRecorderEngine* metadata, bool* recording) {
    return SmartClickZoom::Targets{[recording] { return *recording; },
                                   [metadata] { return metadata; },
                                   []() -> ZoomRenderer* { return nullptr; }};
}

} // namespace

// Each outcome is worked out here from the score table, independently of the code.
TEST(SmartClickZoomTest, DecisionsFollowTheScore) {
    bool recording = true;
    SmartClickZoom zoom(targetsFor(nullptr, &recording));
    const Point p{0.4, 0.3};

    // A click with the cursor at rest: dwell 1 (+2), speeds 0 (+1, +1), no earlier zoom so
    // distance 1 (+1) and a long time since (+1): score 6, confidence (6+2)/6 clamped to 1.
    // Duration 0.5 + min((1-0.45)*0.5, 0.25) = 0.75, +0.1 still after, +0.05 far: 0.9.
    addPath(zoom, 9.0, 10.32, p, p);
    auto rest = zoom.smartClickZoomDecision(10.0, p, 0.5);
    EXPECT_TRUE(rest.accept);
    EXPECT_DOUBLE_EQ(rest.confidence, 1.0);
    EXPECT_NEAR(rest.duration, 0.9, 1e-9);

    // A fast fling through the click at 2.4 widths per second, still flying after. dwell 0: +0;
    // speedAfter 2.4 > 1.35: -1; speedBefore > 1.9 with dwell < 0.38: -2; distance 1 and no earlier
    // zoom: +1, +1. Score -1: skipped.
    SmartClickZoom fling(targetsFor(nullptr, &recording));
    addPath(fling, 19.65, 20.32, Point{0.0, 0.5}, Point{2.4 * 0.67, 0.5});
    const Point flingAt{2.4 * 0.35, 0.5};
    auto flung = fling.smartClickZoomDecision(20.0, flingAt, 0.5);
    EXPECT_FALSE(flung.accept);
    EXPECT_NEAR(flung.confidence, (-1 + 2) / 6.0, 1e-9);

    // No samples after the click: dwell 0.6 (+2), before at rest (+1), after empty speed 0
    // (+1), first zoom (+1, +1): score 6. Duration 0.5 + 0.075 + 0.1 + 0.05 = 0.725.
    SmartClickZoom quiet(targetsFor(nullptr, &recording));
    addPath(quiet, 4.0, 5.0, p, p);
    auto noAfter = quiet.smartClickZoomDecision(5.0 + 1e-6, p, 0.5);
    EXPECT_TRUE(noAfter.accept);
    EXPECT_NEAR(noAfter.duration, 0.5 + 0.15 * 0.5 + 0.1 + 0.05, 1e-9);

    // Durations stay within 0.45 and 1.1 whatever is configured.
    EXPECT_DOUBLE_EQ(zoom.smartClickZoomDecision(10.0, p, 5.0).duration, 1.1);
    EXPECT_NEAR(zoom.smartClickZoomDecision(10.0, p, 0.2).duration, 0.2 + 0.25 + 0.1 + 0.05, 1e-9);
    EXPECT_DOUBLE_EQ(zoom.smartClickZoomDecision(10.0, Point{0.9, 0.9}, 0.0).duration, 0.45);
}

// An accepted click is remembered: a second click 0.2 s later at the same place loses 3 for
// the short time and 2 for the small distance. With the cursor at rest it scores
// 2 + 1 + 1 + 0 + 0 - 3 - 2 = -1 and is skipped; the same click 2 s later far away is taken.
TEST(SmartClickZoomTest, ARepeatedClickIsSkippedAndAnAcceptedOneRecorded) {
    bool recording = true;
    Recorded recorded;
    CountingMetadata metadata(recorded);
    SmartClickZoom zoom(targetsFor(&metadata, &recording));
    const Point p{0.25, 0.75};
    addPath(zoom, 0.0, 1.6, p, p);
    zoom.decideNow({1.0, p, Point{p.x, 1 - p.y}, 2.0, 0.5});
    ASSERT_EQ(recorded.zoomEvents, 1);
    EXPECT_DOUBLE_EQ(recorded.lastAt.y, 0.25); // the event keeps the bottom-left origin
    EXPECT_DOUBLE_EQ(recorded.lastLevel, 2.0);
    EXPECT_EQ(zoom.lastAcceptedSmartZoomTime(), 1.0);

    const auto repeat = zoom.smartClickZoomDecision(1.2, p, 0.5);
    EXPECT_FALSE(repeat.accept);
    EXPECT_NEAR(repeat.confidence, 1.0 / 6.0, 1e-9);
    zoom.decideNow({1.2, p, Point{p.x, 1 - p.y}, 2.0, 0.5});
    EXPECT_EQ(recorded.zoomEvents, 1);

    const Point far{0.8, 0.2};
    addPath(zoom, 1.6, 3.6, far, far);
    EXPECT_TRUE(zoom.smartClickZoomDecision(3.2, far, 0.5).accept);

    // Nothing is decided once the recording is paused or over.
    recording = false;
    zoom.decideNow({3.2, far, Point{far.x, 1 - far.y}, 2.0, 0.5});
    EXPECT_EQ(recorded.zoomEvents, 1);

    zoom.resetSmartClickZoomState();
    EXPECT_TRUE(zoom.samples().empty());
    EXPECT_FALSE(zoom.lastAcceptedSmartZoomTime());
}

TEST(SmartClickZoomTest, SpeedAndHistory) {
    using S = SmartClickZoom::Sample;
    EXPECT_EQ(SmartClickZoom::averageCursorSpeed({}), 0.0);
    EXPECT_EQ(SmartClickZoom::averageCursorSpeed({S{1.0, {0, 0}}}), 0.0);
    EXPECT_EQ(SmartClickZoom::averageCursorSpeed({S{1.0, {0, 0}}, S{1.0, {1, 0}}}), 0.0);
    // Two legs of length 0.5 (a 3-4-5 triangle) over 2 s.
    EXPECT_DOUBLE_EQ(SmartClickZoom::averageCursorSpeed(
                         {S{0.0, {0, 0}}, S{1.0, {0.3, 0.4}}, S{2.0, {0.6, 0.8}}}),
                     0.5);

    bool recording = true;
    SmartClickZoom zoom(targetsFor(nullptr, &recording));
    for (int i = 0; i <= 300; ++i)
        zoom.recordSmartCursorSample(Point{}, i * 0.1);
    // Older than 30 - 8 seconds is gone; 22.0 itself stays.
    EXPECT_NEAR(zoom.samples().front().timestamp, 22.0, 1e-9);
    for (int i = 0; i < 20000; ++i)
        zoom.recordSmartCursorSample(Point{}, 31.0);
    EXPECT_EQ(zoom.samples().size(), SmartClickZoom::historyCount);
}
